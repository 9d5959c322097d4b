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

// ln C(i tau) from the integrand at t = i tau: there C is real and positive inside the strip.
// Not a number outside it, or where the values are not finite.
double ln_c_imaginary(const PointValue& p) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  if (!p.in_strip || !(p.det.real() > 0.0) || !(p.pairs.real() > 0.0)) return nan;
  const double l =
      0.5 * (std::log(p.det.real()) + p.exp2 * kLn2) + p.iphase.real() + std::log(p.pairs.real());
  return std::isfinite(l) ? l : nan;
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
  Band(EngineContext& ctx, const ContourSettings& set, double tau, std::int64_t& evaluations,
       std::vector<std::string>& warnings)
      : width_(highest_frequency(ctx.in)),
        ctx_(ctx),
        set_(set),
        tau_(tau),
        evaluations_(evaluations),
        warnings_(warnings),
        follower_{ctx} {}

  // Integrates the band's gaps; `centre` is the gap whose saddle the contour is at, `phi2` its
  // phi''. With `pairs`, also the pair integrals of the first gap.
  void integrate(std::span<const double> gaps, double centre, double phi2, std::span<GapRate> out,
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
  std::vector<double> spectrum() const;
  double alias_error(const std::vector<double>& spectrum, double gap, double k_rel,
                     double width) const;
  void accumulate_pairs(std::size_t first, std::size_t count, const std::vector<std::size_t>& at,
                        const std::vector<cplx>& terms);
  void repass_pairs();
  // Points evaluated together when their pair terms (nmode^2 numbers each) are kept: eight per
  // thread, within 64 MiB.
  std::size_t pair_chunk() const {
    const std::size_t per_point = 16 * static_cast<std::size_t>(ctx_.in.nmode) * ctx_.in.nmode;
    const std::size_t threads = static_cast<std::size_t>(std::max(ctx_.threads, 1));
    return std::max(threads, std::min(8 * threads, (std::size_t{64} << 20) / per_point));
  }

  double width_;  // the largest spacing of neighbouring lines: the highest frequency
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

// In place, iterative radix 2: a_m := sum_k a_k e^{+2 pi i m k / n}, n a power of two.
void fourier(std::vector<cplx>& a) {
  const std::size_t n = a.size();
  for (std::size_t i = 1, j = 0; i < n; ++i) {
    std::size_t bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(a[i], a[j]);
  }
  for (std::size_t len = 2; len <= n; len <<= 1) {
    const cplx w = std::polar(1.0, 2.0 * kPi / static_cast<double>(len));
    for (std::size_t i = 0; i < n; i += len) {
      cplx z(1.0, 0.0);
      for (std::size_t k = 0; k < len / 2; ++k, z *= w) {
        const cplx u = a[i + k], v = a[i + k + len / 2] * z;
        a[i + k] = u + v;
        a[i + k + len / 2] = u - v;
      }
    }
  }
}

// The trapezoidal sums S(x) = sum_k w_k Re(e^{i x s_k} rho_k) of the current grid at every
// x = 2 pi m/(M h), by one Fourier transform (x beyond pi/h wraps around to negative values).
std::vector<double> Band::spectrum() const {
  std::size_t m = 1;
  const std::size_t points = samples_.size();
  while (m < 4 * points) m <<= 1;
  std::vector<cplx> a(m, cplx(0.0, 0.0));
  const Sample& zero = samples_[0];
  for (const Sample& x : samples_) {
    const auto k = static_cast<std::size_t>(std::llround(x.s / h_));
    a[k] = (x.s == 0.0 ? 1.0 : 2.0) * std::exp(x.lng - zero.lng) * x.v.pairs / zero.v.pairs.real();
  }
  fourier(a);
  std::vector<double> out(m);
  for (std::size_t i = 0; i < m; ++i) out[i] = a[i].real();
  return out;
}

// The error of the trapezoidal sum at step h is the weight of the tilted spectrum one period
// 2 pi/h away on either side: a(w) = e^{w tau} k(E + w) + e^{-w tau} k(E - w), relative to k(E),
// at w = 2 pi/h. Every term is a rate, so a(w) >= 0, and on the current grid it is known up to
// the Nyquist limit pi/h. Neighbouring lines are at most the highest frequency W apart, so its
// envelope is the largest a in a window of width W; the envelopes of harmonic progressions are
// log-concave (they fall at least as fast as an exponential whose rate grows), so the envelope
// near pi/h and near pi/2h, continued as an exponential, over-estimates a(2 pi/h). Infinite when
// the grid is too coarse for it.
double Band::alias_error(const std::vector<double>& spectrum, double gap, double k_rel,
                         double width) const {
  const double nyquist = kPi / h_;
  if (nyquist < 6.0 * width) return kInf;
  const auto m = static_cast<double>(spectrum.size());
  auto a = [&](double w) {
    auto at = [&](double x) {
      const auto i = static_cast<std::int64_t>(std::llround(x * m * h_ / (2.0 * kPi)));
      const auto size = static_cast<std::int64_t>(spectrum.size());
      return spectrum[static_cast<std::size_t>(((i % size) + size) % size)];
    };
    return std::fabs(h_ * (at(gap + w) + at(gap - w))) / std::fabs(k_rel);
  };
  const double dw = 2.0 * kPi / (m * h_);  // the grid of the spectrum
  auto envelope = [&](double from, double to) {
    double e = 0.0;
    for (double w = from; w <= to; w += dw) e = std::max(e, a(w));
    return e;
  };
  const double far = 0.5 * envelope(nyquist - width, nyquist);  // a counts both sides at pi/h
  const double half = envelope(0.5 * (nyquist - width), 0.5 * (nyquist + width));
  if (!(half > 0.0) || far >= half) return far;
  // The largest values may sit anywhere in their windows: the shortest continuation (from pi/h)
  // over the longest baseline (from the lower end of the first window) errs on the safe side.
  return far * std::pow(far / half, nyquist / (0.5 * (nyquist + width)));
}

void Band::integrate(std::span<const double> gaps, double centre, double phi2,
                     std::span<GapRate> out, PairIntegrals* pairs) {
  const double tol = set_.tol, sigma = set_.sigma;
  // First step: the tilted spectrum at the contour is about Gaussian with variance phi'', and
  // the trapezoidal sum's error is its weight one period 2 pi/h away from the farthest gap.
  double offset = 0.0;
  for (double g : gaps) offset = std::max(offset, std::fabs(g - centre));
  const double a = 2.0 * phi2 * std::log(1.0 / tol);
  h_ = 2.0 * kPi / (offset + std::sqrt(offset * offset + a));
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
    expected = std::min(expected, std::sqrt(2.0 * kPi / phi2) * std::exp(-0.5 * d * d / phi2));
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
    const std::vector<double> tilted = spectrum();
    for (std::size_t g = 0; g < gaps.size(); ++g) {
      if (rejected_[g]) continue;
      const double k_rel = h_ * fine[g].sum;
      const double cancellation = 1e-15 * fine[g].magnitude / std::fabs(fine[g].sum);
      // Twice the estimated aliasing, for safety.
      error[g] = k_rel > 0.0 ? 2.0 * alias_error(tilted, gaps[g], k_rel, width_) + cancellation +
                                   relative_tail(static_cast<double>(count) * h_) / k_rel
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
    const double base = zero.lng.real() - gaps[g] * tau_ + std::log(zero.v.pairs.real());
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

}  // namespace

ContourResult contour_rates(EngineContext& ctx, const ContourSettings& settings,
                            std::span<const double> gaps, bool with_pairs) {
  ContourResult result;
  result.rates.resize(gaps.size());
  if (gaps.empty()) return result;
  if (!(settings.sigma > 0.0))
    throw FatalError("ictvcf rate: the contour needs a Gaussian damping of positive width", 2);
  if (!(ctx.in.temp >= 0.0))
    throw FatalError(
        printed("ictvcf rate: temp = %g K: the temperature must be 0 or more", ctx.in.temp), 2);
  const double wmax = highest_frequency(ctx.in);
  if (!(wmax > 0.0)) throw FatalError("ictvcf rate: no vibrational frequency above zero", 2);
  const double unit = 0.5 / wmax;
  Phi phi(ctx, settings.sigma, result.evaluations);

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
    Band b(ctx, settings, saddle.tau, result.evaluations, result.warnings);
    b.integrate(band, centre, saddle.phi2, rates, pairs ? &result.pairs : nullptr);
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

}  // namespace ictvcf
