// The continuous square root of the determinant terms along the time grid: the branch is chosen
// at each point so that it continues the previous one, by counting the crossings of the negative
// real axis.
#pragma once

#include <complex>
#include <cstdint>

namespace ictvcf {

// The argument of z in (-pi, pi], as arccos(Re z / |z|) with the sign of Im z.
double theta(std::complex<double> z);

// w[i] = sqrt(|z[i]|) exp(i (theta(z[i]) + phi) / 2), with phi the accumulated winding (a
// multiple of 2 pi). n >= 1.
void dosqrt(std::int64_t n, const std::complex<double>* z, std::complex<double>* w);

}  // namespace ictvcf
