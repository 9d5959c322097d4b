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

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "util/matrix.h"

namespace ictvcf {

struct ContourSettings {
  double sigma = 0.0;  // Gaussian damping, hartree
  double tol = 1e-6;   // relative accuracy asked for, at the first gap
  // At the other gaps (a scan around the first): the larger of this and tol; 0 for tol.
  double scan_tol = 0.0;
  double tol_at(std::size_t gap) const { return gap == 0 ? tol : std::max(tol, scan_tol); }
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
  // From the reverse crossing by detailed balance (see contour_rates); tau, saddle, step and
  // window are then those of the reverse crossing's contour, at the gap -gap - beta sigma^2.
  bool reversed = false;
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

// The rates at `gaps` (hartree), each to the relative accuracy asked for (settings.tol_at).
// Neighbouring gaps share a contour. With `with_pairs` (one gap only) the pair integrals are
// accumulated on the same contour and grid. Throws FatalError (status 2) when no saddle point can
// be found: the strip of convergence too narrow, a coupling that vanishes, or values that are not
// finite.
//
// Gaps of either sign. Below the mean of the spectrum the saddle point lies at tau0 < 0, and the
// engine's strip ends at -beta; but C continues beyond it: C_21(-i beta - t) = (Z1/Z2) C_12(t),
// C_12 the correlation function of the reverse crossing (the states swapped, see
// reverse_crossing), so that with Gaussian lines
//   k_21(E) = (Z1/Z2) e^{beta E + beta^2 sigma^2/2} k_12(-E - beta sigma^2)     (exact),
// and phi_21(E, tau) = const + phi_12(-E - beta sigma^2, -beta - tau). For the Franck-Condon and
// the linear operators (not the coupling, whose rates ask for gaps above the spectrum's mean), a
// gap whose saddle point lies below -beta/2 is computed from the reverse crossing, whose saddle
// point then lies above -beta/2, inside its strip, at the same relative accuracy (above 0 K, and
// for an orthogonal S, S S^T = 1 within 1e-6; otherwise every gap on this crossing's contours).
ContourResult contour_rates(EngineContext& ctx, const ContourSettings& settings,
                            std::span<const double> gaps, bool with_pairs = false);

// The reverse crossing (state 1 initial): the frequencies swapped, S -> S^T, d -> -S^T d (S
// orthogonal), and the operator in the new final state's coordinates (Q1 = S^T (Q2 - d): a
// linear operator mu0 + m.Q1 becomes mu0 - (S m).d + (S m).Q2). Franck-Condon and linear
// operators only.
EngineInputs reverse_crossing(const EngineInputs& in);

// ln(Z2/Z1) of the two harmonic states at the inputs' temperature (above 0 K), Z = prod over the
// modes of 1/(2 sinh(beta w/2)), the zero-point energies measured from each state's minimum.
double ln_partition_ratio(const EngineInputs& in);

}  // namespace ictvcf
