// `ictvcf rate [options] INPUT`: the internal-conversion rate constant from the same input as the
// run, with its energy-gap scan, plots, and optionally its decomposition over modes and its
// temperature dependence.
#pragma once

#include <string>
#include <vector>

namespace ictvcf {

struct RateOptions {
  std::string input;
  double tol = 1e-6;          // relative accuracy of the contour integral
  bool real_axis = false;     // integrate on the block's real time grid instead
  bool modes = false;         // the rate's decomposition over modes and mode pairs
  bool exact = false;         // write the exact C(t) on the block's whole grid (<ftfile>.exact)
  std::vector<double> temps;  // temperatures (K) for a temperature study
};

// The options from the words after `rate`. Throws FatalError (status 2) with the usage problem.
RateOptions parse_rate_options(const std::vector<std::string>& args);

// Temperatures from "77,150,300" or "100:500:50" (first:last:step, both ends included).
std::vector<double> parse_temperature_list(const std::string& list);

// Runs the command; returns the exit status (messages already written).
int run_rate(const RateOptions& options);

}  // namespace ictvcf
