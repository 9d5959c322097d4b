// Which modes drive internal conversion: the rate as a quadratic form in the couplings,
// k = sum_jk rif_j rif_k K(j,k), split into each mode's own pair (the rate with that mode alone
// coupled) and its share (its own pair and half of its cross pairs; the shares add up to k).
// And the text of the per-mode, per-pair and per-temperature files. No I/O.
#pragma once

#include <string>
#include <vector>

#include "engine/engine.h"
#include "rate/contour.h"

namespace ictvcf {

struct ModeShare {
  int mode = 0;          // the log's numbering, from 1
  double frequency = 0;  // final state, hartree
  double coupling = 0;   // rif, atomic units
  double diagonal = 0;   // r(j,j) K(j,j): the rate with this mode alone coupled, au
  double share = 0;      // diagonal + sum over k != j of r(j,k) K(j,k), au
};

struct PairShare {
  int j = 0, k = 0;    // j > k, numbered from 1
  double value = 0.0;  // 2 r(j,k) K(j,k), au: what the pair adds to the rate
};

struct Decomposition {
  std::vector<ModeShare> modes;  // by share, largest first
  std::vector<PairShare> pairs;  // cross pairs by |value|, largest first
  double total = 0.0;            // sum of the shares, au
};

// From the pair integrals (lower triangle) of the pairs the mask selects.
Decomposition decompose(const EngineInputs& in, const PairIntegrals& k);

// The files: a '#' header, then one line per mode, per pair (the `most` largest) or per
// temperature; rates in s-1 (and au), numbers with the letter e.
std::string modes_text(const Decomposition& d, double rate, double error);

// A mode that lends a transition its intensity (Herzberg-Teller): the rate with its derivative
// alone, and what it adds beside the constant part (their interference); atomic units.
struct LendingMode {
  int mode = 0;  // the coupling file's numbering
  double freq = 0.0, alone = 0.0, interference = 0.0;
};
// Sorts the modes by what they add, largest first; the file's text, and the summary's lines
// ("modes: N modes lend WHAT (E engine evaluations); the leading:" and five rows, the
// interference "with CONSTANT").
std::string lending_text(std::vector<LendingMode>& rows);
std::string lending_summary(const std::vector<LendingMode>& rows, const char* what,
                            long long evaluations, const char* constant);
std::string pairs_text(const Decomposition& d, std::size_t most);
std::string temps_text(const std::vector<double>& temps, const std::vector<double>& rates,
                       const std::vector<double>& errors);

}  // namespace ictvcf
