// The radiative rate and the emission spectrum against closed forms: two levels; one displaced
// mode at 0 K (its Poisson progression, evaluated independently to 30 digits, and the spectrum
// line by line); three modes with Duschinsky rotation and frequency changes, whose cumulants are
// closed traces at any temperature; and the dipole file's bad rows.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "coupling/dipole.h"
#include "engine/engine.h"
#include "rate/radiative.h"
#include "test_support.h"
#include "util/errors.h"
#include "util/text_file.h"

namespace ictvcf {
namespace {

// The references are stated with the CODATA 2018 conversions.
constexpr double kEv = 27.211386245988, kCm = 219474.6313632, kSecond = 2.4188843265857e-17;
constexpr double kKelvin = 315775.02480407;  // K per hartree

// Modes in hartree, Q2 = S Q1 + d, the Franck-Condon dipole (1, 0, 0) au; `temp` in the
// references' kelvin.
EngineInputs system(const std::vector<double>& w1, const std::vector<double>& w2,
                    const std::vector<double>& d, const Matrix<double>& s, double temp) {
  EngineInputs in;
  const int n = static_cast<int>(w1.size());
  in.nmode = n;
  in.omegag = w1;
  in.omegae = w2;
  in.d = d;
  in.rif.assign(n, 0.0);
  in.s = s;
  in.r = Matrix<double>(n, n);
  in.iscal = Matrix<char>(n, n);
  in.temp = temp * 315774.98 / kKelvin;  // the same beta as the references
  in.op.kind = OperatorKind::dipole;
  in.op.mu0 = {1.0, 0.0, 0.0};
  return in;
}

Matrix<double> identity(int n) {
  Matrix<double> s(n, n);
  for (int j = 1; j <= n; ++j) s(j, j) = 1.0;
  return s;
}

double k_r_per_second(const EngineInputs& in, double gap, double sigma) {
  EngineContext ctx(in);
  return radiative_rate(spectral_moments(ctx), gap, sigma, 1.0) / kSecond;
}

TEST(Radiative, TwoLevelsAndOneDisplacedModeAgainstTheirProgressions) {
  const double gap = 3.0 / kEv, c = speed_of_light_au;
  const EngineInputs two = system({1500 / kCm}, {1500 / kCm}, {0.0}, identity(1), 300.0);
  EXPECT_NEAR(k_r_per_second(two, gap, 0.0) / (4 * gap * gap * gap / (3 * c * c * c) / kSecond),
              1.0, 1e-9);

  // 1500 cm-1, Huang-Rhys factor 1.2, sigma 200 cm-1, 0 K: k_r the sum over the lines of p_n
  // (w_n^3 + 3 w_n sigma^2), w_n = gap - n w (mpmath, Poisson weights; other temperatures are the
  // cumulants' test below). The spectrum from the contour point by point against the Poisson
  // lines themselves to 1e-8 of the peak; the band reaches the fifth line below the 0-0 line
  // (weight 1.5e-3 of the peak). (Its integral against k_r: rate/test_command.cpp.)
  const double w = 1500 / kCm, sigma = 200 / kCm, d = std::sqrt(2 * 1.2 / w);
  const EngineInputs cold = system({w}, {w}, {d}, identity(1), 0.0);
  EngineContext ctx(cold);
  const SpectralMoments m = spectral_moments(ctx);
  EXPECT_NEAR(radiative_rate(m, gap, sigma, 1.0) / kSecond / 2.312703291e7, 1.0, 1e-8);
  EXPECT_LE(m.evaluations, 20);
  const Emission e = emission_spectrum(ctx, m, gap, sigma, 1.0);
  EXPECT_TRUE(e.warnings.empty()) << e.warnings.front();
  EXPECT_LT(e.omega.front(), gap - 5 * w);
  double worst = 0.0, peak = 0.0;
  for (std::size_t i = 0; i < e.omega.size(); ++i) {
    const double x = e.omega[i];
    double lines = 0.0, p = std::exp(-1.2);
    for (int n = 0; n < 40; p *= 1.2 / ++n) {
      const double u = (x - (gap - n * w)) / sigma;
      lines += p * std::exp(-0.5 * u * u) / (sigma * std::sqrt(2 * std::numbers::pi));
    }
    worst = std::max(worst, std::fabs(e.sigma[i] - emission_prefactor(1.0) * x * x * x * lines));
    peak = std::max(peak, e.sigma[i]);
  }
  EXPECT_LT(worst, 1e-8 * peak);
}

// Three modes with frequency changes and a rotation: with K1 = S diag(w1^2) S^T, M = K1 -
// diag(w2^2), b = -K1 d, c = d^T K1 d/2, Sigma = diag(coth(beta w2/2)/2 w2), A = M Sigma (state-2
// coordinates), the photon energy's cumulants are closed traces.
TEST(Radiative, DuschinskyCumulantsAreClosedTraces) {
  const std::vector<double> w1{1600 / kCm, 1100 / kCm, 450 / kCm},
      w2{1450 / kCm, 1180 / kCm, 380 / kCm}, d{9.0, -14.0, 30.0};
  Matrix<double> s = identity(3);
  for (const auto& [a, b, th] : {std::tuple{1, 2, 0.4}, {2, 3, -0.3}, {1, 3, 0.25}}) {
    const double co = std::cos(th), si = std::sin(th);
    for (int k = 1; k <= 3; ++k) {
      const double x = s(a, k), y = s(b, k);
      s(a, k) = co * x - si * y, s(b, k) = si * x + co * y;
    }
  }
  const double gap = 3.0 / kEv, sigma = 150 / kCm, c3 = std::pow(speed_of_light_au, 3);
  for (double temp : {0.0, 300.0, 1200.0}) {
    EngineInputs in = system(w1, w2, d, s, temp);
    in.op.kind = OperatorKind::franck_condon;  // the unit operator: C(0) = 1
    const double beta = 315774.98 / in.temp;
    Matrix<double> m(3, 3);
    std::vector<double> b(3, 0.0), sig(3);
    double c = 0.0;
    for (int j = 0; j < 3; ++j)
      sig[j] = temp == 0.0 ? 0.5 / w2[j] : 0.5 / (w2[j] * std::tanh(0.5 * beta * w2[j]));
    for (int j = 1; j <= 3; ++j)
      for (int k = 1; k <= 3; ++k) {
        for (int l = 1; l <= 3; ++l) m(j, k) += s(j, l) * w1[l - 1] * w1[l - 1] * s(k, l);
      }
    for (int j = 1; j <= 3; ++j)
      for (int k = 1; k <= 3; ++k)
        b[j - 1] -= m(j, k) * d[k - 1], c += 0.5 * d[j - 1] * m(j, k) * d[k - 1];
    for (int j = 1; j <= 3; ++j) m(j, j) -= w2[j - 1] * w2[j - 1];
    auto a = [&](int j, int k) { return m(j, k) * sig[k - 1]; };  // A = M Sigma
    double tr1 = 0, tr2 = 0, tr3 = 0, bsb = 0, bsmsb = 0, msm = 0, bb = 0;
    for (int j = 1; j <= 3; ++j) {
      tr1 += a(j, j);
      bsb += b[j - 1] * sig[j - 1] * b[j - 1];
      bb += b[j - 1] * b[j - 1];
      for (int k = 1; k <= 3; ++k) {
        tr2 += a(j, k) * a(k, j);
        bsmsb += b[j - 1] * sig[j - 1] * m(j, k) * sig[k - 1] * b[k - 1];
        msm += m(j, k) * sig[k - 1] * m(k, j);
        for (int l = 1; l <= 3; ++l) tr3 += a(j, k) * a(k, l) * a(l, j);
      }
    }
    const double k1 = gap - 0.5 * tr1 - c, k2 = 0.5 * tr2 + bsb + sigma * sigma,
                 k3 = -tr3 - 3 * bsmsb - 0.5 * (msm + bb);
    const double want = 4 / (3 * c3) * (k1 * k1 * k1 + 3 * k1 * k2 + k3) / kSecond;

    EngineContext ctx(in);
    const SpectralMoments mo = spectral_moments(ctx);
    EXPECT_NEAR(mo.c0, 1.0, 1e-13);
    EXPECT_NEAR(mo.l1, gap - k1, 1e-10 * std::fabs(gap - k1)) << temp << " K";
    EXPECT_NEAR(mo.l2, k2 - sigma * sigma, 1e-9 * (k2 - sigma * sigma)) << temp << " K";
    EXPECT_NEAR(mo.l3, -k3, 1e-6 * std::fabs(k3)) << temp << " K";
    EXPECT_NEAR(radiative_rate(mo, gap, sigma, 1.0) / kSecond / want, 1.0, 1e-9) << temp << " K";
    // The medium's n enters as n^2 and nowhere else.
    EXPECT_NEAR(radiative_rate(mo, gap, sigma, 1.5) / radiative_rate(mo, gap, sigma, 1.0), 2.25,
                1e-14);
  }
}

TEST(DipoleFile, ReadsUnitsAndModesAndNamesTheBadLine) {
  TextFile ok = text_file_from(
      "dipole.dat", {"# S1 -> S0", "", "0  1.0 -2.0 0.5 debye", "  9  0.1 0.0 0.0", "8 0 0.2 0"});
  const DipoleFile f = read_dipole_file(ok);
  EXPECT_TRUE(f.debye);
  EXPECT_DOUBLE_EQ(f.mu0[1], -2.0 / 2.541580252938);
  ASSERT_EQ(f.modes, (std::vector<int>{9, 8}));
  EXPECT_DOUBLE_EQ(f.derivatives[1][1], 0.2 / 2.541580252938);

  const std::pair<std::vector<std::string>, std::string> bad[] = {
      {{"# nothing"}, "line 1: expected the transition dipole"},
      {{"7 0.1 0 0"}, "line 1: expected the transition dipole first"},
      {{"0 1 0"}, "line 1: expected the transition dipole '0"},
      {{"0 1 0 0 hartree"}, "line 1: expected the unit 'au' or 'debye'"},
      {{"0 1 0 0", "x 1 2 3"}, "line 2: expected an integer and three finite numbers"},
      {{"0 1 0 0", "7 1 nan 3"}, "line 2: expected an integer and three finite numbers"},
      {{"0 1 0 0", "7 1 2.5x 3"}, "line 2: expected an integer and three finite numbers"},
      {{"0 1 0 0", "7.5 1 2 3"}, "line 2: expected an integer and three finite numbers"},
      {{"0 1 0 0", "7 1 2 3", "#", "7 0 0 1"},
       "line 4: expected each mode once; mode 7 is listed on line 2"},
      {{"0 1 0 0", "7 1 2 3 4"}, "line 2: expected a mode number and three numbers"},
      {{"0 1 0 0", "-3 1 2 3"}, "line 2: expected a mode number of 1 or more"},
  };
  for (const auto& [records, expected] : bad) {
    TextFile t = text_file_from("dipole.dat", records);
    EXPECT_THROW_MSG(read_dipole_file(t), IoError, expected);
  }

  // Into the store's order by the state-1 numbers (7.. counting translations and rotations);
  // a mode that is not a vibration, and a dipole that is zero, are refused.
  DushinData v;
  v.nmode = 2;
  v.order = Matrix<std::int32_t>(2, 2);
  v.order(1, 1) = 8, v.order(2, 1) = 9;
  const std::vector<double> m = dipole_derivatives(f, "dipole.dat", v, false);
  EXPECT_EQ(m,
            (std::vector<double>{0.0, 0.1 / 2.541580252938, 0.2 / 2.541580252938, 0.0, 0.0, 0.0}));
  TextFile other = text_file_from("dipole.dat", {"0 1 0 0", "12 1 1 1"});
  EXPECT_THROW(dipole_derivatives(read_dipole_file(other), "dipole.dat", v, false), IoError);
  TextFile zero = text_file_from("dipole.dat", {"0 0 0 0", "8 0 0 0"});
  EXPECT_THROW_MSG(dipole_derivatives(read_dipole_file(zero), "dipole.dat", v, false), IoError,
                   "not zero");
}

}  // namespace
}  // namespace ictvcf
