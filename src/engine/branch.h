// The branch of the square root of the determinant term along a path of times. Between two
// evaluated points the argument of the term may wind; a step whose change of argument looks
// larger than a fraction of pi is split, with the term evaluated at the midpoint, until every
// piece is small, so the argument is continued without ever jumping a branch.
#pragma once

#include <complex>
#include <cstdint>

#include "engine/engine.h"

namespace ictvcf {

struct BranchFollower {
  EngineContext& ctx;
  double max_step = 1.0471975511965976;  // pi/3: the largest change of argument taken as it is
  int max_depth = 24;                    // halvings of one step before giving up
  std::int64_t evaluations = 0;          // midpoints evaluated so far
  std::int64_t failures = 0;             // steps that could not be resolved
};

// The continuous change of arg(det) from time a to time b (det_a, det_b the determinant
// mantissas there), splitting the step where needed.
double follow_argument(BranchFollower& f, std::complex<double> a, std::complex<double> det_a,
                       std::complex<double> b, std::complex<double> det_b);

// C = sqrt(det 2^exp2) e^{iphase} pairs with the square root on the branch whose argument is
// theta/2 (theta the continued argument of det). Evaluated as a product of the principal root
// and a power of two, so that no large exponent or angle costs digits.
std::complex<double> correlation_value(const PointValue& v, double theta);

}  // namespace ictvcf
