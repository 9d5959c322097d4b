#include <algorithm>

#include "rate/contour_parts.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf::contour_parts {

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

void Band::integrate(std::span<const double> gaps, std::span<const double> tols, double centre,
                     double phi2, double x, double lifted, std::span<GapRate> out,
                     PairIntegrals* pairs) {
  const double sigma = set_.sigma;
  // First step: x = 2 pi/h for the centre (from the plan). A gap at an offset d from the centre
  // meets the tilted spectrum's Gaussian side d nearer, so its period must reach sqrt(d^2 + x_g^2)
  // beyond it, x_g the centre's x rescaled to the gap's own accuracy (aliasing falls as
  // e^{-x^2/(2 phi'')}).
  h_ = kInf;
  for (std::size_t g = 0; g < gaps.size(); ++g) {
    const double offset = std::fabs(gaps[g] - centre);
    const double xg = x * std::sqrt(std::log(4.0 / tols[g]) / std::log(4.0 / tols[0]));
    h_ = std::min(h_, 2.0 * kPi / (offset + std::sqrt(offset * offset + xg * xg)));
  }
  // Window: the bound |integrand(s)| <= integrand(0) exp(-sigma^2 s^2/2) under a fifth of the
  // accuracy times the rate (expected, then found).
  auto window_for = [&](double relative_error) {
    const double x = 0.2 * relative_error;
    double s = 3.0 / sigma;
    for (int it = 0; it < 8; ++it)
      s = std::sqrt(2.0 * std::max(std::log(2.0 / (sigma * sigma * s * x)), 1.0)) / sigma;
    return s;
  };
  // The smallest absolute error asked for, relative to the integrand at s = 0 (the rates
  // expected from the saddle point's Gaussian).
  double expected = kInf;
  for (std::size_t g = 0; g < gaps.size(); ++g) {
    const double d = gaps[g] - centre;
    expected = std::min(
        expected, tols[g] * std::sqrt(2.0 * kPi / phi2) * std::exp(-0.5 * d * d / phi2 - lifted));
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
    double allowed = kInf;  // the smallest error asked for, relative to the integrand at s = 0
    for (std::size_t g = 0; g < gaps.size(); ++g) {
      fine[g] = sums(gaps[g], levels_);
      const double cancellation = 1e-15 * fine[g].magnitude / std::fabs(fine[g].sum);
      if (g > 0 && !(cancellation <= 0.1 * tols[g])) rejected_[g] = true;
      if (!rejected_[g]) allowed = std::min(allowed, tols[g] * std::fabs(h_ * fine[g].sum));
    }
    // The window, checked against the rates found: widened where it is too short.
    if (relative_tail(static_cast<double>(count) * h_) > 0.2 * allowed && count < kMaxPoints) {
      const std::int64_t wider = std::min(
          kMaxPoints,
          std::max(count + 1, static_cast<std::int64_t>(std::ceil(window_for(allowed) / h_))));
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
      if (!(error[g] <= tols[g]) && !(cancellation > 0.5 * tols[g])) done = false;
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

}  // namespace ictvcf::contour_parts
