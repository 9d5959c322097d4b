#include "engine/dosqrt.h"

#include <cmath>

namespace ictvcf {

double theta(std::complex<double> z) {
  const double r = std::abs(z);
  double th = std::acos(z.real() / r);
  if (z.imag() < 0.0) th = -th;
  return th;
}

void dosqrt(std::int64_t n, const std::complex<double>* z, std::complex<double>* w) {
  const double two_pi = 6.283185307179586;
  const std::complex<double> I(0.0, 1.0);
  double phi = 0.0;
  auto root = [&](std::complex<double> c, double th) {
    return std::sqrt(std::abs(c)) * std::exp(I * ((th + phi) / 2.0));
  };
  w[0] = root(z[0], theta(z[0]));
  double p_re = z[0].real(), p_im = z[0].imag();
  for (std::int64_t i = 1; i < n; ++i) {
    const double th = theta(z[i]);
    const double c_re = z[i].real(), c_im = z[i].imag();
    // A crossing of the negative real axis between the previous point and this one; a point
    // exactly on the axis is not counted.
    if (p_re < 0.0 && c_re < 0.0 && p_im * c_im < 0.0) {
      if (c_im > p_im)
        phi -= two_pi;  // from below to above: clockwise through -pi
      else if (c_im < p_im)
        phi += two_pi;  // from above to below: counter-clockwise through +pi
    }
    w[i] = root(z[i], th);
    p_re = c_re;
    p_im = c_im;
  }
}

}  // namespace ictvcf
