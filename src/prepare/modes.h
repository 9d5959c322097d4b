// The numerical side of `ictvcf prepare`: two states' Cartesian Hessians turned into normal modes
// in one frame, the Duschinsky relation Q2 = S Q1 + D2 between the final state's (1) and the
// initial state's (2) mass-weighted normal coordinates, and the non-adiabatic coupling along the
// final state's modes, with the numbers that say how far each can be trusted. No files, no output.
#pragma once

#include <string>
#include <vector>

#include "prepare/qc_files.h"
#include "util/matrix.h"

namespace ictvcf {

// Normal modes of one state: mass-weighted, orthonormal over all 3N coordinates.
struct NormalModes {
  // Columns 1-6: translations and rotations at the state's geometry (orthonormalised); then the
  // vibrations by rising frequency, each signed so that the first of its largest components is
  // positive.
  Matrix<double> l;
  // 3N values, hartree: for the first six the signed root of the Hessian along them (zero for an
  // invariant Hessian at a stationary point), then the vibrational frequencies, an imaginary one
  // written negative.
  std::vector<double> omega;
};

// op(a) op(b) and op(a) v, op the transpose where the flag is set (BLAS).
Matrix<double> mul(const Matrix<double>& a, bool ta, const Matrix<double>& b, bool tb);
std::vector<double> mul(const Matrix<double>& a, bool ta, const std::vector<double>& v);

// x (3N, atom by atom) less its centre of mass, for masses m (one per atom).
std::vector<double> centred(const std::vector<double>& m, const std::vector<double>& x);

// The inertia tensor sum_i m_i (|x_i|^2 1 - x_i x_i^T) of a centred geometry (3 x 3).
Matrix<double> inertia_tensor(const std::vector<double>& m, const std::vector<double>& x);

// Mass-weighted best proper rotation R of b onto a, both centred on their centres of mass (3N
// coordinates each): minimises sum_i m_i |a_i - R b_i|^2. At the optimum the Eckart condition
// sum_i m_i a_i x (R b_i) = 0 holds.
Matrix<double> best_rotation(const std::vector<double>& m, const std::vector<double>& a,
                             const std::vector<double>& b);

// Smallest over largest principal moment of inertia (0 for a linear molecule or a single atom).
double inertia_ratio(const std::vector<double>& m, const std::vector<double>& x);

// The six orthonormal mass-weighted vectors of translation and rotation at the centred geometry
// x (3N x 6; the rotations orthonormalised symmetrically). The molecule must not be linear.
Matrix<double> external_basis(const std::vector<double>& m, const std::vector<double>& x);

// The root-mean-square distance between the atoms of two 3N geometries (bohr), not aligned.
double rms_distance(const std::vector<double>& a, const std::vector<double>& b);

// "mode 3 (248.85 cm-1)" for column k (1-based, 7 .. 3N) of the modes: the run numbers the
// vibrations alone, 1 .. 3N-6 (its `mode =`, its log, `rate --modes`), while the 3N-long
// quantities here have the translations and rotations first.
std::string mode_name(int k, const NormalModes& modes);

// Masses in electron masses, x centred (bohr), h the Cartesian Hessian (hartree/bohr^2).
NormalModes normal_modes(const std::vector<double>& m, const std::vector<double>& x,
                         const Matrix<double>& h);

// The orthogonal factor Q of the polar decomposition A = Q P of a square matrix (its nearest
// orthogonal matrix), with A's smallest singular value and the largest |Q - A| element.
struct Polar {
  Matrix<double> q;
  double min_singular = 0.0;
  double max_change = 0.0;
};
Polar nearest_orthogonal(const Matrix<double>& a);

// Everything `ictvcf prepare` writes and reports. Indices 1-6 of the 3N-long quantities are the
// translations and rotations, 7..3N the vibrations (the run's mode numbering).
struct PrepareResult {
  int natoms = 0, n3 = 0, nvib = 0;
  std::vector<double> mass;    // electron masses (the final state's file's)
  std::vector<double> x1, x2;  // centred geometries in the final state's frame, bohr
  Matrix<double> rotation;     // applied to the initial state's file (3 x 3)
  double rotation_deg = 0.0;
  double rms_change = 0.0;       // root-mean-square atom displacement |x1 - x2|, bohr
  double max_mass_change = 0.0;  // largest relative difference of the two files' masses
  NormalModes modes1, modes2;
  Matrix<double> s_raw;  // L2^T L1
  // Written: the external and vibrational blocks of s_raw each replaced by their nearest
  // orthogonal matrix, the blocks between them dropped; orthogonal over 3N.
  Matrix<double> s;
  std::vector<double> d1, d2;           // L1^T M^1/2 (x1 - x2), L2^T M^1/2 (x1 - x2); sqrt(me) bohr
  double lambda1 = 0.0, lambda2 = 0.0;  // sum over vibrations of w^2 D^2 / 2, hartree
  double lambda1_cart = 0.0, lambda2_cart = 0.0;  // (x1 - x2)^T H (x1 - x2) / 2 per state
  double hr1 = 0.0, hr2 = 0.0;                    // total Huang-Rhys factors, |w| D^2 / 2
  double min_singular = 1.0;  // smallest singular value of the vibrational block of s_raw
  double max_change = 0.0;    // largest element change when it is made orthogonal
  double leak = 0.0;          // largest weight of a final-state vibration in the external rows
  int leak_mode = 0;
  double leak_mean = 0.0;  // the same weight averaged over the vibrations
  struct StateChecks {
    double omega_dev = -1.0;  // largest |w - file's w|, cm-1; -1: not compared
    double grad_max = 0.0;    // largest gradient component, hartree/bohr (0: none in the file)
    int grad_atom = 0;
    double shift = 0.0;  // largest |g_k| / w_k^2: how far the minimum lies from the geometry
    int shift_mode = 0;
  } state[2];
  // Coupling along the final state's modes (3N, atomic units), empty without a coupling.
  std::vector<double> rif;
  double nac_external = 0.0;  // fraction of |M^-1/2 d|^2 in translations and rotations
  double nac_sum = 0.0;       // |sum_i d_i| / sum_i |d_i|
  double nac_to_final = 0.0, nac_to_initial = 0.0;  // rms distance of its geometry, bohr
};

// The two files describe the same non-linear molecule, atoms in the same order (an IoError
// naming the file otherwise).
void check_pair(const QcState& final_state, const QcState& initial_state);

// Steps in order: check_pair, one mass set, the initial state aligned onto
// the final one, the normal modes of each, S and D, the coupling (nac may be null).
PrepareResult prepare_pair(const QcState& final_state, const QcState& initial_state,
                           const NacInput* nac);

}  // namespace ictvcf
