// Completes the parameter set before any data file is read: the vertical gap, the six
// equivalent ways of stating the line broadening made consistent, and the number of time steps.
#pragma once

#include <cstdint>

#include "input/inputfile.h"

namespace ictvcf {

void prepare_data(ParameterSet& p);

// Nearest integer to q, halves away from zero, kept to its low 32 bits as a signed value
// (a quotient that is not a number, or beyond the 64-bit range, gives 0).
std::int32_t round_to_int32(double q);

}  // namespace ictvcf
