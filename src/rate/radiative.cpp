#include "rate/radiative.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "engine/branch.h"
#include "rate/integral.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using cplx = std::complex<double>;

constexpr int kPoints = 4;  // tau = +-h .. +-4h

// The value at y = 0 of the polynomial through (y[i], f[i]) (Neville's scheme).
double at_zero(const double* y, std::vector<double> f) {
  const std::size_t n = f.size();
  for (std::size_t m = 1; m < n; ++m)
    for (std::size_t i = 0; i + m < n; ++i)
      f[i] = (y[i + m] * f[i] - y[i] * f[i + 1]) / (y[i + m] - y[i]);
  return f[0];
}

}  // namespace

SpectralMoments spectral_moments(EngineContext& ctx) {
  const EngineInputs& in = ctx.in;
  SpectralMoments m;
  m.c0 = correlation_at_zero(ctx);
  if (!(m.c0 > 0.0) || !std::isfinite(m.c0))
    throw FatalError(printed("ictvcf rate: the operator's thermal average C(0) = %.6g is not "
                             "positive: there is nothing to emit",
                             m.c0),
                     2);
  double wmax = 0.0;
  for (int j = 0; j < in.nmode; ++j) wmax = std::max({wmax, in.omegag[j], in.omegae[j]});
  if (!(wmax > 0.0)) throw FatalError("ictvcf rate: no vibrational frequency above zero", 2);
  const double ln_c0 = std::log(m.c0);
  double h = 0.02 / wmax;
  std::vector<cplx> times(2 * kPoints);
  std::vector<PointValue> values(2 * kPoints);
  for (int tries = 0;; ++tries) {
    for (int k = 1; k <= kPoints; ++k) {
      times[2 * (k - 1)] = cplx(0.0, k * h);
      times[2 * (k - 1) + 1] = cplx(0.0, -k * h);
    }
    evaluate(ctx, times, values);
    m.evaluations += 2 * kPoints;
    bool finite = true;
    for (const PointValue& v : values) finite = finite && !std::isnan(ln_c_imaginary(v));
    if (finite) break;
    if (tries == 8)
      throw FatalError(printed("ictvcf rate: C(i tau) is not finite and positive within tau = "
                               "+-%.3g au of 0: no moments of the spectrum",
                               4 * h),
                       2);
    h *= 0.25;
  }
  const double y[kPoints] = {1.0, 4.0, 9.0, 16.0};
  std::vector<double> odd(kPoints), even(kPoints);
  for (int k = 1; k <= kPoints; ++k) {
    const double up = ln_c_imaginary(values[2 * (k - 1)]) - ln_c0;
    const double down = ln_c_imaginary(values[2 * (k - 1) + 1]) - ln_c0;
    const double x = k * h;
    odd[k - 1] = 0.5 * (up - down) / x;         // L'(0) + L'''(0) x^2/6 + ...
    even[k - 1] = 0.5 * (up + down) / (x * x);  // L''(0)/2 + ...
  }
  m.l1 = at_zero(y, odd);
  m.l2 = 2.0 * at_zero(y, even);
  std::vector<double> third(kPoints);
  for (int k = 1; k <= kPoints; ++k) third[k - 1] = (odd[k - 1] - m.l1) / (k * k * h * h);
  m.l3 = 6.0 * at_zero(y, third);
  m.step = h;
  return m;
}

double third_moment(const SpectralMoments& m, double gap, double sigma) {
  const double k1 = gap - m.l1, k2 = m.l2 + sigma * sigma, k3 = -m.l3;
  return k1 * k1 * k1 + 3.0 * k1 * k2 + k3;
}

double emission_prefactor(double refractive_index) {
  const double c = speed_of_light_au;
  return 4.0 * refractive_index * refractive_index / (3.0 * c * c * c);
}

double radiative_rate(const SpectralMoments& m, double gap, double sigma, double refractive_index) {
  return emission_prefactor(refractive_index) * m.c0 * third_moment(m, gap, sigma);
}

Emission emission_spectrum(EngineContext& ctx, const SpectralMoments& m, double gap, double sigma,
                           double refractive_index) {
  Emission out;
  const double step = 0.5 * sigma;
  const double mean = gap - m.l1, spread = std::sqrt(m.l2 + sigma * sigma);
  const double pref = emission_prefactor(refractive_index) / (2.0 * std::numbers::pi);
  const Damping damping{DampingShape::gaussian, sigma, false};
  double wmax = 0.0;
  for (int j = 0; j < ctx.in.nmode; ++j)
    wmax = std::max({wmax, ctx.in.omegag[j], ctx.in.omegae[j]});
  const std::size_t edge = static_cast<std::size_t>(std::ceil((wmax + 3.0 * sigma) / step));
  // The window: mean - 10 .. mean + 6 standard deviations at first (a progression's long tail
  // lies below the mean), widened by half while the spectrum within one vibrational quantum (the
  // highest) plus 3 sigma of an end is above 1e-6 of the peak: between lines far narrower than
  // their spacing it dips far below its neighbours.
  double below = 10.0, above = 6.0;
  std::vector<double> omega, values;
  for (int round = 0;; ++round) {
    // The window may reach below w = 0: K there still aliases onto the rest.
    const std::int64_t lo = -static_cast<std::int64_t>(std::ceil(below * spread / step));
    const std::int64_t hi = static_cast<std::int64_t>(std::ceil(above * spread / step));
    // Samples of C every dt alias K(E) onto K(E + 2 pi/dt): the period exceeds the window by
    // 12 sigma, so the copies of the band land 6 sigma beyond either end of it at least. The
    // damping is 1e-10 at the last sample.
    const double width = static_cast<double>(hi - lo) * step + 12.0 * sigma;
    const double dt = 2.0 * std::numbers::pi / width;
    const std::int64_t nt =
        static_cast<std::int64_t>(std::ceil(std::sqrt(2.0 * std::log(1e10)) / sigma / dt));
    const std::vector<std::complex<double>> c = exact_correlation(ctx, dt, nt, out.warnings);
    out.evaluations += nt + 1;
    out.dt = dt;
    out.nt = nt;
    omega.clear();
    std::vector<double> gaps;
    for (std::int64_t i = lo; i <= hi; ++i) {
      omega.push_back(mean + static_cast<double>(i) * step);
      gaps.push_back(gap - omega.back());
    }
    const std::vector<double> k = rate_scan(c, dt, damping, gaps);
    values.resize(k.size());
    double peak = 0.0;
    for (std::size_t i = 0; i < k.size(); ++i) {
      values[i] = pref * omega[i] * omega[i] * omega[i] * k[i];
      peak = std::max(peak, values[i]);
    }
    double front = 0.0, back = 0.0;
    for (std::size_t i = 0; i < std::min(edge, values.size()); ++i) {
      front = std::max(front, std::fabs(values[i]));
      back = std::max(back, std::fabs(values[values.size() - 1 - i]));
    }
    const bool grow_lo = front >= 1e-6 * peak;
    const bool grow_hi = back >= 1e-6 * peak;
    if ((!grow_lo && !grow_hi) || round == 6) {
      if (grow_lo || grow_hi)
        out.warnings.push_back(printed(
            "the emission spectrum is still above 1e-6 of its peak at %.6g cm-1, the end of the "
            "window",
            (grow_lo ? omega.front() : omega.back()) * au2cm));
      break;
    }
    if (grow_lo) below *= 1.5;
    if (grow_hi) above *= 1.5;
  }
  // The band above 1e-6 of the peak, with one point beyond it on either side, at w > 0.
  double peak = 0.0;
  for (double v : values) peak = std::max(peak, v);
  std::size_t first = 0, last = values.size() - 1;
  while (first < last && !(omega[first] > 0.0)) ++first;
  while (first + 1 < values.size() && values[first + 1] < 1e-6 * peak) ++first;
  while (last > first && values[last - 1] < 1e-6 * peak) --last;
  out.omega.assign(omega.begin() + first, omega.begin() + last + 1);
  out.sigma.assign(values.begin() + first, values.begin() + last + 1);
  for (std::size_t i = 0; i < out.sigma.size(); ++i)
    out.integral += (i == 0 || i + 1 == out.sigma.size() ? 0.5 : 1.0) * step * out.sigma[i];
  return out;
}

}  // namespace ictvcf
