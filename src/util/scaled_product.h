// Scaled products: a product of many factors (a determinant of a diagonal or triangular form)
// carried as a mantissa m with 1 <= |m| < 10 and a power of ten, because products over hundreds
// of modes overflow a double.
#pragma once

#include <complex>

namespace ictvcf {

// det = (m, e) with value m * 10^e. Factors below 1e-127 in magnitude are set to 0 in `a`; a zero
// product returns at once. A factor that is infinite or not a number ends the normalisation at
// once and leaves a non-finite mantissa.
void rdetm(double* a, int n, double det[2]);

// The same for complex factors: det[0] the mantissa, det[1] the exponent in its real part.
void zdetm(const std::complex<double>* a, int n, std::complex<double> det[2]);

}  // namespace ictvcf
