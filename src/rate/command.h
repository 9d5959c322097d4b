// `ictvcf rate INPUT`: the internal-conversion rate constant from the same input as the run.
#pragma once

#include <string>

namespace ictvcf {

// Runs the command; returns the exit status (messages already written).
int run_rate(const std::string& infile);

}  // namespace ictvcf
