#include "rate/contour.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>

#include "engine/branch.h"
#include "rate/contour_parts.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using namespace contour_parts;

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
    std::vector<double> band, tols;
    std::vector<std::size_t> index;
    auto take = [&](std::size_t i) {
      served[i] = true;
      band.push_back(gaps[i]);
      tols.push_back(settings.tol_at(i));
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
    const Plan plan = plan_contour(phi, bound, centre, saddle, unit, tols[0]);
    const double lifted = phi(centre, plan.tau) - saddle.phi;  // the integrand at s = 0, raised
    Band b(ctx, settings, bound, plan.tau, result.evaluations, result.warnings);
    b.integrate(band, tols, centre, saddle.phi2, plan.x, std::isfinite(lifted) ? lifted : 0.0,
                rates, pairs ? &result.pairs : nullptr);
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
  for (std::size_t i = 0; i < gaps.size(); ++i) {
    const GapRate& r = result.rates[i];
    if (!std::isnan(r.rate) && !(r.error <= settings.tol_at(i))) {
      ++missed;
      worst = std::max(worst, std::isfinite(r.log_rate) ? r.error : kInf);
    }
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
        settings.tol_at(1), missed, gaps.size(), worst,
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
