#include "engine/kernels.h"

#include <cmath>
#include <vector>

#include "engine/lapack.h"

namespace ictvcf {

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

void zsymm3(int n, const cplx* A, const cplx* B, const cplx* C, cplx* D, cplx* T) {
  if (n <= 0) return;
  std::vector<cplx> own;
  if (!T) {
    own.resize(static_cast<std::size_t>(n) * n);
    T = own.data();
  }
  const cplx one(1.0, 0.0), zero(0.0, 0.0);
  const char no = 'N';
  zgemm_(&no, &no, &n, &n, &n, &one, A, &n, B, &n, &zero, T, &n);
  zgemm_(&no, &no, &n, &n, &n, &one, T, &n, C, &n, &zero, D, &n);
}

}  // namespace ictvcf
