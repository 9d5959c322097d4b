#include "rate/contour.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>

#include "engine/branch.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using cplx = std::complex<double>;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kLn2 = 0.6931471805599453;
constexpr double kPi = std::numbers::pi;
// A band of gaps shares a contour while the contour's phi at its gaps stays within ln(1e3) of
// their own minimum: at most three of the sixteen digits lost to cancellation.
constexpr double kBandCancellation = 6.907755278982137;
constexpr int kMaxHalvings = 12;
constexpr std::int64_t kMaxPoints = std::int64_t{1} << 18;

double beta_of(const EngineInputs& in) { return kelvin_per_hartree / in.temp; }

double highest_frequency(const EngineInputs& in) {
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

  // Integrates the band's gaps; `centre` is the gap whose saddle the contour is planned for,
  // `phi2` its phi'', `x` = 2 pi/h the first step for it, `lifted` how far phi at the contour is
  // above its minimum. With `pairs`, also the pair integrals of the first gap.
  void integrate(std::span<const double> gaps, double centre, double phi2, double x, double lifted,
                 std::span<GapRate> out, PairIntegrals* pairs);
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

void Band::follow(std::size_t i) {
  Sample& x = samples_[i];
  if (i == 0) {
    x.theta = std::arg(x.v.det);  // at s = 0 the term is real and positive
  } else {
    const Sample& left = samples_[i - 1];
    x.theta = left.theta +
              follow_argument(follower_, cplx(left.s, tau_), left.v.det, cplx(x.s, tau_), x.v.det);
  }
  const cplx t(x.s, tau_);
  x.lng = 0.5 * (cplx(std::log(std::abs(x.v.det)), x.theta) + x.v.exp2 * kLn2) + x.v.iphase -
          0.5 * set_.sigma * set_.sigma * t * t;
}

// Evaluates the samples at s_new (increasing), merges them in and follows the branch through
// each from its left neighbour; a right neighbour that was there before must then be met with
// the argument it has, or every later sample's branch is corrected.
void Band::add_points(const std::vector<double>& s_new, int level) {
  std::vector<Sample> merged;
  merged.reserve(samples_.size() + s_new.size());
  std::vector<std::size_t> at;  // where the new samples stand in `merged`
  std::size_t old = 0;
  for (double s : s_new) {
    while (old < samples_.size() && samples_[old].s < s) merged.push_back(samples_[old++]);
    at.push_back(merged.size());
    Sample x;
    x.s = s;
    x.level = level;
    merged.push_back(x);
  }
  while (old < samples_.size()) merged.push_back(samples_[old++]);
  samples_ = std::move(merged);

  const std::size_t n = static_cast<std::size_t>(ctx_.in.nmode);
  const std::size_t chunk = pairs_ ? pair_chunk() : s_new.size();
  std::vector<cplx> times, terms;
  std::vector<PointValue> values;
  for (std::size_t first = 0; first < s_new.size(); first += chunk) {
    const std::size_t count = std::min(chunk, s_new.size() - first);
    times.resize(count);
    values.resize(count);
    for (std::size_t k = 0; k < count; ++k) times[k] = cplx(s_new[first + k], tau_);
    PointRequest request;
    if (pairs_) {
      terms.resize(count * n * n);
      request.pair_terms = terms.data();
    }
    evaluate(ctx_, times, values, request);
    evaluations_ += static_cast<std::int64_t>(count);
    for (std::size_t k = 0; k < count; ++k) {
      const std::size_t i = at[first + k];
      samples_[i].v = values[k];
      follow(i);
      // A neighbour on the right from an earlier level: the branches must agree.
      if (i + 1 < samples_.size() && samples_[i + 1].level < level) {
        Sample& right = samples_[i + 1];
        const double arrive = samples_[i].theta +
                              follow_argument(follower_, cplx(samples_[i].s, tau_),
                                              samples_[i].v.det, cplx(right.s, tau_), right.v.det);
        const double turns = std::round((arrive - right.theta) / (2.0 * kPi));
        if (turns != 0.0) {
          branch_corrected_ = true;
          for (std::size_t j = i + 1; j < samples_.size(); ++j) {
            if (samples_[j].level == level) continue;  // not evaluated yet
            samples_[j].theta += 2.0 * kPi * turns;
            samples_[j].lng += cplx(0.0, kPi * turns);
          }
        }
      }
    }
    if (pairs_) accumulate_pairs(first, count, at, terms);
  }
  evaluations_ += follower_.evaluations;
  follower_.evaluations = 0;
}

void Band::accumulate_pairs(std::size_t first, std::size_t count,
                            const std::vector<std::size_t>& at, const std::vector<cplx>& terms) {
  const std::size_t n = static_cast<std::size_t>(ctx_.in.nmode);
  const Sample& zero = samples_[0];
  for (std::size_t k = 0; k < count; ++k) {
    const Sample& x = samples_[at[first + k]];
    std::vector<double>& acc = pair_levels_[static_cast<std::size_t>(x.level)];
    const double w = x.s == 0.0 ? 1.0 : 2.0;
    const cplx c = w * std::exp(cplx(0.0, pair_gap_ * x.s) + x.lng - zero.lng);
    const cplx* p = terms.data() + k * n * n;
    for (std::size_t col = 0; col < n; ++col)
      for (std::size_t row = col; row < n; ++row)
        acc[row + col * n] += (c * p[row + col * n]).real();
  }
}

// The pair integrals again over every sample, once the branches are final.
void Band::repass_pairs() {
  for (auto& acc : pair_levels_) std::fill(acc.begin(), acc.end(), 0.0);
  const std::size_t n = static_cast<std::size_t>(ctx_.in.nmode);
  const std::size_t chunk = pair_chunk();
  std::vector<cplx> times, terms;
  std::vector<PointValue> values;
  std::vector<std::size_t> at(samples_.size());
  for (std::size_t i = 0; i < at.size(); ++i) at[i] = i;
  for (std::size_t first = 0; first < samples_.size(); first += chunk) {
    const std::size_t count = std::min(chunk, samples_.size() - first);
    times.resize(count);
    values.resize(count);
    terms.resize(count * n * n);
    for (std::size_t k = 0; k < count; ++k) times[k] = cplx(samples_[first + k].s, tau_);
    evaluate(ctx_, times, values, PointRequest{.pair_terms = terms.data()});
    evaluations_ += static_cast<std::int64_t>(count);
    accumulate_pairs(first, count, at, terms);
  }
}

Sums Band::sums(double gap, int level) const {
  const Sample& zero = samples_[0];
  Sums out;
  for (const Sample& x : samples_) {
    if (x.level > level) continue;
    const double w = x.s == 0.0 ? 1.0 : 2.0;
    const cplx term = std::exp(cplx(0.0, gap * x.s) + x.lng - zero.lng) * x.v.pairs;
    out.sum += w * term.real() / zero.v.pairs.real();
    out.magnitude += w * std::abs(term) / zero.v.pairs.real();
  }
  return out;
}

void Band::integrate(std::span<const double> gaps, double centre, double phi2, double x,
                     double lifted, std::span<GapRate> out, PairIntegrals* pairs) {
  const double tol = set_.tol, sigma = set_.sigma;
  // First step: x = 2 pi/h for the centre (from the plan), one period beyond the farthest gap.
  double offset = 0.0;
  for (double g : gaps) offset = std::max(offset, std::fabs(g - centre));
  h_ = 2.0 * kPi / (offset + std::sqrt(offset * offset + x * x));
  // Window: the bound |integrand(s)| <= integrand(0) exp(-sigma^2 s^2/2) under a fifth of the
  // accuracy times the rate (expected, then found).
  auto window_for = [&](double relative_rate) {
    const double x = 0.2 * tol * relative_rate;
    double s = 3.0 / sigma;
    for (int it = 0; it < 8; ++it)
      s = std::sqrt(2.0 * std::max(std::log(2.0 / (sigma * sigma * s * x)), 1.0)) / sigma;
    return s;
  };
  double expected = kInf;
  for (double g : gaps) {
    const double d = g - centre;
    expected =
        std::min(expected, std::sqrt(2.0 * kPi / phi2) * std::exp(-0.5 * d * d / phi2 - lifted));
  }
  if (pairs) {
    pairs_ = pairs;
    pair_gap_ = gaps[0];
  }
  auto grid = [&](std::int64_t from, std::int64_t to, std::int64_t every) {
    std::vector<double> s;
    for (std::int64_t k = from; k <= to; k += every) s.push_back(static_cast<double>(k) * h_);
    return s;
  };
  const std::size_t n = static_cast<std::size_t>(ctx_.in.nmode);
  pair_levels_.assign(pairs ? 1 : 0, std::vector<double>(pairs ? n * n : 0, 0.0));
  std::int64_t count = static_cast<std::int64_t>(std::ceil(window_for(expected) / h_));
  add_points(grid(0, count, 1), 0);

  // A gap whose sum cancels beyond the accuracy asked for is left to a contour of its own
  // (rejected); the centre never is.
  rejected_.assign(gaps.size(), false);
  std::vector<double> error(gaps.size(), kInf);
  std::vector<Sums> fine(gaps.size());
  for (;;) {
    double smallest = kInf;
    for (std::size_t g = 0; g < gaps.size(); ++g) {
      fine[g] = sums(gaps[g], levels_);
      const double cancellation = 1e-15 * fine[g].magnitude / std::fabs(fine[g].sum);
      if (g > 0 && !(cancellation <= 0.1 * tol)) rejected_[g] = true;
      if (!rejected_[g]) smallest = std::min(smallest, std::fabs(h_ * fine[g].sum));
    }
    // The window, checked against the rates found: widened where it is too short.
    if (relative_tail(static_cast<double>(count) * h_) > 0.2 * tol * smallest &&
        count < kMaxPoints) {
      const std::int64_t wider = std::min(
          kMaxPoints,
          std::max(count + 1, static_cast<std::int64_t>(std::ceil(window_for(smallest) / h_))));
      // Each new point belongs to the coarsest level whose grid holds it.
      std::vector<std::vector<double>> by_level(static_cast<std::size_t>(levels_) + 1);
      for (std::int64_t k = count + 1; k <= wider; ++k) {
        int level = levels_;
        for (std::int64_t m = k; level > 0 && m % 2 == 0; m /= 2) --level;
        by_level[static_cast<std::size_t>(level)].push_back(static_cast<double>(k) * h_);
      }
      count = wider;
      for (int l = 0; l <= levels_; ++l)
        if (!by_level[static_cast<std::size_t>(l)].empty())
          add_points(by_level[static_cast<std::size_t>(l)], l);
      continue;
    }
    bool done = true;
    for (std::size_t g = 0; g < gaps.size(); ++g) {
      if (rejected_[g]) continue;
      const double k_rel = h_ * fine[g].sum;
      const double cancellation = 1e-15 * fine[g].magnitude / std::fabs(fine[g].sum);
      // The aliasing bounded from the imaginary axis, relative to the rate.
      error[g] =
          k_rel > 0.0
              ? std::exp(bound_.ln_error(gaps[g], tau_, 2.0 * kPi / h_) - ln_at_zero(gaps[g])) /
                        k_rel +
                    cancellation + relative_tail(static_cast<double>(count) * h_) / k_rel
              : kInf;
      // A finer step cannot help where the sum cancels to below the accuracy asked for (lines
      // far narrower than their spacing, the gap between them): that gap is final.
      if (!(error[g] <= tol) && !(cancellation > 0.5 * tol)) done = false;
    }
    if (done || levels_ >= kMaxHalvings || 2 * count > kMaxPoints) break;
    // Halve the step: the midpoints form the next level.
    h_ *= 0.5;
    ++levels_;
    count *= 2;
    if (pairs) pair_levels_.emplace_back(n * n, 0.0);
    add_points(grid(1, count - 1, 2), levels_);
  }
  if (pairs && branch_corrected_) repass_pairs();

  const Sample& zero = samples_[0];
  for (std::size_t g = 0; g < gaps.size(); ++g) {
    GapRate& r = out[g];
    r.gap = gaps[g];
    r.tau = tau_;
    r.step = h_;
    r.window = static_cast<double>(count) * h_;
    r.error = rejected_[g] ? std::numeric_limits<double>::quiet_NaN() : error[g];
    const double base = ln_at_zero(gaps[g]);
    const double k_rel = h_ * fine[g].sum;
    r.log_rate = k_rel > 0.0 ? base + std::log(k_rel) : -kInf;
    r.rate = k_rel > 0.0 ? std::exp(r.log_rate) : std::exp(base) * k_rel;
  }
  if (follower_.failures > 0)
    warnings_.push_back(
        printed("the branch of the square root could not be followed at %lld places on the contour "
                "tau = %.6g au: the rate may have the wrong sign or size",
                static_cast<long long>(follower_.failures), tau_));

  if (pairs) {
    // K = F h sum_l acc_l, F the integrand at s = 0; its error as the rate's, relative.
    const double scale = std::exp(zero.lng.real() - gaps[0] * tau_);
    pairs->k = Matrix<double>(static_cast<int>(n), static_cast<int>(n));
    pairs->error = Matrix<double>(static_cast<int>(n), static_cast<int>(n));
    for (std::size_t i = 0; i < n * n; ++i) {
      double all = 0.0;
      for (const std::vector<double>& acc : pair_levels_) all += acc[i];
      pairs->k.data[i] = scale * h_ * all;
      pairs->error.data[i] = error[0] * std::fabs(pairs->k.data[i]);
    }
  }
}

// The rates of the gaps on contours of this crossing (inputs checked).
ContourResult direct_rates(EngineContext& ctx, const ContourSettings& settings,
                           std::span<const double> gaps, bool with_pairs) {
  ContourResult result;
  result.rates.resize(gaps.size());
  if (gaps.empty()) return result;
  const double unit = 0.5 / highest_frequency(ctx.in);
  Phi phi(ctx, settings.sigma, result.evaluations);
  const AliasBound bound(phi, settings.sigma);

  // Gaps in increasing order; the first gap asked for anchors the first band.
  std::vector<std::size_t> order(gaps.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](auto x, auto y) { return gaps[x] < gaps[y]; });
  std::vector<bool> served(gaps.size(), false), rejected(gaps.size(), false);

  auto serve = [&](double centre, double lo, double hi, bool pairs) {
    const Saddle saddle = find_saddle(phi, centre, unit, settings.sigma);
    const double reach = std::sqrt(2.0 * kBandCancellation * saddle.phi2);
    // The centre first (the pair integrals belong to it), then every gap within reach.
    std::vector<double> band;
    std::vector<std::size_t> index;
    auto take = [&](std::size_t i) {
      served[i] = true;
      band.push_back(gaps[i]);
      index.push_back(i);
    };
    for (std::size_t i : order)
      if (!served[i] && gaps[i] == centre && band.empty()) take(i);
    if (!pairs)
      for (std::size_t i : order)
        if (!served[i] && gaps[i] >= std::min(lo, centre - reach) &&
            gaps[i] <= std::max(hi, centre + reach))
          take(i);
    std::vector<GapRate> rates(band.size());
    const Plan plan = plan_contour(phi, bound, centre, saddle, unit, settings.tol);
    const double lifted = phi(centre, plan.tau) - saddle.phi;  // the integrand at s = 0, raised
    Band b(ctx, settings, bound, plan.tau, result.evaluations, result.warnings);
    b.integrate(band, centre, saddle.phi2, plan.x, std::isfinite(lifted) ? lifted : 0.0, rates,
                pairs ? &result.pairs : nullptr);
    for (GapRate& r : rates) r.saddle = saddle.tau;
    for (std::size_t k = 0; k < band.size(); ++k) {
      result.rates[index[k]] = rates[k];
      if (b.rejected(k)) served[index[k]] = false, rejected[index[k]] = true;
    }
    ++result.contours;
    return reach;
  };

  double reach = serve(gaps[0], gaps[0], gaps[0], with_pairs);
  if (with_pairs) return result;
  // The other bands may take ten times what the first one took (gaps in the cancelling valleys
  // of narrow lines each need a contour of their own); the rest is left out, and said so.
  const std::int64_t budget = 11 * std::max<std::int64_t>(result.evaluations, 2000);
  // Outwards from the anchor: each next band centred about one reach beyond the last served gap.
  for (int side : {+1, -1}) {
    while (result.evaluations < budget) {
      std::size_t next = gaps.size();
      for (std::size_t k = 0; k < order.size(); ++k) {
        const std::size_t i = side > 0 ? order[k] : order[order.size() - 1 - k];
        if (!served[i] && (side > 0 ? gaps[i] > gaps[0] : gaps[i] < gaps[0])) {
          next = i;
          break;
        }
      }
      if (next == gaps.size()) break;
      // The centre: the gap nearest to one reach beyond the first unserved one, or that gap
      // itself when a band has already left it for its cancellation.
      const double target = gaps[next] + side * reach;
      std::size_t centre = next;
      if (!rejected[next])
        for (std::size_t i : order)
          if (!served[i] && std::fabs(gaps[i] - target) < std::fabs(gaps[centre] - target))
            centre = i;
      reach = serve(gaps[centre], std::min(gaps[next], gaps[centre]),
                    std::max(gaps[next], gaps[centre]), false);
    }
  }
  const double nan = std::numeric_limits<double>::quiet_NaN();
  int left_out = 0;
  for (std::size_t i = 0; i < gaps.size(); ++i)
    if (!served[i]) {
      ++left_out;
      GapRate& r = result.rates[i];
      r.gap = gaps[i];
      r.rate = r.log_rate = r.error = nan;
    }
  if (left_out > 0)
    result.warnings.push_back(
        printed("%d of the %zu gaps were left out (not a number in the file) after %lld engine "
                "evaluations: their rates cancel to below the accuracy on every contour tried",
                left_out, gaps.size(), static_cast<long long>(result.evaluations)));
  int missed = 0;
  double worst = 0.0;
  for (const GapRate& r : result.rates)
    if (!std::isnan(r.rate) && !(r.error <= settings.tol)) {
      ++missed;
      worst = std::max(worst, std::isfinite(r.log_rate) ? r.error : kInf);
    }
  if (missed > 0 && !(result.rates[0].error <= settings.tol))
    result.warnings.push_back(
        printed("the rate at %.6g cm-1 reached an estimated relative error of %.3g only, not the "
                "tolerance %.3g",
                gaps[0] * au2cm, result.rates[0].error, settings.tol));
  if (missed > (result.rates[0].error <= settings.tol ? 0 : 1))
    result.warnings.push_back(printed(
        "the tolerance %.3g was not reached at %d of the %zu gaps (largest estimated relative "
        "error %.3g%s): where lines are much narrower than their spacing, the rate between them "
        "is so far below its neighbours that no contour avoids cancellation",
        settings.tol, missed, gaps.size(), worst,
        std::isinf(worst) ? ", or a rate not positive" : ""));
  return result;
}

// S S^T = 1 within 1e-6: the reverse crossing's S^T is then S^-1 (a Duschinsky matrix of two
// frequency calculations is orthogonal to their rounding).
bool orthogonal(const Matrix<double>& s) {
  for (int i = 1; i <= s.rows; ++i)
    for (int j = 1; j <= s.rows; ++j) {
      double x = i == j ? -1.0 : 0.0;
      for (int k = 1; k <= s.cols; ++k) x += s(i, k) * s(j, k);
      if (!(std::fabs(x) <= 1e-6)) return false;
    }
  return true;
}

// ln sinh(x), x > 0, without overflow.
double ln_sinh(double x) { return x + std::log1p(-std::exp(-2.0 * x)) - kLn2; }

}  // namespace

EngineInputs reverse_crossing(const EngineInputs& in) {
  EngineInputs out = in;
  const int n = in.nmode;
  std::swap(out.omegag, out.omegae);
  for (int j = 1; j <= n; ++j)
    for (int k = 1; k <= n; ++k) out.s(j, k) = in.s(k, j);
  for (int j = 0; j < n; ++j) {
    out.d[j] = 0.0;
    for (int k = 0; k < n; ++k) out.d[j] -= in.s(k + 1, j + 1) * in.d[k];
  }
  if (in.op.kind == OperatorKind::dipole && !in.op.dmu.empty()) {
    for (std::size_t c = 0; c < 3; ++c) {
      const double* m = in.op.dmu.data() + c * n;
      double* sm = out.op.dmu.data() + c * n;
      for (int j = 0; j < n; ++j) {
        sm[j] = 0.0;
        for (int k = 0; k < n; ++k) sm[j] += in.s(j + 1, k + 1) * m[k];
        out.op.mu0[c] -= sm[j] * in.d[j];
      }
    }
  }
  return out;
}

double ln_partition_ratio(const EngineInputs& in) {
  const double beta = beta_of(in);
  double l = 0.0;
  for (int j = 0; j < in.nmode; ++j)
    l += ln_sinh(0.5 * beta * in.omegag[j]) - ln_sinh(0.5 * beta * in.omegae[j]);
  return l;
}

ContourResult contour_rates(EngineContext& ctx, const ContourSettings& settings,
                            std::span<const double> gaps, bool with_pairs) {
  if (gaps.empty()) return {};
  if (!(settings.sigma > 0.0))
    throw FatalError("ictvcf rate: the contour needs a Gaussian damping of positive width", 2);
  if (!(ctx.in.temp >= 0.0))
    throw FatalError(
        printed("ictvcf rate: temp = %g K: the temperature must be 0 or more", ctx.in.temp), 2);
  const double wmax = highest_frequency(ctx.in);
  if (!(wmax > 0.0)) throw FatalError("ictvcf rate: no vibrational frequency above zero", 2);
  if (with_pairs || ctx.in.op.kind == OperatorKind::coupling || !(ctx.in.temp > 0.0) ||
      !orthogonal(ctx.in.s))
    return direct_rates(ctx, settings, gaps, with_pairs);

  // The gap whose saddle point is -beta/2: phi'(-beta/2) = -E + L'(-beta/2) - sigma^2 beta/2 = 0
  // (L = ln C(i tau), a central difference). Gaps below it go to the reverse crossing.
  const double beta = beta_of(ctx.in), sigma = settings.sigma, delta = 0.5 / wmax;
  std::int64_t probes = 0;
  Phi phi(ctx, sigma, probes);
  const double split =
      (phi.ln_c(-0.5 * beta + delta) - phi.ln_c(-0.5 * beta - delta)) / (2.0 * delta) -
      0.5 * sigma * sigma * beta;
  std::vector<double> forward, reverse;
  std::vector<std::size_t> at(gaps.size());
  for (std::size_t i = 0; i < gaps.size(); ++i) {
    // Not a number (the values at -beta/2 not finite): every gap on this crossing's contours.
    const bool back = gaps[i] < split;
    at[i] = back ? reverse.size() : forward.size();
    (back ? reverse : forward).push_back(back ? -gaps[i] - beta * sigma * sigma : gaps[i]);
  }
  if (reverse.empty()) {
    ContourResult r = direct_rates(ctx, settings, gaps, false);
    r.evaluations += probes;
    return r;
  }
  const EngineInputs back_in = reverse_crossing(ctx.in);
  EngineContext back_ctx(back_in, ctx.threads);
  const ContourResult f = direct_rates(ctx, settings, forward, false);
  const ContourResult b = direct_rates(back_ctx, settings, reverse, false);
  ContourResult result;
  result.contours = f.contours + b.contours;
  result.evaluations = f.evaluations + b.evaluations + probes;
  result.warnings = f.warnings;
  for (const std::string& w : b.warnings)
    result.warnings.push_back("on the reverse crossing (detailed balance): " + w);
  const double ln_z = -ln_partition_ratio(ctx.in);  // ln(Z1/Z2)
  for (std::size_t i = 0; i < gaps.size(); ++i) {
    const bool back = gaps[i] < split;
    GapRate r = (back ? b : f).rates[at[i]];
    if (back) {
      const double ln_factor = ln_z + beta * gaps[i] + 0.5 * beta * beta * sigma * sigma;
      r.gap = gaps[i];
      r.log_rate += ln_factor;
      r.rate = std::isfinite(r.log_rate) ? std::exp(r.log_rate) : r.rate * std::exp(ln_factor);
      r.reversed = true;
    }
    result.rates.push_back(r);
  }
  return result;
}

}  // namespace ictvcf
