// `ictvcf prepare FINAL INITIAL [options]`: the run's Duschinsky data file, coupling file and
// input file from two frequency calculations (Gaussian formatted checkpoints or ORCA Hessian
// files) and a non-adiabatic coupling; a summary on standard output, warnings on standard error.
#pragma once

#include <string>
#include <vector>

namespace ictvcf {

// `args` are the words after 'prepare'. Returns the exit status (messages already written).
int run_prepare(const std::vector<std::string>& args);

}  // namespace ictvcf
