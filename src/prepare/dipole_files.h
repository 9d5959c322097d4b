// Readers of transition dipoles for `ictvcf prepare`, and the text of `dipole.dat`:
//  - a Gaussian formatted checkpoint of a TD job: `ETran scalars` (the number of excited states
//    and the count of values per state, 16) and `ETran state values`, per state its total energy
//    and then the electric transition dipole x, y, z (au, at the job's geometry); a TD `Freq` job
//    appends, after the states, the derivatives of the target root's values with respect to each
//    Cartesian coordinate (one group of the same count per coordinate, in the order of the
//    coordinates);
//  - an ORCA output's table `ABSORPTION SPECTRUM VIA TRANSITION ELECTRIC DIPOLE MOMENTS` (the last
//    one in the file), whose last three columns are the dipole (au; headed DX DY DZ or TX TY TZ).
// Values as the file gives them, in the file's frame; nothing is rotated or projected here.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "util/matrix.h"
#include "util/text_file.h"

namespace ictvcf {

struct QcDipole {
  std::string file;
  std::string source;           // where in the file, in words (for the summary)
  int root = 1;                 // the excited state, from 1
  int roots = 0;                // how many the file holds
  std::array<double, 3> mu0{};  // au
  bool has_energy = false;
  double energy = 0.0;         // the root's total energy (fchk), hartree
  std::vector<double> dmu_dx;  // d mu_c / d x_i at [3 i + c] (3N x 3), au/bohr; may be empty
  std::vector<double> x;       // the geometry (fchk), 3N bohr; empty when the file has none
};

// The root's dipole from a formatted checkpoint or an ORCA output (told apart by content).
// Throws IoError (file, line, what was expected) when the file holds none or fewer roots.
QcDipole read_transition_dipole(const std::string& name, int root);
QcDipole parse_fchk_dipole(const TextFile& f, int root);
QcDipole parse_orca_dipole(const TextFile& f, int root);

// The derivatives along the final state's mass-weighted normal coordinates, m_kc = sum_i
// L1(i, k) dmu_dx[3 i + c] / sqrt(mass_i) (mass in electron masses, per Cartesian coordinate i;
// L1's columns the modes, 3N x nmodes), for dmu_dx already in the final state's frame.
std::vector<std::array<double, 3>> dipole_along_modes(const std::vector<double>& dmu_dx,
                                                      const std::vector<double>& mass,
                                                      const Matrix<double>& l1);

// `dipole.dat`: a comment naming the source, the `0` line, and one line per mode with a nonzero
// derivative: modes[i] (the coupling file's numbering) and m[i] (au per sqrt(me) bohr).
std::string dipole_text(const std::string& comment, const std::array<double, 3>& mu0,
                        const std::vector<int>& modes, const std::vector<std::array<double, 3>>& m);

}  // namespace ictvcf
