// The transition dipole file (`dipole.dat`): the electronic transition dipole between the two
// states at the final state's minimum and, optionally, its derivatives along the final state's
// mass-weighted normal coordinates (Herzberg-Teller), in atomic units.
//
//   # comment lines (and blank lines) anywhere
//   0  mux muy muz [unit]      the dipole itself; unit `au` (the default) or `debye`
//   k  mx  my  mz              d mu / d Q1k for mode k, in the coupling file's numbering
//
// The unit word on the `0` line applies to every number of the file (derivatives in debye per
// atomic unit of the coordinate). Modes not listed have no derivative.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "util/text_file.h"
#include "vibronic/dushindata.h"

namespace ictvcf {

struct DipoleFile {
  std::array<double, 3> mu0{};                     // atomic units
  std::vector<int> modes;                          // the modes listed, in the file's numbering
  std::vector<std::array<double, 3>> derivatives;  // per listed mode, atomic units
  bool debye = false;                              // the file was in debye
};

// Reads the file. Throws IoError (file, line, what was expected) for a missing `0` line, a line
// that is not an integer and three finite numbers, a mode listed twice, an unknown unit word.
DipoleFile read_dipole_file(TextFile& f);

// The derivatives in the store's mode order, m_kc at [c * nmode + k]: each store mode takes the
// values listed at its state-1 number (counting the six translations and rotations unless
// `n3all`). Throws IoError for a listed mode that is not one of the store's, and for a dipole
// that is zero altogether.
std::vector<double> dipole_derivatives(const DipoleFile& file, const std::string& name,
                                       const DushinData& v, bool n3all);

}  // namespace ictvcf
