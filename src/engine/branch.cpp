#include "engine/branch.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace ictvcf {

namespace {

// The argument of b relative to a, in (-pi, pi].
double relative_argument(std::complex<double> a, std::complex<double> b) {
  return std::arg(b * std::conj(a));
}

// The change of argument from a to b. The drift (each mode adds (we - wg) Re t on average, the
// difference of the zero-point phases of the two propagators) is taken out; what is left is
// predicted from the rate of change met on the previous step, the branch nearest to the
// prediction is taken, and the step is halved (the term evaluated at its midpoint) while the
// prediction or the change itself is larger than max_step, or the two disagree. Before any rate
// is known, it is measured over 1/1024 of the first step.
double follow(BranchFollower& f, std::complex<double> a, std::complex<double> det_a,
              std::complex<double> b, std::complex<double> det_b, int depth) {
  const double length = std::abs(b - a);
  if (std::isnan(f.rate) && length > 0.0) {
    const std::complex<double> near = a + (b - a) / 1024.0;
    PointValue v;
    evaluate(f.ctx, std::span<const std::complex<double>>(&near, 1), std::span<PointValue>(&v, 1),
             PointRequest{.determinant_only = true});
    ++f.evaluations;
    const double turn =
        relative_argument(det_a * std::polar(1.0, f.drift * (near.real() - a.real())), v.det);
    f.rate = std::isfinite(turn) ? turn / std::abs(near - a) : 0.0;
  }
  const double drift = f.drift * (b.real() - a.real());
  const double wrapped = relative_argument(det_a * std::polar(1.0, drift), det_b);
  bool split = !std::isfinite(wrapped);
  double step = wrapped;
  if (!split) {
    const double predicted = f.rate * length;
    step = wrapped +
           2.0 * std::numbers::pi * std::round((predicted - wrapped) / (2.0 * std::numbers::pi));
    split = std::fabs(predicted) > f.max_step || std::fabs(step) > f.max_step ||
            std::fabs(step - predicted) > f.max_step;
  }
  if (split && depth < f.max_depth && length > 0.0) {
    const std::complex<double> mid = 0.5 * (a + b);
    PointValue v;
    evaluate(f.ctx, std::span<const std::complex<double>>(&mid, 1), std::span<PointValue>(&v, 1),
             PointRequest{.determinant_only = true});
    ++f.evaluations;
    return follow(f, a, det_a, mid, v.det, depth + 1) + follow(f, mid, v.det, b, det_b, depth + 1);
  }
  if (split) ++f.failures;
  if (length > 0.0 && std::isfinite(step)) f.rate = step / length;
  return drift + step;
}

}  // namespace

BranchFollower::BranchFollower(EngineContext& context) : ctx(context) {
  for (int j = 0; j < ctx.in.nmode; ++j) drift += ctx.in.omegae[j] - ctx.in.omegag[j];
}

double follow_argument(BranchFollower& f, std::complex<double> a, std::complex<double> det_a,
                       std::complex<double> b, std::complex<double> det_b) {
  return follow(f, a, det_a, b, det_b, 0);
}

std::complex<double> correlation_value(const PointValue& v, double theta) {
  std::complex<double> root = std::sqrt(v.det);
  // theta/2 and the principal argument differ by a multiple of pi: an odd one flips the sign.
  const double turns = std::round((0.5 * theta - std::arg(root)) / std::numbers::pi);
  if (std::fmod(std::fabs(turns), 2.0) == 1.0) root = -root;
  const double half = 0.5 * v.exp2, whole = std::floor(half);
  if (half != whole) root *= 1.4142135623730951;  // sqrt(2)
  return std::ldexp(1.0, static_cast<int>(whole)) * root * std::exp(v.iphase) * v.pairs;
}

double ln_c_imaginary(const PointValue& p) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  if (!p.in_strip || !(p.det.real() > 0.0) || !(p.pairs.real() > 0.0)) return nan;
  const double l = 0.5 * (std::log(p.det.real()) + p.exp2 * std::numbers::ln2) + p.iphase.real() +
                   std::log(p.pairs.real());
  return std::isfinite(l) ? l : nan;
}

}  // namespace ictvcf
