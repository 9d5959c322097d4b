// The correlation-function table: the engine's values turned into C(t) on k = -nt .. nt (the
// continuous square root of the determinant term, the mirror C(-t) = C(t)*), and the table file
// in its text or binary layout.
#pragma once

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "util/matrix.h"

namespace ictvcf {

// The correlation function on k = -nt .. nt from the engine's values at k = 0 .. nt: each value
// times the continuous square root of its determinant term, then C(-t) = C(t)*. Also fills
// sqrtdone. Returns h_ft with h_ft[k + nt] the value at step k.
std::vector<std::complex<double>> assemble(std::int64_t nt,
                                           const std::vector<std::complex<double>>& usqrt,
                                           const std::vector<std::complex<double>>& ft,
                                           Vector<std::complex<double>>& sqrtdone);

// A warning on standard error when values of the table are infinite or not a number.
void warn_non_finite(const std::vector<std::complex<double>>& h_ft, std::int64_t nt, double dt);

// The table, text ("(F14.5,6X,E16.9,2X,E16.9)" lines under a header) or binary (sequential
// records: nt, dt, then the real and imaginary parts per step). Written beside the final name
// and renamed into place once complete.
void write_table(const std::string& name, bool binary, std::int64_t nt, double dt,
                 const std::vector<std::complex<double>>& h_ft);

}  // namespace ictvcf
