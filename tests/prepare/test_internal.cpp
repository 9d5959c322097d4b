// Curvilinear internal coordinates and the vertical models against exact references: the
// valence-force-field H-O-O-H pairs of tests/data/qc/hooh (make_hooh.py), whose reorganisation
// energy along the dihedral is 1/2 k_tau dtau^2 exactly; B against finite differences; invariance
// under rigid motions and the order of the primitives; the vertical gradient model against the
// adiabatic one on a displaced-only pair; bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "prepare/models.h"
#include "prepare_support.h"
#include "test_support.h"
#include "util/constants.h"

namespace ictvcf {
namespace {

using testing::moved;
using testing::qc_file;
using testing::rotation;

constexpr double kTau = 0.0045;  // make_hooh.py's dihedral force constant
constexpr double kDeg = std::numbers::pi / 180.0;

QcState hooh(int deg) {
  return read_qc_state(qc_file("hooh/hooh_" + std::to_string(deg) + ".hess"));
}

double max_diff(const std::vector<double>& a, const std::vector<double>& b) {
  double d = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) d = std::max(d, std::fabs(a[i] - b[i]));
  return d;
}

// Row `row` of B M^-1/2 L1: how the primitive changes along each of state 1's vibrations.
std::vector<double> along_modes(const PrepareResult& r, const InternalSet& set, int row) {
  const Matrix<double> b = wilson_b(set, r.x1);
  std::vector<double> a(r.n3, 0.0);
  for (int k = 7; k <= r.n3; ++k)
    for (int i = 1; i <= r.n3; ++i)
      a[k - 1] += b(row, i) * r.modes1.l(i, k) / std::sqrt(r.mass[(i - 1) / 3]);
  return a;
}

TEST(HoohToy, InternalCoordinatesAreExactTheChordIsNot) {
  // final, initial, the dihedral's change, and the Cartesian chord's lambda1 over the exact one.
  const struct {
    int from, to;
    double dtau, chord;
  } cases[] = {{115, 145, 30, 3.9603},
               {115, 180, 65, 14.376},
               {165, 195, 30, 3.9824},
               {115, 116, 1, 1.0033}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.from) + " -> " + std::to_string(c.to));
    const QcState fin = hooh(c.from), ini = hooh(c.to);
    const double exact = 0.5 * kTau * std::pow(c.dtau * kDeg, 2);
    ModelOptions o;
    o.coordinates = Coordinates::internal;
    ModelReport rep;
    const PrepareResult r = prepare_model(fin, ini, nullptr, o, rep);
    ASSERT_TRUE(rep.internal_ok) << rep.internal_why;
    EXPECT_NEAR(r.lambda1 / exact, 1.0, 1e-8);
    EXPECT_NEAR(r.lambda2 / exact, 1.0, 1e-8);
    EXPECT_NEAR(rep.lambda_cart[0] / exact, c.chord, 1e-4 * c.chord);
    EXPECT_LT(testing::orthogonality_defect(r.s), 1e-12);  // the written S stays orthogonal

    // With F diagonal, A^-1 = W^-2 A^T F, so D_k = k_tau dtau A_tau,k / w_k^2 and each mode's
    // Huang-Rhys factor is (k_tau dtau A_tau,k)^2 / (2 w_k^3) (the O-H stretches' next to 0).
    int tau = 0;
    for (std::size_t i = 0; i < rep.set.prims.size(); ++i)
      if (rep.set.prims[i].kind == PrimitiveKind::dihedral) tau = static_cast<int>(i) + 1;
    const std::vector<double> at = along_modes(r, rep.set, tau);
    for (int k = 7; k <= r.n3; ++k) {
      const double w = r.modes1.omega[k - 1], hr = 0.5 * w * r.d1[k - 1] * r.d1[k - 1];
      const double ref = std::pow(kTau * c.dtau * kDeg * at[k - 1], 2) / (2 * w * w * w);
      EXPECT_NEAR(hr, ref, 1e-8 * ref + 1e-20) << "mode " << k;
    }
  }
}

TEST(HoohToy, RigidMotionsAndThePrimitivesOrderChangeNothing) {
  const QcState fin = hooh(115), ini = hooh(180);
  ModelOptions o;
  o.coordinates = Coordinates::internal;
  ModelReport rep;
  const PrepareResult ref = prepare_model(fin, ini, nullptr, o, rep);
  const double shift[3] = {3.0, -7.0, 11.0}, back[3] = {-1.0, 2.0, 0.5};
  const std::pair<QcState, QcState> pairs[] = {
      {fin, moved(ini, rotation(0.3, -1.0, 0.7, 170.0), shift)},
      {moved(fin, rotation(1.0, 2.0, 3.0, 77.0), back), ini}};
  // A turned FINAL may flip the sign chosen for a mode (its largest component is another
  // coordinate): magnitudes compared, and S's vibrational block only (the translations' block
  // follows the Cartesian axes).
  auto mag = [](std::vector<double> v) {
    for (double& e : v) e = std::fabs(e);
    return v;
  };
  for (const auto& [a, b] : pairs) {
    ModelReport rep2;
    const PrepareResult r = prepare_model(a, b, nullptr, o, rep2);
    EXPECT_LT(max_diff(mag(r.d1), mag(ref.d1)), 1e-10);
    EXPECT_LT(max_diff(mag(r.d2), mag(ref.d2)), 1e-10);
    for (int i = 7; i <= r.n3; ++i)
      for (int j = 7; j <= r.n3; ++j)
        EXPECT_NEAR(std::fabs(r.s(i, j)), std::fabs(ref.s(i, j)), 1e-10) << i << "," << j;
    EXPECT_NEAR(r.lambda1, ref.lambda1, 1e-12 * ref.lambda1);
  }
  // The primitives in reverse order, each dihedral's atoms reversed (the same angle), and the
  // bonds' atoms swapped.
  const PrepareResult cart = prepare_pair(fin, ini, nullptr);
  InternalSet set = rep.set;
  std::reverse(set.prims.begin(), set.prims.end());
  for (Primitive& p : set.prims)
    if (p.kind == PrimitiveKind::dihedral)
      p = {p.kind, p.d, p.c, p.b, p.a, {0, 0, 0}};
    else if (p.kind == PrimitiveKind::bond)
      std::swap(p.a, p.b);
  const Curvilinear c = curvilinear(cart, set);
  EXPECT_LT(max_diff(c.d1, ref.d1), 1e-10);
  EXPECT_LT(max_diff(c.d2, ref.d2), 1e-10);
  EXPECT_NEAR(c.lambda1, ref.lambda1, 1e-12 * ref.lambda1);
  // The primitives' shares add up to the difference the summary explains.
  double shares = 0.0;
  for (double e : c.energy) shares += e;
  EXPECT_NEAR(shares, cart.lambda1 - c.lambda1, 1e-10 * cart.lambda1);
}

TEST(Internals, WilsonBIsTheDerivativeOfEveryKind) {
  // H-C#C-CHO bent a little: bonds, angles, two straight chains (linear bends), an out-of-plane
  // carbon; then H-O-O-H for the dihedral.
  std::vector<int> z = {1, 6, 6, 6, 8, 1};
  std::vector<double> x = {-4.3, 0, 0, -2.3, 0, 0, 0, 0, 0, 2.7, 0, 0, 3.9, 2.0, 0, 3.9, -1.8, 0};
  std::mt19937 gen(7);
  std::uniform_real_distribution<double> jitter(-0.02, 0.02);
  for (double& v : x) v += jitter(gen);
  InternalSet set = find_internals(z, x, x);
  EXPECT_EQ(set.linear_bends, 4);
  EXPECT_EQ(set.out_of_plane, 1);
  const QcState h = hooh(145);
  const InternalSet hs = find_internals(h.atomic_number, h.x, h.x);
  EXPECT_EQ(hs.dihedrals, 1);
  auto check = [](const std::vector<int>& zz, const std::vector<double>& xx,
                  const InternalSet& ss) {
    const Matrix<double> b = wilson_b(ss, xx);
    for (std::size_t k = 0; k < ss.prims.size(); ++k)
      for (std::size_t i = 0; i < xx.size(); ++i) {
        std::vector<double> up = xx, down = xx;
        up[i] += 1e-5;
        down[i] -= 1e-5;
        const double fd =
            (primitive_value(ss.prims[k], up) - primitive_value(ss.prims[k], down)) / 2e-5;
        EXPECT_NEAR(b(static_cast<int>(k) + 1, static_cast<int>(i) + 1), fd, 1e-8)
            << primitive_label(ss.prims[k], zz) << " coordinate " << i;
      }
  };
  check(z, x, set);
  check(h.atomic_number, h.x, hs);
  // An H atom 6 bohr from the rest is joined to its closest atom (bond, angles, dihedrals); at 15
  // bohr it is not.
  std::vector<double> far = h.x;
  far[11] += 3.5;
  const InternalSet joined = find_internals(h.atomic_number, far, far);
  EXPECT_EQ(joined.joins, 1);
  EXPECT_EQ(joined.bonds, 3);
  check(h.atomic_number, far, joined);
  far[11] += 11.5;
  EXPECT_THROW(find_internals(h.atomic_number, far, far), InternalsUnavailable);
}

// CH3-C#C-CH3 with its second methyl turned by `deg` about the axis, bohr.
std::vector<double> butyne(double deg) {
  std::vector<double> x = {-3.905, 0, 0, -1.145, 0, 0, 1.145, 0, 0, 3.905, 0, 0};
  for (int end = 0; end < 2; ++end)
    for (int k = 0; k < 3; ++k) {
      const double phi = (120.0 * k + (end ? 60.0 + deg : 0.0)) * kDeg;
      x.insert(x.end(), {end ? 4.59 : -4.59, 1.94 * std::cos(phi), 1.94 * std::sin(phi)});
    }
  return x;
}

TEST(Internals, TorsionAboutAStraightChainIsExact) {
  // Each state the minimum of V = 1/2 sum_i k_i (s_i - s_i0)^2 over the primitives found, so that
  // its Hessian is B^T K B there; the states differ by 40 degrees in the nine dihedrals H-C1-C4-H
  // about the straight C1-C2-C3-C4, and lambda1 = 1/2 9 k_d (40 degrees)^2.
  const std::vector<int> z = {6, 6, 6, 6, 1, 1, 1, 1, 1, 1};
  QcState s[2];
  const InternalSet set = find_internals(z, butyne(0), butyne(40));
  EXPECT_EQ(set.linear_bends, 4);
  ASSERT_EQ(set.dihedrals, 9);
  for (int k = 0; k < 2; ++k) {
    s[k].file = "butyne";
    s[k].atomic_number = z;
    s[k].mass = {12, 12, 12, 12, 1, 1, 1, 1, 1, 1};
    s[k].x = butyne(40.0 * k);
    const Matrix<double> b = wilson_b(set, s[k].x);
    s[k].hessian = Matrix<double>(30, 30);
    for (int p = 1; p <= b.rows; ++p) {
      const PrimitiveKind kind = set.prims[p - 1].kind;
      const double f = kind == PrimitiveKind::bond       ? 0.5
                       : kind == PrimitiveKind::dihedral ? 0.002
                                                         : 0.1;
      for (int j = 1; j <= 30; ++j)
        for (int i = 1; i <= 30; ++i) s[k].hessian(i, j) += f * b(p, i) * b(p, j);
    }
  }
  ModelOptions o;
  o.coordinates = Coordinates::internal;
  ModelReport rep;
  const PrepareResult r = prepare_model(s[0], s[1], nullptr, o, rep);
  const double exact = 0.5 * 9 * 0.002 * std::pow(40 * kDeg, 2);
  EXPECT_NEAR(r.lambda1 / exact, 1.0, 1e-8);
  EXPECT_GT(rep.lambda_cart[0] / exact, 1.5);
}

// FINAL's Hessian with its minimum moved along FINAL's modes by `steps` (mode, amount): the moved
// state, and FINAL with the moved state's gradient at FINAL's geometry, H (x1 - x2).
std::pair<QcState, QcState> displaced(const QcState& s0,
                                      const std::vector<std::pair<int, double>>& steps) {
  const PrepareResult r0 = prepare_pair(s0, s0, nullptr);
  QcState shifted = s0, grad = s0;
  for (const auto& [k, amount] : steps)
    for (int i = 0; i < r0.n3; ++i)
      shifted.x[i] += amount * r0.modes1.l(i + 1, k) / std::sqrt(r0.mass[i / 3]);
  grad.gradient.assign(r0.n3, 0.0);
  for (int i = 1; i <= r0.n3; ++i)
    for (int j = 1; j <= r0.n3; ++j)
      grad.gradient[i - 1] += s0.hessian(i, j) * (s0.x[j - 1] - shifted.x[j - 1]);
  return {shifted, grad};
}

TEST(Models, VerticalModelsOnADisplacedOnlyPairEqualTheAdiabaticOne) {
  // State 2: the same Hessian, its minimum moved along modes 10 and 20 (D1 exactly minus the
  // steps); its gradient at the final geometry given in a turned and shifted frame.
  const QcState s0 = read_qc_state(qc_file("coumarin/coumarin_s0.fchk"));
  auto [shifted, grad] = displaced(s0, {{10, 4.0}, {20, -2.5}});
  const PrepareResult ah = prepare_pair(s0, shifted, nullptr);
  std::vector<double> hot(ah.n3, 0.0);
  hot[9] = -4.0, hot[19] = 2.5;
  EXPECT_LT(max_diff(ah.d1, hot), 1e-9);
  EXPECT_NEAR(ah.rotation_deg, 0.0, 1e-9);
  const double shift[3] = {1.0, 2.0, -3.0};
  grad = moved(grad, rotation(2, -1, 1, 40.0), shift);
  grad.hessian = Matrix<double>();  // a single point with forces

  ModelOptions vg;
  vg.model = Model::vg;
  ModelReport rep;
  const PrepareResult g = prepare_model(s0, grad, nullptr, vg, rep);
  EXPECT_LT(max_diff(g.d1, ah.d1), 1e-8);
  EXPECT_LT(max_diff(g.d2, ah.d1), 1e-8);
  EXPECT_NEAR(g.lambda1 / ah.lambda1, 1.0, 1e-9);
  EXPECT_NEAR(rep.ead_shift, -ah.lambda1, 1e-9 * ah.lambda1);
  EXPECT_EQ(g.modes2.omega, g.modes1.omega);
  for (int i = 1; i <= g.n3; ++i) EXPECT_EQ(g.s(i, i), 1.0);

  // VH with state 1's Hessian at the same point is VG.
  QcState vh_state = moved(s0, rotation(2, -1, 1, 40.0), shift);
  vh_state.gradient = grad.gradient;
  ModelOptions vh = vg;
  vh.model = Model::vh;
  const PrepareResult h = prepare_model(s0, vh_state, nullptr, vh, rep);
  EXPECT_LT(max_diff(h.d2, ah.d1), 1e-8);
  EXPECT_NEAR(h.lambda2 / ah.lambda1, 1.0, 1e-9);

  // Leaving out the modes below 300 cm-1 removes mode 10's part (295.75 cm-1) only.
  vg.drop_below = 300.0 / au2cm;
  const PrepareResult d = prepare_model(s0, grad, nullptr, vg, rep);
  const double w10 = d.modes1.omega[9];
  EXPECT_EQ(rep.dropped, 4);
  EXPECT_NEAR(rep.dropped_lambda1, 0.5 * w10 * w10 * 16.0, 1e-8 * rep.dropped_lambda1);
  EXPECT_NEAR(d.lambda1, g.lambda1 - rep.dropped_lambda1, 1e-9 * g.lambda1);
  EXPECT_EQ(d.d1[9], 0.0);
  EXPECT_NEAR(d.d1[19], g.d1[19], 1e-12);
  EXPECT_NEAR(d.lambda2 / d.lambda1, 1.0, 1e-9);  // S = 1: state 2 loses the same part
}

// An ORCA gradient file of a state's gradient, energy and geometry.
std::string engrad(const QcState& s, double energy) {
  std::string t = printed(
      "#\n# Number of atoms\n#\n %d\n#\n# The current total energy in Eh\n#\n"
      "  %.12f\n#\n# The current gradient in Eh/bohr\n#\n",
      s.natoms(), energy);
  for (double g : s.gradient) t += printed("  %20.12e\n", g);
  t += "#\n# The atomic numbers and current coordinates in Bohr\n#\n";
  for (int a = 0; a < s.natoms(); ++a)
    t += printed("  %3d %16.10f %16.10f %16.10f\n", s.atomic_number[a], s.x[3 * a], s.x[3 * a + 1],
                 s.x[3 * a + 2]);
  return t;
}

std::string word_after(const std::string& text, const std::string& label) {
  const std::size_t at = text.find(label);
  return at == std::string::npos ? "" : text.substr(at + label.size(), 12);
}

TEST(PrepareModels, CommandLineSummariesAndBadInput) {
  testing::ScratchDir dir;
  const std::string h115 = qc_file("hooh/hooh_115.hess"), h180 = qc_file("hooh/hooh_180.hess");
  testing::write_file("nac.txt", "0 0 0.1\n0 0 -0.1\n0 0.1 0\n0 -0.1 0\n");
  const std::string nac = " --nac nac.txt --nac-geometry final";
  const auto in =
      testing::run_exe("prepare " + h115 + " " + h180 + nac + " --coordinates internal");
  ASSERT_EQ(in.status, 0) << in.err;
  EXPECT_NE(in.out.find("reorganisation energy, state 1: 635.54791 cm-1"), std::string::npos);
  EXPECT_NE(in.out.find("state 1: 635.55 cm-1 internal, 9136.74 cm-1 cartesian"),
            std::string::npos);
  EXPECT_NE(in.err.find("reorganisation energies 1338 % apart"), std::string::npos) << in.err;
  // The O-H bonds turn by 32 degrees: the Cartesian S mixes their stretch by about sin 32 deg.
  EXPECT_NE(in.err.find("Duschinsky matrices differ by up to 0.533 (state-2 mode 6 (3786.58 "
                        "cm-1), state-1 mode 1 (281.28 cm-1)): bonds turn by up to 32.0 degrees"),
            std::string::npos)
      << in.err;

  // The vertical gradient model from an ORCA gradient file equals the adiabatic model of the
  // displaced-only pair; its ead is the vertical energy less the relaxation energy.
  const std::string s0f = qc_file("coumarin/coumarin_s0.fchk");
  const std::string s1f = qc_file("coumarin/coumarin_s1.fchk");
  const QcState s0 = read_qc_state(s0f);
  const auto [shifted, grad] = displaced(s0, {{12, 3.0}});
  const double lambda = 0.5 * std::pow(3.0 * prepare_pair(s0, s0, nullptr).modes1.omega[11], 2);
  testing::write_file("shifted.hess", testing::orca_hess(shifted, true, s0.energy + 0.1));
  testing::write_file("grad.engrad", engrad(grad, s0.energy + 0.1 + lambda));
  const auto ah = testing::run_exe("prepare " + s0f + " shifted.hess --nac " + s1f + " --out ah");
  const auto vg =
      testing::run_exe("prepare " + s0f + " grad.engrad --model vg --nac " + s1f + " --out vg");
  ASSERT_EQ(vg.status, 0) << vg.err;
  const std::string label = "reorganisation energy, state 1: ";
  EXPECT_NEAR(std::stod(word_after(vg.out, label)) / std::stod(word_after(ah.out, label)), 1.0,
              1e-8);
  EXPECT_EQ(word_after(vg.out, "ead: "), word_after(ah.out, "ead: "));
  EXPECT_NEAR(std::stod(word_after(vg.out, "relaxation energy on the initial state ")),
              lambda * au2cm, 0.006);
  // The vertical Hessian model from ORCA files: INITIAL's .hess at FINAL's geometry (here the
  // same Hessian) and its .engrad.
  testing::write_file("vertical.hess", testing::orca_hess(s0, true, s0.energy + 0.1 + lambda));
  const auto vh = testing::run_exe("prepare " + s0f + " vertical.hess --model vh --gradient " +
                                   "grad.engrad --nac " + s1f + " --out vh");
  ASSERT_EQ(vh.status, 0) << vh.err;
  EXPECT_NE(vh.out.find("and gradient (from grad.engrad) at FINAL's geometry"), std::string::npos);
  EXPECT_NEAR(std::stod(word_after(vh.out, label)) / std::stod(word_after(ah.out, label)), 1.0,
              1e-8);
  EXPECT_EQ(word_after(vh.out, "ead: "), word_after(ah.out, "ead: "));

  // Without --coordinates internal a geometry in pieces (in both files: a bond at either geometry
  // counts) still gives the Cartesian files.
  QcState apart = read_qc_state(h115);
  apart.x[11] += 15.0;
  testing::write_file("apart.hess", testing::orca_hess(apart, true, -150.9));
  const auto pieces =
      testing::run_exe("prepare apart.hess apart.hess --ead 1 eV" + nac + " --out pieces");
  EXPECT_EQ(pieces.status, 0);
  EXPECT_NE(pieces.out.find("internal coordinates unavailable: expected one molecule"),
            std::string::npos);

  QcState other = hooh(115);
  other.gradient.assign(12, 0.01);
  testing::write_file("hooh.engrad", engrad(other, -1.0));
  QcState elsewhere = read_qc_state(s1f);
  elsewhere.gradient.assign(51, 0.01);
  testing::write_file("elsewhere.engrad", engrad(elsewhere, -1.0));
  const std::pair<std::string, std::string> cases[] = {
      {s0f + " hooh.engrad --model vg --nac " + s1f, "expected the same 17 atoms"},
      {s0f + " shifted.hess --model vg --nac " + s1f, "shifted.hess: expected the initial state's"},
      {s0f + " " + s1f + " --model vg", "coumarin_s1.fchk: expected the gradient at the geometry"},
      {s0f + " vertical.hess --model vh --gradient elsewhere.engrad --nac " + s1f,
       "elsewhere.engrad: expected the gradient at the geometry of vertical.hess"},
      {s0f + " nac.txt --model vg", "nac.txt: expected an ORCA gradient file (.engrad)"},
      {h115 + " " + h180 + " --model vh" + nac,
       "expected the initial state's gradient at the final geometry"},
      {"apart.hess apart.hess --ead 1 eV --coordinates internal" + nac,
       "apart.hess: expected one molecule"},
  };
  for (const auto& [args, expected] : cases) {
    const auto r = testing::run_exe("prepare --out bad " + args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_FALSE(testing::exists("bad")) << args;
  }
  const auto usage =
      testing::run_exe("prepare " + h115 + " " + h180 + " --model vg --coordinates internal");
  EXPECT_EQ(usage.status, 2);
  EXPECT_NE(usage.err.find("expected --coordinates cartesian with --model vh or vg"),
            std::string::npos);
}

}  // namespace
}  // namespace ictvcf
