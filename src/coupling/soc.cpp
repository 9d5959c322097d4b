#include "coupling/soc.h"

#include <cmath>
#include <string>
#include <vector>

#include "util/constants.h"
#include "util/errors.h"

namespace ictvcf {

namespace {

bool number(const std::string& text, double& x) {
  std::size_t used = 0;
  try {
    x = std::stod(text, &used);
  } catch (const std::exception&) {
    return false;
  }
  return used == text.size() && std::isfinite(x);
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
    const std::size_t colon = items[i].find(':');
    double re = 0.0, im = 0.0;
    const bool ok = colon == std::string::npos ? number(items[i], re)
                                               : number(items[i].substr(0, colon), re) &&
                                                     number(items[i].substr(colon + 1), im);
    if (!ok || (out.summed && (im != 0.0 || re < 0.0)))
      throw FatalError(what +
                           (out.summed ? "expected the root of sum_M |V_M|^2, a number of 0 or more"
                                       : "expected a number or a complex number re:im") +
                           ", found '" + items[i] + "'",
                       2);
    out.sublevel[i] = std::complex<double>(re, im) * scale;
  }
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

}  // namespace ictvcf
