#include "coupling/dipole.h"

#include <cmath>

#include "coupling/mode_table.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

DipoleFile read_dipole_file(TextFile& f) {
  const ModeTableWords say{"the transition dipole '0 mux muy muz [au|debye]'",
                           "the transition dipole '0 mux muy muz [au|debye]'",
                           "the transition dipole first, on a line '0 mux muy muz [au|debye]'",
                           "a mode number and three numbers 'k mx my mz' (d mu/d Q, au)",
                           "three finite numbers"};
  const ModeTable<double> t = read_mode_table<double>(f, say, finite_number);
  DipoleFile out;
  out.mu0 = t.zero;
  out.modes = t.modes;
  out.derivatives = t.rows;
  const std::string unit = lower_ascii(t.unit);
  if (unit == "debye")
    out.debye = true;
  else if (!unit.empty() && unit != "au")
    throw IoError(f.name, t.unit_line,
                  "expected the unit 'au' or 'debye' after the dipole, found '" + t.unit + "'");
  if (out.debye) {
    for (double& x : out.mu0) x /= au2db;
    for (auto& m : out.derivatives)
      for (double& x : m) x /= au2db;
  }
  return out;
}

std::vector<double> dipole_derivatives(const DipoleFile& file, const std::string& name,
                                       const DushinData& v, bool n3all) {
  const int n = v.nmode;
  std::vector<double> dmu(3 * static_cast<std::size_t>(n), 0.0);
  bool nonzero = file.mu0[0] != 0.0 || file.mu0[1] != 0.0 || file.mu0[2] != 0.0;
  for (std::size_t i = 0; i < file.modes.size(); ++i) {
    const int store = store_mode(v, file.modes[i], name, n3all);
    for (int c = 0; c < 3; ++c) {
      dmu[static_cast<std::size_t>(c) * n + store - 1] = file.derivatives[i][c];
      nonzero = nonzero || file.derivatives[i][c] != 0.0;
    }
  }
  if (!nonzero)
    throw IoError(name, 0,
                  "expected a transition dipole that is not zero: this one emits no light");
  return dmu;
}

}  // namespace ictvcf
