#include <algorithm>

#include "rate/contour_parts.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf::contour_parts {

Saddle find_saddle(Phi& phi, double gap, double unit, double sigma) {
  auto f = [&](double tau) { return phi(gap, tau); };
  const double up = f(unit), down = f(-unit);
  if (!std::isfinite(up) && !std::isfinite(down))
    throw FatalError(printed("ictvcf rate: no point of the strip of convergence near t = 0 (tau = "
                             "+-%.3g au): the correlation function is not finite or not positive "
                             "there; check the frequencies and the coupling",
                             unit),
                     2);
  const double dir = up <= down ? 1.0 : -1.0;
  double a = -dir * unit, b = dir * unit, fb = std::min(up, down), c = b;
  for (int k = 0;; ++k) {
    if (k > 80)
      throw FatalError(printed("ictvcf rate: no saddle point for the gap %.6g cm-1: phi(tau) "
                               "keeps falling up to tau = %.3g au",
                               gap * au2cm, b),
                       2);
    c = 2.0 * b;
    if (!(c > -phi.beta())) c = 0.5 * (b - phi.beta());  // approach -beta from above
    const double fc = f(c);
    if (fc >= fb) break;
    a = b;
    b = c, fb = fc;
  }
  // The minimum of the convex phi lies between a and c; a golden-section search on the part
  // that keeps |tau| >= unit, down to 1 % of tau.
  double lo = dir * a >= unit ? a : dir * unit, hi = c;
  const double g = 0.6180339887498949;
  double x1 = hi - g * (hi - lo), x2 = lo + g * (hi - lo);
  double f1 = f(x1), f2 = f(x2);
  for (int it = 0; it < 60 && std::fabs(hi - lo) > 0.01 * std::fabs(x1); ++it) {
    if (f1 <= f2) {
      hi = x2, x2 = x1, f2 = f1;
      x1 = hi - g * (hi - lo), f1 = f(x1);
    } else {
      lo = x1, x1 = x2, f1 = f2;
      x2 = lo + g * (hi - lo), f2 = f(x2);
    }
  }
  if (f1 <= f2 && f1 < fb) b = x1, fb = f1;
  if (f2 < f1 && f2 < fb) b = x2, fb = f2;
  // phi'' >= sigma^2 (ln C is convex); a second difference, shortened where it leaves the strip.
  double phi2 = sigma * sigma;
  for (double delta = 0.05 * std::max(std::fabs(b), unit), tries = 0; tries < 6;
       delta *= 0.25, ++tries) {
    const double fp = f(b + delta), fm = f(b - delta);
    if (std::isfinite(fp) && std::isfinite(fm)) {
      phi2 = std::max(phi2, (fp - 2.0 * fb + fm) / (delta * delta));
      break;
    }
  }
  return {b, fb, phi2};
}

Plan plan_contour(Phi& phi, const AliasBound& bound, double gap, const Saddle& saddle, double unit,
                  double tol) {
  const double phi2 = saddle.phi2;
  const double target = saddle.phi + 0.5 * std::log(2.0 * kPi / phi2) + std::log(0.25 * tol);
  // The top of the strip, bracketed by the values so far, narrowed by bisection.
  double finite = saddle.tau, outside = kInf;
  for (const auto& [tau, l] : phi.values())
    if (tau > saddle.tau && !std::isnan(l)) finite = std::max(finite, tau);
  for (const auto& [tau, l] : phi.values())
    if (tau > finite && std::isnan(l)) outside = std::min(outside, tau);
  for (int k = 0; k < 3 && std::isfinite(outside); ++k) {
    const double mid = 0.5 * (finite + outside);
    (std::isnan(phi.ln_c(mid)) ? outside : finite) = mid;
  }
  // The smallest x whose bound at height tau meets the target (infinite if none does).
  auto step_for = [&](double tau) {
    double lo = 0.0, hi = std::sqrt(2.0 * phi2 * std::log(1.0 / tol));
    for (int k = 0; bound.ln_error(gap, tau, hi) > target; ++k) {
      if (k == 60) return kInf;
      lo = hi, hi *= 2.0;
    }
    for (int k = 0; k < 50; ++k) {
      const double mid = 0.5 * (lo + hi);
      (bound.ln_error(gap, tau, mid) > target ? lo : hi) = mid;
    }
    return hi;
  };
  // Heights towards t = 0 from the saddle point, keeping a unit away from it.
  const double side = saddle.tau > 0.0 ? 1.0 : -1.0;
  const double reach = std::max(
      0.0, std::min(std::sqrt(2.0 * std::log(10.0) / phi2), std::fabs(saddle.tau) - 2.0 * unit));
  Plan plan{saddle.tau, std::sqrt(2.0 * phi2 * std::log(4.0 / tol))};
  for (int round = 0; round < 2; ++round) {
    // Where the bounds of the two sides are tightest for the present step: phi'(tau') = +-x, near
    // tau0 +- x/phi'' (farther where ln C is flatter, nearer where it curves up).
    for (double sign : {1.0, -1.0})
      for (double f : {0.25, 0.5, 1.0, 2.0, 4.0}) {
        const double t = saddle.tau + sign * f * plan.x / phi2;
        if (std::fabs(t) >= unit && t > -phi.beta() && t < finite) phi.ln_c(t);
      }
    const Plan last = plan;
    plan = {saddle.tau, step_for(saddle.tau)};
    for (int k = 1; k <= 16 && reach > 0.0; ++k) {
      const double tau = saddle.tau - side * reach * k / 16.0, x = step_for(tau);
      if (x < 0.99 * plan.x) plan = {tau, x};
    }
    if (!std::isfinite(plan.x)) plan = {saddle.tau, last.x};
  }
  return plan;
}

}  // namespace ictvcf::contour_parts
