#include <cmath>
#include <vector>

#include "engine/engine.h"
#include "util/constants.h"
#include "util/lapack.h"
#include "util/matrix.h"
#include "util/scaled_product.h"

namespace ictvcf {

using cplx = std::complex<double>;

namespace {

// D = (A B) C for n x n matrices, with T holding the intermediate A B.
void zsymm3(int n, const cplx* A, const cplx* B, const cplx* C, cplx* D, cplx* T) {
  lapack::gemm(n, A, B, T);
  lapack::gemm(n, T, C, D);
}

}  // namespace

void getintegratedata(const EngineInputs& v, double dt, std::int64_t nstart, std::int64_t nend,
                      cplx* usqrt, cplx* f, bool keep_imaginary) {
  const int n = v.nmode;
  if (n <= 0 || nend < nstart) return;
  const double beta = kelvin_per_hartree / v.temp;
  const cplx I(0.0, 1.0);
  // The thermal normalisation prod_j 4 sinh^2(beta omegae_j / 2), scaled.
  std::vector<double> invz2(n);
  double invz2det[2];
  for (int j = 0; j < n; ++j) {
    const double sh = std::sinh(kelvin_per_hartree * v.omegae[j] / v.temp / 2.0);
    invz2[j] = 4.0 * (sh * sh);
  }
  rdetm(invz2.data(), n, invz2det);
  const auto& s = v.s;
  // 1-based views of the per-mode vectors, as the formulas read.
  auto d = [&v](int j) { return v.d[j - 1]; };
  auto omegag = [&v](int j) { return v.omegag[j - 1]; };
  auto omegae = [&v](int j) { return v.omegae[j - 1]; };

  // Work arrays, created once for the whole call.
  Vector<int> ipiv1(n), ipiv2(n);
  std::vector<cplx> work;  // of the inversions
  Vector<double> ag(n), bg(n), g(n);
  Vector<cplx> ae(n), be(n), e(n), ed(n);
  Matrix<cplx> staes(n, n), stbes(n, n), a(n, n), b(n, n), bpa(n, n), bma(n, n);
  Matrix<cplx> tempmatrix1(n, n), tempmatrix2(n, n);
  Vector<cplx> usqrtdet(n);
  Matrix<cplx> invk11(n, n), invk12(n, n);
  Vector<cplx> sted(n), invbmasted(n);
  Matrix<cplx> invbma(n, n), stes(n, n);
  Matrix<cplx> trginvk(n, n), hinvkf(n, n), invkftginvkf(n, n), intsum(n, n);
  Matrix<cplx> product(n, n);  // the intermediate of the triple products

  for (std::int64_t q = nstart; q <= nend; ++q) {
    const std::size_t m = static_cast<std::size_t>(q - nstart);
    // Time zero is singular; it is taken at dt * 1e-5. The two states run in opposite
    // directions of time: state 1 at +t, state 2 at the complex time z = -t - i beta.
    const double t = q == 0 ? dt * 1e-05 : dt * static_cast<double>(q);
    const cplx z(-t, -beta);

    for (int j = 1; j <= n; ++j) {
      ag(j) = omegag(j) / std::sin(omegag(j) * t);
      ae(j) = omegae(j) / std::sin(omegae(j) * z);
      bg(j) = omegag(j) / std::tan(omegag(j) * t);
      be(j) = std::cos(omegae(j) * z) * ae(j);
      g(j) = bg(j) - ag(j);
      e(j) = be(j) - ae(j);
      ed(j) = d(j) * e(j);
    }

    // S^T diag(ae) S and S^T diag(be) S, lower triangle summed, upper mirrored.
    for (int j = 1; j <= n; ++j)
      for (int k = 1; k <= j; ++k) {
        cplx sa(0.0, 0.0), sb(0.0, 0.0);
        for (int l = 1; l <= n; ++l) {
          sa += s(l, j) * ae(l) * s(l, k);
          sb += s(l, j) * be(l) * s(l, k);
        }
        staes(j, k) = staes(k, j) = sa;
        stbes(j, k) = stbes(k, j) = sb;
      }
    a = staes;
    b = stbes;
    for (int j = 1; j <= n; ++j) {
      a(j, j) += ag(j);
      b(j, j) += bg(j);
    }
    for (int j = 1; j <= n; ++j)
      for (int k = 1; k <= j; ++k) {
        bpa(j, k) = bpa(k, j) = b(j, k) + a(j, k);
        bma(j, k) = bma(k, j) = b(j, k) - a(j, k);
      }
    tempmatrix1 = bpa;
    tempmatrix2 = bma;

    // An exactly singular factor gives infinite or undefined values, as the formulas do.
    lapack::getrf(n, tempmatrix1.ptr(), ipiv1.data());
    lapack::getrf(n, tempmatrix2.ptr(), ipiv2.data());

    // det(diag(ag)) det(diag(ae)) / (det(b+a) det(b-a)), as a scaled product whose sign comes
    // from the row interchanges of both factorisations.
    for (int j = 1; j <= n; ++j)
      usqrtdet(j) = (ag(j) * ae(j)) / tempmatrix1(j, j) / tempmatrix2(j, j);
    cplx det[2];
    zdetm(usqrtdet.data(), n, det);
    for (int j = 1; j <= n; ++j)
      if (ipiv1(j) != j) det[0] = -det[0];
    for (int j = 1; j <= n; ++j)
      if (ipiv2(j) != j) det[0] = -det[0];
    usqrt[m] = invz2det[0] * det[0] * std::pow(cplx(10.0, 0.0), cplx(invz2det[1], 0.0) + det[1]);

    lapack::getri(n, tempmatrix1.ptr(), ipiv1.data(), work);
    lapack::getri(n, tempmatrix2.ptr(), ipiv2.data(), work);

    // (b+a)^-1 b (b-a)^-1 and (b-a)^-1 a (b+a)^-1
    zsymm3(n, tempmatrix1.ptr(), b.ptr(), tempmatrix2.ptr(), invk11.ptr(), product.ptr());
    zsymm3(n, tempmatrix2.ptr(), a.ptr(), tempmatrix1.ptr(), invk12.ptr(), product.ptr());

    for (int j = 1; j <= n; ++j) {
      sted(j) = 0.0;
      for (int l = 1; l <= n; ++l) sted(j) += s(l, j) * d(l) * e(l);
    }
    invbma = tempmatrix2;
    for (int j = 1; j <= n; ++j) {
      invbmasted(j) = 0.0;
      for (int l = 1; l <= n; ++l) invbmasted(j) += invbma(j, l) * sted(l);
    }
    for (int j = 1; j <= n; ++j)
      for (int k = 1; k <= j; ++k) {
        cplx se(0.0, 0.0);
        for (int l = 1; l <= n; ++l) se += s(l, j) * e(l) * s(l, k);
        stes(j, k) = stes(k, j) = se;
      }

    cplx phase(0.0, 0.0), dd(0.0, 0.0);
    for (int l = 1; l <= n; ++l) phase += d(l) * d(l) * e(l);
    for (int l = 1; l <= n; ++l) dd += sted(l) * invbmasted(l);
    phase -= dd;
    const cplx X = std::exp(I * phase);

    cplx sum(0.0, 0.0);
    for (int j = 1; j <= n; ++j)
      for (int k = 1; k <= j; ++k) {
        if (!v.iscal(j, k)) continue;
        cplx s1(0.0, 0.0), s2(0.0, 0.0), s3(0.0, 0.0), s4(0.0, 0.0);
        for (int l = 1; l <= n; ++l) {
          s1 += staes(j, l) * invk11(l, k);
          s2 += stbes(j, l) * invk12(l, k);
          s3 += staes(j, l) * invk12(l, k);
          s4 += stbes(j, l) * invk11(l, k);
        }
        trginvk(j, k) = ag(k) * s3 + bg(k) * s2 - bg(k) * s1 - ag(k) * s4;
        hinvkf(j, k) = g(k) * sted(j) * invbmasted(k);
        cplx qj(0.0, 0.0);
        for (int l = 1; l <= n; ++l) qj += stes(j, l) * invbmasted(l);
        invkftginvkf(j, k) = g(k) * invbmasted(k) * qj;
        intsum(j, k) = invkftginvkf(j, k) + I * trginvk(j, k) - hinvkf(j, k);
        intsum(j, k) = intsum(j, k) * X;
        if (j == k)
          sum += v.r(j, j) * intsum(j, j);
        else
          sum += 2.0 * v.r(j, k) * intsum(j, k);
      }
    f[m] = keep_imaginary ? sum : cplx(sum.real(), 0.0);
  }
}

}  // namespace ictvcf
