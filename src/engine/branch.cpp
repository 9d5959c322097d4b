#include "engine/branch.h"

#include <cmath>
#include <numbers>

namespace ictvcf {

namespace {

// The argument of b relative to a, in (-pi, pi].
double relative_argument(std::complex<double> a, std::complex<double> b) {
  return std::arg(b * std::conj(a));
}

double follow(BranchFollower& f, std::complex<double> a, std::complex<double> det_a,
              std::complex<double> b, std::complex<double> det_b, int depth) {
  const double step = relative_argument(det_a, det_b);
  if (std::fabs(step) <= f.max_step) return step;
  if (depth >= f.max_depth || !std::isfinite(step)) {
    ++f.failures;
    return step;
  }
  const std::complex<double> mid = 0.5 * (a + b);
  PointValue v;
  evaluate(f.ctx, std::span<const std::complex<double>>(&mid, 1), std::span<PointValue>(&v, 1),
           PointRequest{.determinant_only = true});
  ++f.evaluations;
  return follow(f, a, det_a, mid, v.det, depth + 1) + follow(f, mid, v.det, b, det_b, depth + 1);
}

}  // namespace

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

}  // namespace ictvcf
