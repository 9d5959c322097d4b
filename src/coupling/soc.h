// The spin-orbit coupling between a singlet S and the three sublevels M = 0, +1, -1 of a triplet
// T, as given on the command line: one number, the root of sum_M |<T_M|H_SO|S>|^2 already summed,
// or the three sublevels' matrix elements, each real or complex (`re:im`), in cm-1, eV or hartree.
//
// The rate of a crossing out of the singlet counts every final sublevel (the sum over M); out of
// the triplet each sublevel is an initial state of its own, equally populated when the zero-field
// splitting is small against kT (its high-temperature limit), so the rate is the average over M.
#pragma once

#include <array>
#include <complex>
#include <string>

namespace ictvcf {

enum class SpinRule { singlet_triplet, triplet_singlet };

struct SocValues {
  std::array<std::complex<double>, 3> sublevel{};  // hartree, M = 0, +1, -1
  bool summed = false;  // one value given: sublevel[0] is the root of the sum over M
  std::string text;     // the values and the unit as given
};

// `values` is "V" or "V0,V+1,V-1", each a number or "re:im"; `unit` is cm-1, eV or au (hartree,
// also a.u.). Throws FatalError (status 2) naming what was expected.
SocValues parse_soc_values(const std::string& values, const std::string& unit);

// "singlet-triplet" or "triplet-singlet"; FatalError (status 2) otherwise.
SpinRule parse_spin_rule(const std::string& word);

// sum_M |V_M|^2 (hartree^2).
double soc_sum(const SocValues& v);

// The |V|^2 of the rate: the sum over the sublevels (singlet-triplet) or their average
// (triplet-singlet). A triplet rule with one summed value is refused (FatalError, status 2):
// whether that value is the sum's root or one sublevel's coupling changes the rate threefold.
double soc_squared(const SocValues& v, SpinRule rule);

// How the rule counts the sublevels, in words.
std::string spin_rule_words(SpinRule rule);

}  // namespace ictvcf
