// The spin-orbit coupling between a triplet and a singlet as an ORCA output prints it (a TDDFT job
// with spin-orbit coupling): the table headed CALCULATED SOCME BETWEEN TRIPLETS AND SINGLETS,
// one row per pair of roots, 'T S (Re, Im) (Re, Im) (Re, Im)', the Cartesian components Z, X, Y
// of <T|H_SO|S> in cm-1 (S = 0 the ground state). The last such table in the file counts.
#pragma once

#include <array>
#include <complex>
#include <string>

#include "util/text_file.h"

namespace ictvcf {

struct SocValues {
  std::string file;
  int triplet = 1, singlet = 0;
  std::array<std::complex<double>, 3> zxy{};  // cm-1, as printed
  // The sublevels M = 0, +1, -1: V_0 = V_z, V_+1 = -(V_x + i V_y)/sqrt 2, V_-1 = (V_x - i V_y)/
  // sqrt 2 (the spherical components; the sum of |V_M|^2 is that of the Cartesian ones).
  std::array<std::complex<double>, 3> sublevels() const;
};

// Throws IoError (file, line, what was expected) without the table or the pair of roots.
SocValues read_soc_table(const std::string& name, int triplet, int singlet);
SocValues parse_orca_soc(const TextFile& f, int triplet, int singlet);

}  // namespace ictvcf
