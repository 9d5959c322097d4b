#include "coupling/dipole.h"

#include <cmath>
#include <sstream>

#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

bool number(const std::string& text, double& x) {
  std::size_t used = 0;
  try {
    x = std::stod(text, &used);
  } catch (const std::exception&) {
    return false;
  }
  return used == text.size() && std::isfinite(x);
}

bool integer(const std::string& text, int& k) {
  std::size_t used = 0;
  try {
    k = std::stoi(text, &used);
  } catch (const std::exception&) {
    return false;
  }
  return used == text.size();
}

}  // namespace

DipoleFile read_dipole_file(TextFile& f) {
  DipoleFile out;
  bool have_zero = false;
  std::vector<long> lines;
  std::string line;
  while (read_record(f, line)) {
    const std::vector<std::string> w = words(line);
    if (w.empty() || w[0][0] == '#') continue;
    const long at = f.line_of_last();
    int k = 0;
    std::array<double, 3> x{};
    const bool unit_word = !have_zero && w.size() == 5;
    if (w.size() != 4 && !unit_word)
      throw IoError(f.name, at,
                    have_zero
                        ? "expected a mode number and three numbers 'k mx my mz' (d mu/d Q, au)"
                        : "expected the transition dipole '0 mux muy muz [au|debye]'");
    if (!integer(w[0], k) || !number(w[1], x[0]) || !number(w[2], x[1]) || !number(w[3], x[2]))
      throw IoError(
          f.name, at,
          "expected an integer and three finite numbers, found '" + std::string(rtrim(line)) + "'");
    if (!have_zero) {
      if (k != 0)
        throw IoError(
            f.name, at,
            "expected the transition dipole first, on a line '0 mux muy muz [au|debye]'; found "
            "mode " +
                std::to_string(k));
      if (unit_word) {
        const std::string unit = lower_ascii(w[4]);
        if (unit == "debye")
          out.debye = true;
        else if (unit != "au")
          throw IoError(f.name, at,
                        "expected the unit 'au' or 'debye' after the dipole, found '" + w[4] + "'");
      }
      out.mu0 = x;
      have_zero = true;
      continue;
    }
    if (k < 1) throw IoError(f.name, at, "expected a mode number of 1 or more, found " + w[0]);
    for (std::size_t i = 0; i < out.modes.size(); ++i)
      if (out.modes[i] == k)
        throw IoError(f.name, at,
                      "expected each mode once; mode " + w[0] + " is listed on line " +
                          std::to_string(lines[i]) + " already");
    out.modes.push_back(k);
    out.derivatives.push_back(x);
    lines.push_back(at);
  }
  if (!have_zero)
    throw IoError(f.name, f.line_of_last(),
                  "expected the transition dipole '0 mux muy muz [au|debye]'");
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
    int store = 0;
    for (int j = 1; j <= n; ++j)
      if (v.order(j, 1) == file.modes[i]) store = j;
    if (store == 0)
      throw IoError(
          name, 0,
          printed("expected mode numbers of the vibrations, %d to %d (the coupling file's "
                  "numbering); mode %d is not one",
                  n3all ? 1 : 7, n3all ? n : n + 6, file.modes[i]));
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
