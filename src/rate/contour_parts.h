// The parts of a shifted-contour rate (the code of `rate/contour.cpp`, for it alone): the tuning
// constants in one place; phi(tau) on the imaginary axis, its saddle point, the bound on the
// trapezoidal sum's aliasing and the plan of a contour (`contour_plan.cpp`); one band of gaps
// integrated on one contour (`contour_band.cpp`). The scheduler over gaps is `contour.cpp`.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <map>
#include <numbers>
#include <span>
#include <string>
#include <vector>

#include "engine/branch.h"
#include "engine/engine.h"
#include "rate/contour.h"
#include "util/constants.h"

namespace ictvcf::contour_parts {

using cplx = std::complex<double>;

// The tuning constants of the contour.
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kLn2 = 0.6931471805599453;
constexpr double kPi = std::numbers::pi;
// A band of gaps shares a contour while the contour's phi at its gaps stays within ln(1e3) of
// their own minimum: at most three of the sixteen digits lost to cancellation.
constexpr double kBandCancellation = 6.907755278982137;
constexpr int kMaxHalvings = 12;
constexpr std::int64_t kMaxPoints = std::int64_t{1} << 18;

inline double beta_of(const EngineInputs& in) { return kelvin_per_hartree / in.temp; }

inline double highest_frequency(const EngineInputs& in) {
  double w = 0.0;
  for (int j = 0; j < in.nmode; ++j) w = std::max({w, in.omegag[j], in.omegae[j]});
  return w;
}

// phi(tau) = -E tau + ln C(i tau) + sigma^2 tau^2 / 2 for the gaps of one calculation, with the
// engine's values of ln C(i tau) kept (the walks of neighbouring gaps meet the same taus).
class Phi {
 public:
  Phi(EngineContext& ctx, double sigma, std::int64_t& evaluations)
      : ctx_(ctx), sigma_(sigma), evaluations_(evaluations), beta_(beta_of(ctx.in)) {}

  double ln_c(double tau) {
    if (!(tau > -beta_)) return std::numeric_limits<double>::quiet_NaN();
    auto it = cache_.find(tau);
    if (it != cache_.end()) return it->second;
    const cplx t(0.0, tau);
    PointValue p;
    evaluate(ctx_, std::span<const cplx>(&t, 1), std::span<PointValue>(&p, 1));
    ++evaluations_;
    return cache_[tau] = ln_c_imaginary(p);
  }
  double operator()(double gap, double tau) {
    const double l = ln_c(tau);
    return std::isnan(l) ? kInf : -gap * tau + l + 0.5 * sigma_ * sigma_ * tau * tau;
  }
  double beta() const { return beta_; }
  // The values of ln C(i tau) met so far (not a number outside the strip).
  const std::map<double, double>& values() const { return cache_; }

 private:
  EngineContext& ctx_;
  double sigma_;
  std::int64_t& evaluations_;
  double beta_;
  std::map<double, double> cache_;
};

struct Saddle {
  double tau = 0.0, phi = 0.0, phi2 = 0.0;
};

// The minimum of the convex phi: a walk from near t = 0 in the downhill direction, doubling tau
// until phi rises or leaves the strip, then golden-section refinement; phi'' from a second
// difference. tau is kept at least `unit` away from 0, where the integrand's formulas are
// singular (phi is flat there: the loss is of order phi'' unit^2).
Saddle find_saddle(Phi& phi, double gap, double unit, double sigma);

// The trapezoidal sum with step h on the line Im t = tau errs, by Poisson's summation formula, by
// sum over m != 0 of e^{-x_m tau} k(E - x_m), x_m = 2 pi m/h: the tilted spectrum one, two, ...
// periods away from the gap. Every term is a rate (the sum over-estimates), and each is bounded
// by values on the imaginary axis: with Gaussian lines, e^{-(u/sigma)^2/2} <= e^{-u tau' +
// sigma^2 tau'^2/2} for every tau', so k(E') <= sqrt(2 pi)/sigma e^{phi_E'(tau')} in the strip and
//   e^{-x tau} k(E - x) <= sqrt(2 pi)/sigma e^{phi_E(tau') - x (tau - tau')}   (tau' < tau),
//   e^{x tau} k(E + x) <= sqrt(2 pi)/sigma e^{phi_E(tau') - x (tau' - tau)}   (tau' > tau),
// x > 0; over m the bounds fall geometrically. The best tau' is where phi'(tau') = -+x; the
// values met so far serve, a few more are asked for where they tighten the bound.
class AliasBound {
 public:
  AliasBound(const Phi& phi, double sigma) : phi_(phi), sigma_(sigma) {}
  // ln of the bound on the error of the trapezoidal sum at the gap, x = 2 pi/h, on Im t = tau;
  // infinite without values of ln C on both sides of the line.
  double ln_error(double gap, double tau, double x) const {
    double up = kInf, down = kInf;
    for (const auto& [t, l] : phi_.values()) {
      const double a = x * std::fabs(tau - t);
      if (std::isnan(l) || !(a > 0.0)) continue;
      const double term =
          -gap * t + l + 0.5 * sigma_ * sigma_ * t * t - a - std::log1p(-std::exp(-a));
      (t > tau ? up : down) = std::min(t > tau ? up : down, term);
    }
    if (!std::isfinite(up) || !std::isfinite(down)) return kInf;
    const double top = std::max(up, down);
    return 0.5 * std::log(2.0 * kPi) - std::log(sigma_) + top +
           std::log1p(std::exp(std::min(up, down) - top));
  }

 private:
  const Phi& phi_;
  double sigma_;
};

// Where to put the contour, and its first step. On the side above the gap the tilted spectrum
// falls as set by the distance to the top of the strip of convergence (an exponential, often the
// slowest to fall), below it about as a Gaussian of variance phi''. A contour delta below the
// saddle point damps the side above by e^{-w delta} and raises the side below by e^{w delta}, at a
// cost in cancellation of e^{phi(tau0 - delta) - phi(tau0)}. Within a factor 10 of that cost, the
// height is the one whose bound allows the coarsest step (for a rate of about its Laplace
// estimate e^{phi(tau0)} sqrt(2 pi/phi'')). A few values locate the top of the strip and the best
// tau' of each side; in all, about twenty evaluations on the imaginary axis.
struct Plan {
  double tau = 0.0;  // the contour's height
  double x = 0.0;    // 2 pi/h of the first step, for the saddle's gap
};

Plan plan_contour(Phi& phi, const AliasBound& bound, double gap, const Saddle& saddle, double unit,
                  double tol);

// One point of the contour t = s + i tau.
struct Sample {
  double s = 0.0;
  int level = 0;  // the halving that introduced it (0: the first grid)
  PointValue v;
  double theta = 0.0;  // continuous argument of the determinant term
  cplx lng;            // ln of sqrt(det 2^exp2) e^{iphase} D(s + i tau)
};

// The trapezoidal sums of one gap on the grid of one level (the samples of that level and the
// coarser ones), relative to the integrand at s = 0.
struct Sums {
  double sum = 0.0, magnitude = 0.0;
};

class Band {
 public:
  Band(EngineContext& ctx, const ContourSettings& set, const AliasBound& bound, double tau,
       std::int64_t& evaluations, std::vector<std::string>& warnings)
      : bound_(bound),
        ctx_(ctx),
        set_(set),
        tau_(tau),
        evaluations_(evaluations),
        warnings_(warnings),
        follower_{ctx} {}

  // Integrates the band's gaps, each to its own relative accuracy `tols`; `centre` (the first
  // gap) is the gap whose saddle the contour is planned for, `phi2` its phi'', `x` = 2 pi/h the
  // first step for it, `lifted` how far phi at the contour is above its minimum. With `pairs`, also
  // the pair integrals of the first gap.
  void integrate(std::span<const double> gaps, std::span<const double> tols, double centre,
                 double phi2, double x, double lifted, std::span<GapRate> out,
                 PairIntegrals* pairs);
  // Whether gap g of the last band was left to a contour of its own.
  bool rejected(std::size_t g) const { return rejected_[g]; }

 private:
  double relative_tail(double window) const {
    const double x = set_.sigma * window;
    return 2.0 * std::exp(-0.5 * x * x) / (set_.sigma * x);
  }
  void add_points(const std::vector<double>& s_new, int level);
  void follow(std::size_t i);
  Sums sums(double gap, int level) const;
  // ln of the integrand at s = 0, phi(tau) for the gap: the scale of the relative sums.
  double ln_at_zero(double gap) const {
    return samples_[0].lng.real() - gap * tau_ + std::log(samples_[0].v.pairs.real());
  }
  void accumulate_pairs(std::size_t first, std::size_t count, const std::vector<std::size_t>& at,
                        const std::vector<cplx>& terms);
  void repass_pairs();
  // Points evaluated together when their pair terms (nmode^2 numbers each) are kept: 64 per
  // thread, within 256 MiB (each batch ends with the threads waiting for the slowest, and with
  // the sum over its points on one thread).
  std::size_t pair_chunk() const {
    const std::size_t per_point = 16 * static_cast<std::size_t>(ctx_.in.nmode) * ctx_.in.nmode;
    const std::size_t threads = static_cast<std::size_t>(std::max(ctx_.threads, 1));
    return std::max(threads, std::min(64 * threads, (std::size_t{256} << 20) / per_point));
  }

  const AliasBound& bound_;
  EngineContext& ctx_;
  const ContourSettings& set_;
  double tau_;
  std::int64_t& evaluations_;
  std::vector<std::string>& warnings_;
  BranchFollower follower_;
  std::vector<Sample> samples_;  // in increasing s
  double h_ = 0.0;               // the finest step
  int levels_ = 0;               // halvings so far
  bool branch_corrected_ = false;
  std::vector<bool> rejected_;
  // Pair integrals: per level, the sum over its samples of w Re(c P_jk) (lower triangle).
  double pair_gap_ = 0.0;
  PairIntegrals* pairs_ = nullptr;
  std::vector<std::vector<double>> pair_levels_;
};

}  // namespace ictvcf::contour_parts
