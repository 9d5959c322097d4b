// The exact correlation function (as `ictvcf rate` computes it) against an independent sum over
// vibrational states: the initial state's Hamiltonian diagonalised in a truncated harmonic basis of
// the final state, the coupling's matrix elements between the eigenstates and the final basis, and
// the Boltzmann-weighted lines e^{i t (E2 - E1)}. Also the damped rate against the golden rule, and
// the same for a transition dipole linear in the coordinates (Herzberg-Teller) and its k_r.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "engine/engine.h"
#include "rate/contour.h"
#include "rate/crossing.h"
#include "rate/integral.h"
#include "rate/radiative.h"
#include "support/synthetic.h"
#include "util/constants.h"
#include "util/lapack.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;

// A small system: frequencies in cm-1, Q2 = S Q1 + d with S orthogonal (row j: state-2 mode j).
struct Model {
  std::vector<double> w1_cm, w2_cm, d, rif;
  std::vector<std::vector<double>> s;
  double temp;
};

// One Cartesian component of a dipole, mu0 + sum_k m_k Q1k.
struct Component {
  double mu0;
  std::vector<double> m;
};

EngineInputs build(const Model& m) {
  return testing::modes(m.w1_cm, m.w2_cm, m.d, m.rif, m.temp, m.s);
}

// Product bases of `per` harmonic levels per mode (frequencies w): the quantum numbers of basis
// function `index`, the index of quantum numbers, and the energy.
std::vector<int> levels(int index, int per, int modes) {
  std::vector<int> q(modes);
  for (int k = 0; k < modes; ++k, index /= per) q[k] = index % per;
  return q;
}
int index_of(const std::vector<int>& q, int per) {
  int i = 0;
  for (int k = static_cast<int>(q.size()) - 1; k >= 0; --k) i = i * per + q[k];
  return i;
}
double energy(const std::vector<int>& q, const std::vector<double>& w) {
  double e = 0.0;
  for (std::size_t k = 0; k < q.size(); ++k) e += w[k] * (q[k] + 0.5);
  return e;
}

// One-mode <m|Q|n> and <m|Q^2|n> of an oscillator of frequency w (unit mass).
double q1(int m, int n, double w) {
  return m == n + 1 ? std::sqrt((n + 1) / (2 * w)) : m == n - 1 ? std::sqrt(n / (2 * w)) : 0.0;
}
double q2(int m, int n, double w) {
  if (m == n) return (2 * n + 1) / (2 * w);
  if (m == n + 2) return std::sqrt((n + 1.0) * (n + 2)) / (2 * w);
  return m == n - 2 ? std::sqrt(n * (n - 1.0)) / (2 * w) : 0.0;
}

// The spectrum of the coupling: lines of frequency E2 - E1 and weight p2 |<v1|V|v2>|^2.
struct Lines {
  std::vector<double> freq, weight;
  double population_sum = 0.0;  // Boltzmann weights over the exact partition function
  double ground = 0.0;          // lowest eigenvalue of H2
};

// The lines of the coupling, or of `dipole` where given.
Lines sum_over_states(const Model& m, int size, const Component* dipole = nullptr) {
  const int n = static_cast<int>(m.w1_cm.size());
  std::vector<double> w1(n), w2(n);
  for (int k = 0; k < n; ++k) w1[k] = m.w1_cm[k] / au2cm, w2[k] = m.w2_cm[k] / au2cm;
  const int dim = static_cast<int>(std::pow(size, n) + 0.5);

  // H2 = p^2/2 + (S Q + d)^T W2^2 (S Q + d)/2 = H1 + Q^T A Q/2 + g^T Q + c, with
  // A = S^T W2^2 S - W1^2, g = S^T W2^2 d, c = d^T W2^2 d/2.
  std::vector<std::vector<double>> a(n, std::vector<double>(n, 0.0));
  std::vector<double> g(n, 0.0);
  double c = 0.0;
  for (int j = 0; j < n; ++j) {
    c += 0.5 * w2[j] * w2[j] * m.d[j] * m.d[j];
    for (int k = 0; k < n; ++k) {
      g[k] += m.s[j][k] * w2[j] * w2[j] * m.d[j];
      for (int l = 0; l < n; ++l) a[k][l] += m.s[j][k] * w2[j] * w2[j] * m.s[j][l];
    }
  }
  for (int k = 0; k < n; ++k) a[k][k] -= w1[k] * w1[k];

  std::vector<std::vector<int>> level(dim);
  for (int i = 0; i < dim; ++i) level[i] = levels(i, size, n);
  // The eigenstates do not depend on the temperature: kept for the next call on the same system.
  static std::vector<double> h, e2;
  static std::vector<std::vector<double>> last;
  const std::vector<std::vector<double>> key{m.w1_cm,      m.w2_cm, m.d,
                                             {1.0 * size}, m.s[0],  m.s.back()};
  const bool again = key == last;
  last = key;
  if (!again) h.assign(static_cast<std::size_t>(dim) * dim, 0.0);
  for (int col = 0; col < dim && !again; ++col) {
    const std::vector<int>& qc = level[col];
    for (int row = 0; row < dim; ++row) {
      const std::vector<int>& qr = level[row];
      // Matrix elements of products over modes: every other mode must keep its level.
      auto others_equal = [&](int k, int l) {
        for (int o = 0; o < n; ++o)
          if (o != k && o != l && qr[o] != qc[o]) return false;
        return true;
      };
      double e = row == col ? energy(qc, w1) + c : 0.0;
      for (int k = 0; k < n; ++k) {
        if (others_equal(k, k))
          e += g[k] * q1(qr[k], qc[k], w1[k]) + 0.5 * a[k][k] * q2(qr[k], qc[k], w1[k]);
        for (int l = 0; l < n; ++l)
          if (l != k && others_equal(k, l))
            e += 0.5 * a[k][l] * q1(qr[k], qc[k], w1[k]) * q1(qr[l], qc[l], w1[l]);
      }
      h[row + static_cast<std::size_t>(col) * dim] = e;
    }
  }
  if (!again) {
    e2.assign(dim, 0.0);
    EXPECT_EQ(lapack::syev(dim, h.data(), e2.data()), 0);
  }

  // Boltzmann weights e^{-beta (E - E0)} prod_k (1 - e^{-beta w2_k}), finite down to 0 K (E0 the
  // zero-point energy, checked against the lowest eigenvalue).
  const double beta = kelvin_per_hartree / m.temp;
  double norm = 1.0;
  for (int k = 0; k < n; ++k) norm *= -std::expm1(-beta * w2[k]);
  double e0 = 0.0;
  for (int k = 0; k < n; ++k) e0 += w2[k] / 2;

  Lines out;
  out.ground = e2[0];
  // V|v2> lies in the basis with one level more per mode.
  const int big = size + 1, wide = static_cast<int>(std::pow(big, n) + 0.5);
  for (int v = 0; v < dim; ++v) {
    const double pop = v == 0 ? norm : std::exp(-beta * (e2[v] - e0)) * norm;
    out.population_sum += pop;
    if (pop < 1e-16) continue;
    // V|v2> = sum_k rif_k p_k |v2>, p_k = i sqrt(w/2) (a+ - a): i times a real vector. A dipole:
    // (mu0 + sum_k m_k Q_k)|v2>, Q_k = (a+ + a)/sqrt(2w).
    std::vector<double> vv(wide, 0.0);
    for (int col = 0; col < dim; ++col) {
      const double amp = h[col + static_cast<std::size_t>(v) * dim];
      std::vector<int> q = level[col];
      if (dipole) {
        vv[index_of(q, big)] += dipole->mu0 * amp;
        for (int k = 0; k < n; ++k) {
          const double f = dipole->m[k] / std::sqrt(2 * w1[k]);
          q[k] += 1;
          vv[index_of(q, big)] += f * std::sqrt(q[k]) * amp;
          q[k] -= 2;
          if (q[k] >= 0) vv[index_of(q, big)] += f * std::sqrt(q[k] + 1) * amp;
          q[k] += 1;
        }
        continue;
      }
      for (int k = 0; k < n; ++k) {
        const double f = m.rif[k] * std::sqrt(w1[k] / 2);
        q[k] += 1;
        vv[index_of(q, big)] += f * std::sqrt(q[k]) * amp;
        q[k] -= 2;
        if (q[k] >= 0) vv[index_of(q, big)] -= f * std::sqrt(q[k] + 1) * amp;
        q[k] += 1;
      }
    }
    for (int f = 0; f < wide; ++f) {
      if (vv[f] == 0.0) continue;
      out.freq.push_back(e2[v] - energy(levels(f, big, n), w1));
      out.weight.push_back(pop * vv[f] * vv[f]);
    }
  }
  // Lines below 1e-20 of the strongest add nothing the checks can see; leaving them out keeps
  // the sums over the time grid short.
  double strongest = 0.0;
  for (double w : out.weight) strongest = std::max(strongest, w);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < out.weight.size(); ++i)
    if (out.weight[i] >= 1e-20 * strongest) {
      out.freq[kept] = out.freq[i];
      out.weight[kept++] = out.weight[i];
    }
  out.freq.resize(kept);
  out.weight.resize(kept);
  return out;
}

cplx correlation_at(const Lines& l, double t) {
  cplx c(0.0, 0.0);
  for (std::size_t i = 0; i < l.freq.size(); ++i) c += l.weight[i] * std::polar(1.0, l.freq[i] * t);
  return c;
}

double golden_rule(const Lines& l, double gap, double sigma) {
  double k = 0.0;
  for (std::size_t i = 0; i < l.freq.size(); ++i) {
    const double x = (gap + l.freq[i]) / sigma;
    k += l.weight[i] * std::exp(-0.5 * x * x) / (sigma * std::sqrt(2 * std::numbers::pi));
  }
  return 2 * std::numbers::pi * k;
}

void check_against_states(const Model& m, int size, const std::vector<double>& gaps_cm) {
  const double dt = 8.0;
  const std::int64_t nt = 900;  // 7200 au: a Gaussian of 200 cm-1 has decayed to 1e-7
  const EngineInputs in = build(m);
  EngineContext ctx(in);
  std::vector<std::string> warnings;
  const std::vector<cplx> c = exact_correlation(ctx, dt, nt, warnings);  // as `ictvcf rate` has it
  EXPECT_TRUE(warnings.empty());
  const Lines lines = sum_over_states(m, size);
  const Lines finer = sum_over_states(m, size + 3);

  double zero_point = 0.0;
  for (double w : m.w2_cm) zero_point += w / au2cm / 2;
  EXPECT_NEAR(lines.ground, zero_point, 1e-12) << "basis too small for the ground state";
  EXPECT_NEAR(lines.population_sum, 1.0, 1e-10) << "basis too small for the temperature";

  double largest = 0.0;
  for (const cplx& x : c) largest = std::max(largest, std::abs(x));
  // Every third point (the basis' convergence at every thirtieth): a fault shows at most of them.
  for (std::int64_t k = 0; k <= nt; k += 3) {
    const double t = dt * static_cast<double>(k);
    const cplx expected = correlation_at(lines, t);
    if (k % 30 == 0) {
      ASSERT_LT(std::abs(correlation_at(finer, t) - expected), 1e-9 * largest) << "not converged";
    }
    ASSERT_LT(std::abs(c[k] - expected), 1e-7 * largest)
        << "k=" << k << " engine " << c[k] << " states " << expected;
  }

  const Damping d{DampingShape::gaussian, 200.0 / au2cm, false};
  for (double gap_cm : gaps_cm) {
    const double gap = gap_cm / au2cm;
    const double expected = golden_rule(lines, gap, d.width);
    EXPECT_NEAR(rate_at(c, dt, d, gap), expected, 1e-5 * expected) << "gap " << gap_cm << " cm-1";
  }
}

// The contour rate (to 1e-9) against the golden rule of the same states, at three temperatures.
void contour_against_states(Model m, int size, const std::vector<double>& gaps_cm) {
  const double sigma = 200.0 / au2cm;
  for (double temp : {300.0, 2.0, 0.0}) {
    m.temp = temp;
    const Lines lines = sum_over_states(m, size);
    const EngineInputs in = build(m);
    EngineContext ctx(in);
    for (double gap_cm : gaps_cm) {
      const double gap = gap_cm / au2cm, want = golden_rule(lines, gap, sigma);
      const GapRate r =
          contour_rates(ctx, {sigma, 1e-9}, std::span<const double>(&gap, 1)).rates[0];
      EXPECT_NEAR(r.rate / want, 1.0, 1e-8) << temp << " K, gap " << gap_cm << " cm-1";
    }
  }
}

TEST(SumOverStates, OneModeWithFrequencyChange) {
  // Huang-Rhys factor about 1 in the initial state, 15 % softer there.
  const double w2 = 850.0 / au2cm;
  const Model m{{1000.0}, {850.0}, {std::sqrt(2.0 * 1.0 / w2)}, {0.05}, {{1.0}}, 400.0};
  check_against_states(m, 44, {-400.0, 1200.0, 3000.0});
}

TEST(SumOverStates, TwoModesWithDuschinskyRotation) {
  const double th = 0.35, w2a = 1150.0 / au2cm, w2b = 640.0 / au2cm;
  const Model m{{1300.0, 700.0},
                {1150.0, 640.0},
                {std::sqrt(2.0 * 0.6 / w2a), -std::sqrt(2.0 * 0.3 / w2b)},
                {0.03, -0.05},
                {{std::cos(th), std::sin(th)}, {-std::sin(th), std::cos(th)}},
                300.0};
  check_against_states(m, 24, {-300.0, 1500.0, 2600.0});
  contour_against_states(m, 24, {1500.0, 6000.0, 12000.0});
}

// A Herzberg-Teller dipole with two components, (mu0 + m.Q, m'.Q, 0): its correlation function
// on the real axis and its k_r against the lines of both components, at 300 K and 0 K; its rates
// and the Franck-Condon ones on the contour at gaps of either sign.
TEST(SumOverStates, HerzbergTellerDipoleWithDuschinskyRotation) {
  const double th = 0.35, w2a = 1150.0 / au2cm, w2b = 640.0 / au2cm;
  Model model{{1300.0, 700.0},
              {1150.0, 640.0},
              {std::sqrt(2.0 * 0.6 / w2a), -std::sqrt(2.0 * 0.3 / w2b)},
              {0.0, 0.0},
              {{std::cos(th), std::sin(th)}, {-std::sin(th), std::cos(th)}},
              300.0};
  const Component x{0.8, {0.02, -0.03}}, y{0.0, {0.01, 0.015}};
  const double dt = 8.0, gap = 2.5 / au2ev, sigma = 150.0 / au2cm;
  for (double temp : {300.0, 0.0}) {
    model.temp = temp;
    EngineInputs in = build(model);
    in.op.kind = OperatorKind::dipole;
    in.op.mu0 = {0.8, 0.0, 0.0};
    in.op.dmu = {0.02, -0.03, 0.01, 0.015, 0.0, 0.0};
    EngineContext ctx(in);
    std::vector<std::string> warnings;
    const std::vector<cplx> c = exact_correlation(ctx, dt, 600, warnings);
    EXPECT_TRUE(warnings.empty());
    Lines lines = sum_over_states(model, 24, &x);
    const Lines other = sum_over_states(model, 24, &y);
    lines.freq.insert(lines.freq.end(), other.freq.begin(), other.freq.end());
    lines.weight.insert(lines.weight.end(), other.weight.begin(), other.weight.end());
    double largest = 0.0;
    for (const cplx& v : c) largest = std::max(largest, std::abs(v));
    for (std::size_t k = 0; k < c.size(); ++k)
      ASSERT_LT(std::abs(c[k] - correlation_at(lines, dt * static_cast<double>(k))), 1e-8 * largest)
          << temp << " K, t = " << dt * static_cast<double>(k);
    // k_r = 4/(3 c^3) sum of weight (w^3 + 3 w sigma^2) over the photon energies w = gap + E2 - E1.
    double want = 0.0;
    for (std::size_t i = 0; i < lines.freq.size(); ++i) {
      const double w = gap + lines.freq[i];
      want += lines.weight[i] * (w * w * w + 3 * w * sigma * sigma);
    }
    const SpectralMoments mo = spectral_moments(ctx);
    EXPECT_NEAR(radiative_rate(mo, gap, sigma, 1.0) / (emission_prefactor(1.0) * want), 1.0, 1e-8)
        << temp << " K";

    // The Franck-Condon correlation function (O = 1, C(0) = 1), and the golden rule of both
    // operators on the contour at gaps of either sign (uphill ones at 300 K through the reverse
    // crossing).
    const Component unit{1.0, {0.0, 0.0}};
    const Lines fc = sum_over_states(model, 24, &unit);
    EngineInputs fc_in = build(model);
    fc_in.op.kind = OperatorKind::franck_condon;
    EngineContext fc_ctx(fc_in);
    const std::vector<cplx> c_fc = exact_correlation(fc_ctx, dt, 600, warnings);
    for (std::size_t k = 0; k < c_fc.size(); ++k)
      ASSERT_LT(std::abs(c_fc[k] - correlation_at(fc, dt * static_cast<double>(k))), 1e-8)
          << temp << " K, Franck-Condon, t = " << dt * static_cast<double>(k);
    for (double gap_cm : {-2000.0, -800.0, 1500.0, 6000.0})
      for (auto [c_ctx, l] :
           {std::pair<EngineContext*, const Lines*>{&ctx, &lines}, {&fc_ctx, &fc}}) {
        const double g = gap_cm / au2cm, want_k = golden_rule(*l, g, sigma);
        const GapRate r =
            contour_rates(*c_ctx, {sigma, 1e-9}, std::span<const double>(&g, 1)).rates[0];
        EXPECT_NEAR(r.rate / want_k, 1.0, 1e-8)
            << temp << " K, gap " << gap_cm << " cm-1, Franck-Condon " << (l == &fc);
        EXPECT_EQ(r.reversed, temp > 0.0 && gap_cm < 0.0) << temp << " K, gap " << gap_cm;
      }
  }
}

// A spin-orbit coupling linear in the coordinates, complex per sublevel (M = 0: V0 and its
// derivatives complex, M = +1 real, M = -1 zero): its rate, summed and averaged over the
// sublevels, against the golden rule of the lines of the real and imaginary parts (the
// eigenvectors are real, so |<f|A + iB|i>|^2 = <f|A|i>^2 + <f|B|i>^2), downhill and uphill.
TEST(SumOverStates, ComplexSpinOrbitCouplingPerSublevel) {
  const double th = 0.35, w2a = 1150.0 / au2cm, w2b = 640.0 / au2cm;
  const Model model{{1300.0, 700.0},
                    {1150.0, 640.0},
                    {std::sqrt(2.0 * 0.6 / w2a), -std::sqrt(2.0 * 0.3 / w2b)},
                    {0.0, 0.0},
                    {{std::cos(th), std::sin(th)}, {-std::sin(th), std::cos(th)}},
                    300.0};
  const Component re0{2e-5, {4e-6, -1e-6}}, im0{-1e-5, {0.0, 3e-6}}, re1{0.0, {-2e-6, 5e-6}};
  SublevelCoupling v;
  v.v0 = {cplx(2e-5, -1e-5), cplx(0.0, 0.0), cplx(0.0, 0.0)};
  v.dv = {cplx(4e-6, 0.0), cplx(-1e-6, 3e-6), cplx(-2e-6, 0.0), cplx(5e-6, 0.0), 0.0, 0.0};
  std::vector<Lines> parts;
  for (const Component* c : {&re0, &im0, &re1}) parts.push_back(sum_over_states(model, 24, c));
  const double sigma = 150.0 / au2cm;
  const EngineInputs in = build(model);
  for (double weight : {1.0, 1.0 / 3.0}) {
    const Coupling c = linear_coupling(in, v, weight);
    EXPECT_EQ(c.operators.size(), 2u);
    const std::vector<double> gaps{-2000.0 / au2cm, 1500.0 / au2cm, 6000.0 / au2cm};
    const CrossingRates r = crossing_rates(c, sigma, 1e-9, gaps);
    for (std::size_t i = 0; i < gaps.size(); ++i) {
      double want = 0.0;
      for (const Lines& l : parts) want += weight * golden_rule(l, gaps[i], sigma);
      EXPECT_NEAR(r.rates[i].rate / want, 1.0, 1e-8) << gaps[i] * au2cm << " cm-1, " << weight;
      EXPECT_NEAR(std::exp(r.rates[i].log_rate) / want, 1.0, 1e-8);
    }
  }
}

}  // namespace
}  // namespace ictvcf
