// End-to-end comparison of a run against a case's expected results: exit status, standard output
// and leftover dot-files exactly, every other file line by line with the values of the time stamps
// masked, and the correlation-function table (text or binary) within a tolerance scaled to its
// largest value (the t = 0 row, where the propagators nearly cancel, with its own tolerance).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace ictvcf::testing {

// Runs `exe` (after `launcher`, e.g. "mpirun -np 2") on a scratch copy of the case directory
// (inputs, `cmd`): "<status>", "<stdout>", "<leftovers>" (the new dot-files, one a line) and the
// contents of every file the run wrote, the values of its time stamps masked.
std::map<std::string, std::string> run_case(const std::string& exe, const std::string& case_dir,
                                            const std::string& launcher = "");

// The run of the case against its expected/ (status.txt, stdout.txt, leftovers.txt and the files
// written): the list of differences (empty: the case passes). Tables agree within 1e-8 of their
// largest value (1e-5 on the t = 0 row).
std::vector<std::string> check_case(const std::string& exe, const std::string& case_dir);

}  // namespace ictvcf::testing
