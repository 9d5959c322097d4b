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
#include <vector>

#include "util/text_file.h"
#include "vibronic/dushindata.h"

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

// A spin-orbit coupling that depends on the geometry (Herzberg-Teller), in the layout of the
// transition dipole file: per sublevel M = 0, +1, -1 the value at the final state's minimum and
// its derivatives along the final state's mass-weighted normal coordinates,
//
//   # comment lines (and blank lines) anywhere
//   0  V0 V+1 V-1 [unit]      the coupling itself; unit `au` (the default), `cm-1` or `eV`
//   k  dV0 dV+1 dV-1          d V_M / d Q1k for mode k, in the coupling file's numbering
//
// each number real or complex (`re:im`); the unit word applies to every number of the file
// (derivatives per atomic unit of the coordinate). Modes not listed have no derivative.
struct SocFile {
  std::array<std::complex<double>, 3> v0{};                      // hartree
  std::vector<int> modes;                                        // as listed
  std::vector<std::array<std::complex<double>, 3>> derivatives;  // per listed mode, hartree
  std::string unit = "au";
};

// Reads the file. Throws IoError (file, line, what was expected) for a missing `0` line, a line
// that is not an integer and three numbers, a mode listed twice, an unknown unit word.
SocFile read_soc_file(TextFile& f);

// The derivatives in the store's mode order, dV_M/dQ1k at [M * nmode + k] (M = 0, +1, -1 as 0,
// 1, 2): each store mode takes the values listed at its state-1 number (counting the six
// translations and rotations unless `n3all`). Throws IoError for a listed mode that is not one
// of the store's, and for a coupling that is zero altogether.
std::vector<std::complex<double>> soc_derivatives(const SocFile& file, const std::string& name,
                                                  const DushinData& v, bool n3all);

}  // namespace ictvcf
