// The branch of the square root of the determinant term along a path of times, followed point
// by point in one direction. Between two evaluated points the argument may wind by more than a
// turn; steps are split, with the term evaluated at midpoints, until each piece changes the
// argument by less than a fraction of pi and as its neighbours predict, so the argument is
// continued without jumping a branch.
#pragma once

#include <complex>
#include <cstdint>
#include <limits>

#include "engine/engine.h"

namespace ictvcf {

struct BranchFollower {
  explicit BranchFollower(EngineContext& context);
  EngineContext& ctx;
  double drift = 0.0;  // the argument's mean rate of change along Re t (hartree)
  double rate = std::numeric_limits<double>::quiet_NaN();  // of the rest, on the last step
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

// ln C(i tau) from the value at t = i tau, where C is real and positive inside the strip of
// convergence; not a number outside it, or where the values are not finite.
double ln_c_imaginary(const PointValue& p);

}  // namespace ictvcf
