// Warnings about the parameter block as the user wrote it: unit words that are unknown or belong
// to another quantity, numbers without a unit that are implausible for their quantity, decimal
// commas, values that are not finite, misspelt names (with the nearest of the 47), and, once the
// block is read, empty file names, outputs that would replace an input, a grid of one point and
// settings without effect. One line each on standard error; no value and no echo changes.
#pragma once

#include <string>
#include <string_view>

#include "input/inputfile.h"

namespace ictvcf {

// One "name = value [unit]" line as split by get_vars; `at` is where it stands ("file, line N: ").
void check_parameter_line(const std::string& at, std::string_view name, std::string_view value,
                          std::string_view unit);

// Why a line that the reader rejects was rejected, where the reason is a common one: a misspelt
// name, a logical without its points, an integer with a unit or a fraction, no "=" at all.
void explain_bad_line(const std::string& at, bool has_assignment, std::string_view line,
                      std::string_view name, std::string_view value, std::string_view unit);

// The parameter name nearest to `name` (a prefix, or a few letters apart), or "" when none is.
std::string nearest_parameter(std::string_view name);

// The block as read. `writes_outputs`: the run writes the log and the table named there.
void check_parameters(const ParameterSet& p, const std::string& infile, bool writes_outputs);

// A described stop with status 0 after the data files (a missing marker, `mode` out of range, the
// coupling reader's stops): no table was written, and a file of the table's name is an earlier
// run's. `writes_outputs` as above.
void warn_stopped(const ParameterSet& p, bool writes_outputs);

}  // namespace ictvcf
