// The rate k(E) = integral dt e^{iEt} C(t) D(t) on a time contour shifted into the complex plane,
// for Gaussian damping D(t) = exp(-sigma^2 t^2 / 2). The integrand is analytic in a strip
// -beta < Im t < tau_max, so the integral is the same along t = s + i tau. Near the saddle point
// tau0, the minimum of the convex phi(tau) = -E tau + ln C(i tau) + sigma^2 tau^2 / 2, the
// integrand no longer oscillates near s = 0 and the small rate comes without cancellation. Along
// the line, C(-s + i tau) = C(s + i tau)*, |integrand(s)| <= integrand(0) exp(-sigma^2 s^2 / 2),
// and the trapezoidal sum converges exponentially in 1/ds; its error is bounded by values of C
// on the imaginary axis, which choose the line's height and the step before the line is sampled.
// Atomic units; no files, no output.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "util/matrix.h"

namespace ictvcf {

struct ContourSettings {
  double sigma = 0.0;  // Gaussian damping, hartree
  double tol = 1e-6;   // relative accuracy asked for
};

// The rate at one gap, with what it took.
struct GapRate {
  double gap = 0.0;       // hartree
  double rate = 0.0;      // atomic units (per atomic unit of time)
  double log_rate = 0.0;  // ln of the rate, meaningful where the rate underflows
  double error = 0.0;     // relative error: bounds on aliasing and window, estimated rounding
  double tau = 0.0;       // the height of its contour (atomic units of time)
  double saddle = 0.0;    // its band centre's saddle point; the contour lies between it and 0
  double step = 0.0;      // the final step along the contour
  double window = 0.0;    // the extent of the contour, s = 0 .. window
};

// The pair integrals of the rate, k = sum_jk rif_j rif_k K(j,k) over the pairs the mask selects,
// at one gap (lower triangle of K and of its estimated absolute error, atomic units).
struct PairIntegrals {
  Matrix<double> k, error;
};

struct ContourResult {
  std::vector<GapRate> rates;  // in the order of the gaps asked for
  int contours = 0;            // contours used (one per band of gaps)
  std::int64_t evaluations = 0;
  std::vector<std::string> warnings;  // accuracy not reached, branch not followed, ...
  PairIntegrals pairs;                // with `with_pairs`, for the first gap
};

// The rates at `gaps` (hartree), each to the relative accuracy asked for. Neighbouring gaps
// share a contour. With `with_pairs` (one gap only) the pair integrals are accumulated on the
// same contour and grid. Throws FatalError (status 2) when no saddle point can be found: the
// strip of convergence too narrow, a coupling that vanishes, or values that are not finite.
ContourResult contour_rates(EngineContext& ctx, const ContourSettings& settings,
                            std::span<const double> gaps, bool with_pairs = false);

}  // namespace ictvcf
