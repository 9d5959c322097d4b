// Rates with the Franck-Condon and linear operators at gaps of either sign: one displaced mode
// against its Bessel and Poisson progressions (evaluated independently to 30 digits), uphill
// included, at 300, 77, 10 and 0 K; and
// detailed balance between a crossing and its reverse, with rotation and frequency changes.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "engine/engine.h"
#include "rate/contour.h"
#include "support/synthetic.h"
#include "util/constants.h"

namespace ictvcf {
namespace {

// The references are stated with the CODATA 2018 conversions.
constexpr double kCm = 219474.6313632, kSecond = 2.4188843265857e-17;
constexpr double kKelvin = 315775.02480407;  // K per hartree

double rate(EngineContext& ctx, double gap, double sigma, bool* reversed = nullptr) {
  const ContourResult r = contour_rates(ctx, {sigma, 1e-9}, std::span<const double>(&gap, 1));
  EXPECT_TRUE(r.warnings.empty()) << r.warnings.front();
  EXPECT_LE(r.rates[0].error, 1e-9);
  if (reversed) *reversed = r.rates[0].reversed;
  return r.rates[0].rate;
}

// 1500 cm-1, Huang-Rhys factor 1.2, 300 K, sigma 200 cm-1, |V| = 1 cm-1: k = |V|^2 2 pi sum_p W_p
// g_sigma(E - p w), W_p = e^{-h(2n+1)} ((n+1)/n)^{p/2} I_|p|(2h sqrt(n(n+1))).
TEST(Crossing, OneDisplacedModeAtGapsOfEitherSign) {
  const double w = 1500 / kCm, sigma = 200 / kCm, v = 1 / kCm;
  EngineInputs in = testing::modes({1500}, {1500}, {std::sqrt(2 * 1.2 / w)}, {0.0}, 0.0);
  in.omegag = in.omegae = {w};
  in.temp = 300.0 * kelvin_per_hartree / kKelvin;  // the references' beta
  in.op.kind = OperatorKind::franck_condon;
  EngineContext ctx(in);
  const double reference[][2] = {{3000, 5.119948719e8},    {6000, 6.152290475e7},
                                 {12000, 7.615810248e4},   {-1500, 6.40622394718e5},
                                 {-3000, 2.88893004668e2}, {-12000, 7.71972400155e-21}};
  for (const auto& [gap, want] : reference) {
    bool reversed = false;
    EXPECT_NEAR(v * v * rate(ctx, gap / kCm, sigma, &reversed) / kSecond / want, 1.0, 1e-8) << gap;
    EXPECT_EQ(reversed, gap < 0) << gap;  // the saddle point of uphill gaps lies below -beta/2
  }
  // Colder, uphill, K itself (au): the Poisson progression at 0 K (no reverse crossing: the strip
  // has no end below), the Bessel one at 10 K (through the reverse crossing) and 77 K.
  const double cold[][3] = {{0.0, -3000, 1.148581123e-46},
                            {10.0, -6000, 3.0603706981e-193},
                            {77.0, -3000, 6.7742411826e-22}};
  for (const auto& [temp, gap, want] : cold) {
    in.temp = temp * kelvin_per_hartree / kKelvin;
    EngineContext at(in);
    bool reversed = false;
    EXPECT_NEAR(rate(at, gap / kCm, sigma, &reversed) / want, 1.0, 1e-8) << temp << " K";
    EXPECT_EQ(reversed, temp > 0.0);
  }
}

// K_21(E) = (Z1/Z2) e^{beta E + beta^2 sigma^2/2} K_12(-E - beta sigma^2), Z = prod 1/(2 sinh(beta
// w/2)), the reverse crossing built here: frequencies swapped, S^T, -S^T d; a dipole mu0 + m.Q1
// becomes mu0 - (S m).d + (S m).Q2. Three modes, rotation, frequency changes, 300 K and 77 K,
// uphill and downhill, down to rates of 1e-25 au.
TEST(Crossing, DetailedBalanceWithRotationAndFrequencyChanges) {
  const double sigma = 150 / au2cm, th = 0.4, c = std::cos(th), s = std::sin(th);
  const std::vector<double> w1{1600, 1100, 450}, w2{1450, 1180, 400};
  const std::vector<double> d{std::sqrt(2 * 0.9 / (1450 / au2cm)),
                              -std::sqrt(2 * 0.4 / (1180 / au2cm)),
                              std::sqrt(2 * 0.7 / (400 / au2cm))};
  const std::vector<std::vector<double>> rot{{c, s, 0}, {-s * c, c * c, s}, {s * s, -s * c, c}};
  double smallest = 1.0;
  for (double temp : {300.0, 77.0})
    for (bool dipole : {false, true}) {
      EngineInputs fwd = testing::modes(w1, w2, d, {0, 0, 0}, temp, rot);
      fwd.op.kind = dipole ? OperatorKind::dipole : OperatorKind::franck_condon;
      if (dipole) {
        fwd.op.mu0 = {0.3, -0.1, 0.0};
        fwd.op.dmu = {0.02, -0.01, 0.0, 0.005, 0.015, -0.02, 0.0, 0.0, 0.0};
      }
      EngineInputs rev = testing::modes(w2, w1, {0, 0, 0}, {0, 0, 0}, temp);
      rev.op = fwd.op;
      for (int j = 1; j <= 3; ++j)
        for (int k = 1; k <= 3; ++k) {
          rev.s(j, k) = fwd.s(k, j);
          rev.d[j - 1] -= fwd.s(k, j) * d[k - 1];
        }
      if (dipole)
        for (int cc = 0; cc < 3; ++cc)
          for (int j = 0; j < 3; ++j) {
            double sm = 0.0;
            for (int k = 0; k < 3; ++k) sm += fwd.s(j + 1, k + 1) * fwd.op.dmu[cc * 3 + k];
            rev.op.dmu[cc * 3 + j] = sm;
            rev.op.mu0[cc] -= sm * fwd.d[j];
          }
      const double beta = kelvin_per_hartree / temp;
      double ln_z1_over_z2 = 0.0;
      for (int j = 0; j < 3; ++j)
        ln_z1_over_z2 +=
            std::log(std::sinh(beta * fwd.omegae[j] / 2) / std::sinh(beta * fwd.omegag[j] / 2));
      EngineContext f(fwd), r(rev);
      for (double gap_cm : {-9000.0, -4000.0, -1000.0, 0.0, 800.0, 2500.0, 7000.0}) {
        const double gap = gap_cm / au2cm, k21 = rate(f, gap, sigma),
                     k12 = rate(r, -gap - beta * sigma * sigma, sigma);
        smallest = std::min(smallest, std::min(k21, k12));
        const double ln_factor = ln_z1_over_z2 + beta * gap + 0.5 * beta * beta * sigma * sigma;
        EXPECT_NEAR(std::log(k21) - std::log(k12) - ln_factor, 0.0, 1e-8)
            << temp << " K, " << gap_cm << " cm-1, dipole " << dipole;
      }
    }
  EXPECT_LT(smallest, 1e-25);
}

}  // namespace
}  // namespace ictvcf
