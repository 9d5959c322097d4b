// Units of the program: every quantity inside is in atomic units (hartree for energies and
// angular frequencies, atomic units of time), temperature in kelvin. Each factor is the value in
// the named unit per atomic unit.
#pragma once

namespace ictvcf {

inline constexpr double au2fs = 0.024188843265;
inline constexpr double au2ps = 2.4188843265e-05;
inline constexpr double au2ev = 27.21139617;
inline constexpr double au2cm = 219474.6307;
inline constexpr double au2db = 2.541580252938;
inline constexpr double bohr_in_angstrom = 0.529177210903;
inline constexpr double kelvin_per_hartree = 315774.98;
inline constexpr double sqrt_amu = 42.69529868732622;  // sqrt(1822.88853), amu in electron masses
// The atomic mass unit in electron masses (CODATA 2018), for masses read from quantum chemistry.
inline constexpr double amu_in_me = 1822.888486209;

// Rates: k in s-1 = k in atomic units * au_per_second.
inline constexpr double au_per_second = 1.0 / 2.4188843265e-17;

}  // namespace ictvcf
