// Curvilinear internal coordinates for `ictvcf prepare`: redundant primitives found from the
// geometry (bonds, angles, linear bends, dihedrals), Wilson's B matrix, and the displacement and
// Duschinsky matrix between two states measured along the primitives instead of along the
// straight Cartesian chord between the minima. No files, no output.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "prepare/modes.h"
#include "util/matrix.h"

namespace ictvcf {

enum class PrimitiveKind { bond, angle, linear_bend, dihedral, out_of_plane };

// One primitive over atoms a, b, c, d (0-based; unused ones -1). Bond a-b; angle a-b-c with the
// apex b; dihedral a-b-c-d about the bond b-c, in (-pi, pi]; linear bend a-b-c (an angle near
// 180 degrees): the component along the fixed unit vector `e`, perpendicular to the a-c axis, of
// the sum of the unit vectors from b to a and from b to c (zero when straight); out of plane
// a-b-c-d: an atom b with three bonds, to a, c and d, measured as the dihedral a-b-c-d (the
// planes a-b-c and b-c-d; it moves at first order where the angles stand still, at a flat atom).
struct Primitive {
  PrimitiveKind kind = PrimitiveKind::bond;
  int a = -1, b = -1, c = -1, d = -1;
  double e[3] = {0, 0, 0};
};

struct InternalSet {
  std::vector<Primitive> prims;
  int bonds = 0, angles = 0, linear_bends = 0, dihedrals = 0, out_of_plane = 0;
  int joins = 0;  // bonds added to join fragments that covalent radii leave apart
};

// Why the internal coordinates cannot describe a pair: a geometry in pieces too far apart to
// join, or primitives that do not span the vibrations. `state` is 1 or 2 when one geometry is to
// blame, 0 otherwise.
struct InternalsUnavailable : std::runtime_error {
  InternalsUnavailable(const std::string& what, int which)
      : std::runtime_error(what), state(which) {}
  int state;
};

// Fragments further apart than this (bohr, closest atoms) are not joined.
constexpr double kMaxJoinBohr = 10.0;
// The primitives must describe every vibration: the smallest singular value of A_i (below) at
// least this fraction of the largest.
constexpr double kMinSpan = 1e-5;
// Angles above this (degrees) are described by two linear bends, and no dihedral runs over them.
constexpr double kLinearDeg = 175.0;

// The primitives of a molecule (atomic numbers z) at two geometries in one frame (3N, bohr):
// atoms a, b bonded where |x_a - x_b| < 1.3 (r_a + r_b) at either geometry (covalent radii of
// Cordero et al., Dalton Trans. 2008, 2832); pieces joined by the shortest distance between them;
// every angle between two bonds of an atom, every dihedral about every bond (and about every
// straight chain, between the atoms bonded to its ends), an out-of-plane coordinate at every atom
// with three bonds. The linear bends' directions come from x1.
InternalSet find_internals(const std::vector<int>& z, const std::vector<double>& x1,
                           const std::vector<double>& x2);

double primitive_value(const Primitive& p, const std::vector<double>& x);
// s(x1) - s(x2), dihedral differences wrapped into (-pi, pi].
std::vector<double> internal_difference(const InternalSet& set, const std::vector<double>& x1,
                                        const std::vector<double>& x2);
// The angle (radians, 0 .. pi) between the directions of bond p at x1 and at x2 (one frame).
double bond_turn(const Primitive& p, const std::vector<double>& x1, const std::vector<double>& x2);
// Wilson's B matrix ds/dx (primitives x 3N) at x.
Matrix<double> wilson_b(const InternalSet& set, const std::vector<double>& x);
// 'O2-H3 bond', 'H1-O2-O3 angle', 'H1-O2-O3-H4 dihedral', 'C1-C2-C3 linear bend' (1-based).
std::string primitive_label(const Primitive& p, const std::vector<int>& z);

// The displacement and the Duschinsky matrix in curvilinear coordinates, after Reimers
// (J. Chem. Phys. 115, 9103 (2001)). A_i = B(x_i) M^-1/2 L_i: the vibrations of state i as changes
// of the primitives. D_i = A_i^+ (s(x1) - s(x2)), A^+ the generalised inverse: A^+ = A^T G^+ with
// G = A A^T = B M^-1 B^T, Wilson's G matrix, so this is B's mass-weighted inverse, and with a
// force field diagonal in the primitives 1/2 sum w^2 D^2 is exactly 1/2 ds^T F ds. The
// Duschinsky matrix identifies equal changes of the primitives, Q2 = S Q1 for ds = A1 Q1 = A2 Q2;
// taken as A_2^+ A_1 it is not orthogonal at first order in the geometry change (G differs between
// the geometries: singular values 0.87-1.10 on the coumarin pair), so the two states' modes are
// compared in their mean metric instead, S = A_2^T Gm^+ A_1 with Gm = (G_1 + G_2) / 2, which is
// orthogonal to second order (0.990 on coumarin); then made orthogonal as in Cartesian
// coordinates.
struct Curvilinear {
  InternalSet set;
  std::vector<double> ds;      // s(x1) - s(x2) per primitive
  std::vector<double> chord;   // A_1 D1(Cartesian): the chord's change of each primitive, linear
  std::vector<double> energy;  // share of each primitive in lambda1(Cartesian) - lambda1(internal)
  Matrix<double> s_raw;        // vibrations x vibrations, A_2^T Gm^+ A_1
  Polar polar;                 // its nearest orthogonal matrix
  std::vector<double> d1, d2;  // 3N (the first six zero), sqrt(me) bohr
  double lambda1 = 0, lambda2 = 0, hr1 = 0, hr2 = 0;  // hartree; total Huang-Rhys factors
  double min_singular_a = 0;  // smallest singular value of A_1 and A_2 over the largest
};

// From the Cartesian analysis of the pair (geometries aligned, modes of each state). Throws
// InternalsUnavailable when the primitives do not span the vibrations of either state.
Curvilinear curvilinear(const PrepareResult& r, const InternalSet& set);

// The written data of r replaced by the curvilinear ones: the vibrational block of S, D1, D2,
// the reorganisation energies and Huang-Rhys factors.
void use_curvilinear(PrepareResult& r, const Curvilinear& c);

}  // namespace ictvcf
