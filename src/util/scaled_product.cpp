#include "util/scaled_product.h"

#include <cmath>

namespace ictvcf {

using cplx = std::complex<double>;

void rdetm(double* a, int n, double det[2]) {
  double m = 1.0, e = 0.0;
  for (int i = 0; i < n; ++i) {
    if (std::fabs(a[i]) < 1e-127) a[i] = 0.0;
    m = m * a[i];
    if (m == 0.0) break;
    if (!std::isfinite(m)) continue;  // infinite or NaN: no finite mantissa to normalise
    while (std::fabs(m) < 1.0) {
      m = m * 10.0;
      e = e - 1.0;
    }
    while (std::fabs(m) >= 10.0) {
      m = m / 10.0;
      e = e + 1.0;
    }
  }
  det[0] = m;
  det[1] = e;
}

void zdetm(const cplx* a, int n, cplx det[2]) {
  cplx m(1.0, 0.0), e(0.0, 0.0);
  for (int i = 0; i < n; ++i) {
    m = a[i] * m;
    double r = std::abs(m);
    if (r == 0.0) break;
    if (!std::isfinite(r)) continue;
    while (std::abs(m) < 1.0) {
      m = m * cplx(10.0, 0.0);
      e = cplx(e.real() - 1.0, e.imag());
    }
    while (std::abs(m) >= 10.0) {
      m = m / cplx(10.0, 0.0);
      e = cplx(e.real() + 1.0, e.imag());
    }
  }
  det[0] = m;
  det[1] = e;
}

}  // namespace ictvcf
