#include "coupling/soc.h"

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "coupling/mode_table.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

// "re" or "re:im", both finite.
bool complex_number(const std::string& text, std::complex<double>& z) {
  const std::size_t colon = text.find(':');
  double re = 0.0, im = 0.0;
  const bool ok = colon == std::string::npos ? finite_number(text, re)
                                             : finite_number(text.substr(0, colon), re) &&
                                                   finite_number(text.substr(colon + 1), im);
  z = {re, im};
  return ok;
}

}  // namespace

SocValues parse_soc_values(const std::string& values, const std::string& unit) {
  const std::string what = "ictvcf rate: --soc " + values + " " + unit + ": ";
  double scale = 0.0;
  if (unit == "cm-1")
    scale = 1.0 / au2cm;
  else if (unit == "eV" || unit == "ev")
    scale = 1.0 / au2ev;
  else if (unit == "au" || unit == "a.u." || unit == "hartree")
    scale = 1.0;
  else
    throw FatalError(
        what + "expected the unit cm-1, eV or au after the values, found '" + unit + "'", 2);
  std::vector<std::string> items;
  for (std::size_t at = 0;;) {
    const std::size_t comma = values.find(',', at);
    items.push_back(values.substr(at, comma - at));
    if (comma == std::string::npos) break;
    at = comma + 1;
  }
  if (items.size() != 1 && items.size() != 3)
    throw FatalError(what +
                         "expected one value (summed over the sublevels) or three, for M = 0, "
                         "+1, -1, separated by commas; found " +
                         std::to_string(items.size()),
                     2);
  SocValues out;
  out.summed = items.size() == 1;
  out.text = values + " " + unit;
  for (std::size_t i = 0; i < items.size(); ++i) {
    std::complex<double> z;
    const bool ok = complex_number(items[i], z);
    if (!ok || (out.summed && (z.imag() != 0.0 || z.real() < 0.0)))
      throw FatalError(what +
                           (out.summed ? "expected the root of sum_M |V_M|^2, a number of 0 or more"
                                       : "expected a number or a complex number re:im") +
                           ", found '" + items[i] + "'",
                       2);
    out.sublevel[i] = z * scale;
  }
  if (soc_sum(out) == 0.0)
    throw FatalError(what + "expected a spin-orbit coupling that is not zero: it couples nothing",
                     2);
  return out;
}

SpinRule parse_spin_rule(const std::string& word) {
  if (word == "singlet-triplet") return SpinRule::singlet_triplet;
  if (word == "triplet-singlet") return SpinRule::triplet_singlet;
  throw FatalError("ictvcf rate: --spin " + word +
                       ": expected singlet-triplet (the initial state is the singlet) or "
                       "triplet-singlet (the initial state is the triplet)",
                   2);
}

double soc_sum(const SocValues& v) {
  double s = 0.0;
  for (const std::complex<double>& x : v.sublevel) s += std::norm(x);
  return s;
}

double soc_squared(const SocValues& v, SpinRule rule) {
  if (rule == SpinRule::singlet_triplet) return soc_sum(v);
  if (v.summed)
    throw FatalError(
        "ictvcf rate: --spin triplet-singlet averages |V_M|^2 over the three "
        "sublevels of the initial triplet, but --soc " +
            v.text +
            " is one value: it may be the root of the sum over M or one sublevel's "
            "coupling, a factor 3 apart; give the three sublevels 'V0,V+1,V-1'",
        2);
  return soc_sum(v) / 3.0;
}

std::string spin_rule_words(SpinRule rule) {
  return rule == SpinRule::singlet_triplet
             ? "singlet-triplet: |V|^2 = sum over the final triplet's sublevels M = 0, +1, -1 of "
               "|<T_M|H_SO|S>|^2"
             : "triplet-singlet: |V|^2 = (1/3) sum over M = 0, +1, -1 of |<S|H_SO|T_M>|^2, the "
               "average over the initial triplet's sublevels, equally populated (the "
               "high-temperature limit of the zero-field splitting)";
}

SocFile read_soc_file(TextFile& f) {
  const ModeTableWords say{
      "the coupling of the three sublevels '0 V0 V+1 V-1 [au|cm-1|eV]'",
      "the coupling of the three sublevels '0 V0 V+1 V-1 [au|cm-1|eV]' (each re or re:im)",
      "the coupling first, on a line '0 V0 V+1 V-1 [au|cm-1|eV]'",
      "a mode number and three derivatives 'k dV0 dV+1 dV-1' (one per sublevel, each re or "
      "re:im)",
      "three numbers (re or re:im)"};
  const ModeTable<std::complex<double>> t =
      read_mode_table<std::complex<double>>(f, say, complex_number);
  SocFile out;
  out.v0 = t.zero;
  out.modes = t.modes;
  out.derivatives = t.rows;
  double scale = 1.0;
  if (!t.unit.empty()) {
    out.unit = t.unit;
    if (t.unit == "cm-1")
      scale = 1.0 / au2cm;
    else if (t.unit == "eV" || t.unit == "ev")
      scale = 1.0 / au2ev;
    else if (t.unit != "au")
      throw IoError(
          f.name, t.unit_line,
          "expected the unit 'au', 'cm-1' or 'eV' after the coupling, found '" + t.unit + "'");
  }
  for (auto& z : out.v0) z *= scale;
  for (auto& m : out.derivatives)
    for (auto& z : m) z *= scale;
  return out;
}

std::vector<std::complex<double>> soc_derivatives(const SocFile& file, const std::string& name,
                                                  const DushinData& v, bool n3all) {
  const int n = v.nmode;
  std::vector<std::complex<double>> dv(3 * static_cast<std::size_t>(n));
  bool nonzero = false;
  for (const auto& z : file.v0) nonzero = nonzero || z != 0.0;
  for (std::size_t i = 0; i < file.modes.size(); ++i) {
    const int store = store_mode(v, file.modes[i], name, n3all);
    for (std::size_t m = 0; m < 3; ++m) {
      dv[m * n + store - 1] = file.derivatives[i][m];
      nonzero = nonzero || file.derivatives[i][m] != 0.0;
    }
  }
  if (!nonzero)
    throw IoError(name, 0,
                  "expected a spin-orbit coupling that is not zero: this one couples nothing");
  return dv;
}

}  // namespace ictvcf
