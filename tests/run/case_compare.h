// End-to-end comparison of a run against a case's expected results: exit status, standard output
// and leftover dot-files exactly, every other file line by line with the values of the time stamps
// masked, and the correlation-function table (text or binary) within a tolerance scaled to its
// largest value (the t = 0 row, where the propagators nearly cancel, with its own tolerance).
#pragma once

#include <string>
#include <vector>

namespace ictvcf::testing {

// A "Begin:"/"End:" time-stamp line with its value masked; other lines unchanged.
std::string strip_stamp(const std::string& line);

// Runs `exe` on the case directory `case_dir` (inputs, `cmd`, `expected/`) in a scratch copy and
// returns the list of differences (empty: the case passes). `launcher` goes before the program
// (e.g. "mpirun -np 2").
std::vector<std::string> check_case(const std::string& exe, const std::string& case_dir,
                                    double rtol = 1e-8, double t0_rtol = 1e-5,
                                    const std::string& launcher = "");

}  // namespace ictvcf::testing
