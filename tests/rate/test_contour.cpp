// The rate on the shifted contour against exact references: a lattice of displaced modes whose
// golden-rule rate is a finite sum to any depth, at 300 K, 2 K and 0 K, from the peak down to
// 1e-25 au; gaps sharing a contour; and the bad inputs that must not give a silent number.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "engine/engine.h"
#include "rate/contour.h"
#include "support/synthetic.h"
#include "util/constants.h"
#include "util/errors.h"

namespace ictvcf {
namespace {

const double pi = std::numbers::pi;

// Accepting modes (frequency in units of the 100 cm-1 lattice, Huang-Rhys factor) and promoting
// modes (undisplaced, with a coupling), equal frequencies in both states, no rotation.
struct Lattice {
  std::vector<int> accepting;
  std::vector<double> huang_rhys;
  std::vector<int> promoting;
  std::vector<double> coupling;
};

const Lattice kMolecule{
    {4, 7, 10, 12, 15, 16, 30}, {0.3, 0.5, 0.2, 0.4, 0.8, 0.3, 0.15}, {9, 13}, {0.03, 0.02}};
constexpr double kUnit = 100.0 / au2cm;  // the lattice, hartree

EngineInputs inputs(const Lattice& m, double temp) {
  std::vector<double> w, d, rif;
  for (std::size_t a = 0; a < m.accepting.size(); ++a) {
    w.push_back(100.0 * m.accepting[a]);
    d.push_back(std::sqrt(2.0 * m.huang_rhys[a] / (m.accepting[a] * kUnit)));
    rif.push_back(0.0);
  }
  for (std::size_t p = 0; p < m.promoting.size(); ++p) {
    w.push_back(100.0 * m.promoting[p]);
    d.push_back(0.0);
    rif.push_back(m.coupling[p]);
  }
  return testing::modes(w, w, d, rif, temp);
}

double occupation(double w, double temp) {
  return temp > 0.0 ? 1.0 / std::expm1(w * kelvin_per_hartree / temp) : 0.0;
}

// The weight of the released energy x = k * unit, k = -depth .. depth (index k + depth): the
// Franck-Condon distributions of the accepting modes convolved, P(m) = exp(-S(2n+1))
// ((n+1)/n)^{m/2} I_m(2 S sqrt(n(n+1))) for m quanta released (Poisson at 0 K), times the
// promoting lines at +-w_p of weights rif^2 w_p/2 (n_p + 1) and rif^2 w_p/2 n_p.
std::vector<double> released(const Lattice& m, double temp, int depth) {
  std::vector<double> p(2 * depth + 1, 0.0), next;
  p[depth] = 1.0;
  for (std::size_t a = 0; a < m.accepting.size(); ++a) {
    const double s = m.huang_rhys[a], n = occupation(m.accepting[a] * kUnit, temp);
    // I_m as its series, so that n -> 0 (low temperature) stays finite.
    std::vector<double> fc(161, 0.0);
    for (int q = -80; q <= 80; ++q) {
      const double up = s * (n + 1.0), down = s * n;
      const int m_abs = std::abs(q);
      double sum = 0.0;
      for (int k = 0; k < 60; ++k) {
        const double lead = q >= 0 ? up : down, other = q >= 0 ? down : up;
        if (lead == 0.0 && m_abs + k > 0) break;
        const double term = (m_abs + k) * std::log(lead) + (k > 0 ? k * std::log(other) : 0.0) -
                            std::lgamma(k + 1.0) - std::lgamma(k + m_abs + 1.0);
        if (k > 0 && other == 0.0) break;
        sum += std::exp(term);
      }
      fc[q + 80] = std::exp(-s * (2.0 * n + 1.0)) * sum;
    }
    next.assign(p.size(), 0.0);
    for (int k = -depth; k <= depth; ++k)
      for (int q = -80; q <= 80; ++q) {
        const int to = k + q * m.accepting[a];
        if (to >= -depth && to <= depth && fc[q + 80] > 0.0)
          next[to + depth] += p[k + depth] * fc[q + 80];
      }
    p.swap(next);
  }
  next.assign(p.size(), 0.0);
  for (std::size_t j = 0; j < m.promoting.size(); ++j) {
    const double w = m.promoting[j] * kUnit, n = occupation(w, temp);
    const double r2 = m.coupling[j] * m.coupling[j] * w / 2.0;
    for (int k = -depth; k <= depth; ++k) {
      const int up = k + m.promoting[j], down = k - m.promoting[j];
      if (up <= depth) next[up + depth] += r2 * (n + 1.0) * p[k + depth];
      if (down >= -depth) next[down + depth] += r2 * n * p[k + depth];
    }
  }
  return next;
}

// The golden rule with Gaussian lines: 2 pi sum_x P(x) g_sigma(E - x).
double golden_rule(const std::vector<double>& p, int depth, double gap, double sigma) {
  double k = 0.0;
  for (int i = -depth; i <= depth; ++i) {
    const double x = (gap - i * kUnit) / sigma;
    k += p[i + depth] * std::exp(-0.5 * x * x) / (sigma * std::sqrt(2.0 * pi));
  }
  return 2.0 * pi * k;
}

// phi(tau) = -E tau + ln C(i tau) + sigma^2 tau^2 / 2 with C(i tau) = sum_x P(x) e^{x tau}: the
// contour's height minimises it.
double phi(const std::vector<double>& p, int depth, double gap, double sigma, double tau) {
  double top = -INFINITY, sum = 0.0;
  for (int i = -depth; i <= depth; ++i)
    if (p[i + depth] > 0.0) top = std::max(top, std::log(p[i + depth]) + i * kUnit * tau);
  for (int i = -depth; i <= depth; ++i)
    if (p[i + depth] > 0.0) sum += std::exp(std::log(p[i + depth]) + i * kUnit * tau - top);
  return -gap * tau + top + std::log(sum) + 0.5 * sigma * sigma * tau * tau;
}

TEST(Contour, LatticeAtAnyTemperatureAndDepth) {
  const double sigma = 150.0 / au2cm;
  const std::vector<double> gaps_cm{2500.0, 9000.0, 18000.0, 30000.0, 45000.0, 56000.0};
  double smallest = 1.0, largest = 0.0;
  for (double temp : {300.0, 2.0, 0.0}) {
    const std::vector<double> p = released(kMolecule, temp, 1200);
    const EngineInputs in = inputs(kMolecule, temp);
    EngineContext ctx(in);
    std::vector<double> gaps;
    for (double g : gaps_cm) gaps.push_back(g / au2cm);
    // Each gap alone, and all of them sharing contours.
    for (bool together : {false, true}) {
      std::vector<GapRate> rates;
      if (together) {
        rates = contour_rates(ctx, ContourSettings{sigma, 1e-9}, gaps).rates;
      } else {
        for (double g : gaps)
          rates.push_back(
              contour_rates(ctx, {sigma, 1e-9}, std::span<const double>(&g, 1)).rates[0]);
      }
      for (std::size_t i = 0; i < gaps.size(); ++i) {
        const double want = golden_rule(p, 1200, gaps[i], sigma);
        smallest = std::min(smallest, want);
        largest = std::max(largest, want);
        EXPECT_NEAR(rates[i].rate / want, 1.0, 1e-8)
            << temp << " K, " << gaps_cm[i] << " cm-1, together " << together;
        EXPECT_LE(rates[i].error, 1e-9);
        // A gap alone has its contour planned from its own saddle point.
        const double tau = rates[i].saddle, at = phi(p, 1200, gaps[i], sigma, tau);
        for (double off : {0.97, 1.03})
          EXPECT_TRUE(together || at <= phi(p, 1200, gaps[i], sigma, off * tau)) << "saddle";
      }
    }
  }
  EXPECT_LT(smallest, 1e-25);
  EXPECT_GT(largest, 1e-5);
}

// The default accuracy is met, at a fraction of the points, and the printed error bounds the true
// one. The line lies below the saddle point, where the spectrum's side above the gap falls faster:
// 243 evaluations at 1e-6, where a line at the saddle point needs 421.
TEST(Contour, EstimatedErrorBoundsTheTrueOne) {
  const double sigma = 150.0 / au2cm, gap = 20000.0 / au2cm;
  const std::vector<double> p = released(kMolecule, 300.0, 1200);
  const double want = golden_rule(p, 1200, gap, sigma);
  const EngineInputs in = inputs(kMolecule, 300.0);
  EngineContext ctx(in);
  for (double tol : {1e-4, 1e-6}) {
    const ContourResult r = contour_rates(ctx, {sigma, tol}, std::span<const double>(&gap, 1));
    EXPECT_LE(r.rates[0].error, tol);
    EXPECT_LE(std::fabs(r.rates[0].rate / want - 1.0), r.rates[0].error) << tol;
    EXPECT_TRUE(r.warnings.empty());
    EXPECT_LT(r.rates[0].tau, r.rates[0].saddle);
    if (tol == 1e-6) {
      EXPECT_LT(r.evaluations, 330);
    }
  }
  // A scan of 2 eV about the gap, its other gaps to 1e-4: each within its own bound, the first
  // still within 1e-6, on few more points than the first alone needs.
  std::vector<double> scan{gap};
  for (int k = -100; k <= 100; ++k)
    if (k != 0) scan.push_back(gap + k * 0.01 / au2ev);
  const ContourResult alone = contour_rates(ctx, {sigma, 1e-6}, std::span<const double>(&gap, 1));
  const ContourResult r = contour_rates(ctx, {sigma, 1e-6, 1e-4}, scan);
  // The first gap keeps its own accuracy (so at least its own points), the others need few more
  // (327 with 1e-6 at every gap).
  EXPECT_GE(r.evaluations, alone.evaluations);
  EXPECT_LT(r.evaluations, 1.15 * alone.evaluations);
  EXPECT_LE(r.rates[0].error, 1e-6);
  for (std::size_t i = 0; i < scan.size(); ++i) {
    const double want_i = golden_rule(p, 1200, scan[i], sigma);
    EXPECT_LE(std::fabs(r.rates[i].rate / want_i - 1.0), r.rates[i].error) << i;
    EXPECT_LE(r.rates[i].error, 1e-4) << i;
  }
  // A neighbour 1 cm-1 away leaves the step and the window to the first gap's own accuracy.
  const double pair[2] = {gap, gap + 1.0 / au2cm};
  const GapRate near = contour_rates(ctx, {sigma, 1e-9, 1e-4}, pair).rates[0];
  EXPECT_LE(near.error, 1e-9);
  EXPECT_NEAR(near.rate / want, 1.0, 1e-8);
  // So hot that the strip ends within the first probe below t = 0 (beta < 1/(2 w_max)): the
  // saddle point is found from the side above.
  const std::vector<double> hot = released(kMolecule, 10000.0, 1200);
  const EngineInputs hot_in = inputs(kMolecule, 10000.0);
  EngineContext hot_ctx(hot_in);
  const double hot_rate =
      contour_rates(hot_ctx, {sigma, 1e-6}, std::span<const double>(&gap, 1)).rates[0].rate;
  EXPECT_NEAR(hot_rate / golden_rule(hot, 1200, gap, sigma), 1.0, 1e-6);
}

// No damping, a negative temperature, no coupling (C vanishes on the imaginary axis: no saddle).
TEST(Contour, InputsThatCannotGiveARate) {
  EngineInputs cold = inputs(kMolecule, -5.0), uncoupled = inputs(kMolecule, 300.0);
  for (double& r : uncoupled.rif) r = 0.0;
  testing::couple(uncoupled);
  const double gap = 0.1;
  for (auto [in, sigma] : {std::pair{&uncoupled, 0.0}, {&cold, 1e-3}, {&uncoupled, 1e-3}}) {
    EngineContext ctx(*in);
    EXPECT_THROW(contour_rates(ctx, {sigma, 1e-6}, std::span<const double>(&gap, 1)), FatalError);
  }
}

}  // namespace
}  // namespace ictvcf
