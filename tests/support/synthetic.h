// Systems built in memory, for engine and rate tests.
#pragma once

#include <cmath>
#include <random>
#include <vector>

#include "engine/engine.h"
#include "util/constants.h"

namespace ictvcf::testing {

// The coupling products and the pair mask from rif: every pair, or only (mode, mode).
inline void couple(EngineInputs& in, int mode = 0) {
  for (int j = 1; j <= in.nmode; ++j)
    for (int k = 1; k <= in.nmode; ++k) {
      in.r(j, k) = in.rif[j - 1] * in.rif[k - 1];
      in.iscal(j, k) = mode == 0 || (j == mode && k == mode);
    }
}

// A system given mode by mode: frequencies in cm-1, displacements and couplings (atomic units),
// S by rows (row j: state-2 mode j; none: the identity), every pair coupled.
inline EngineInputs modes(const std::vector<double>& w1_cm, const std::vector<double>& w2_cm,
                          std::vector<double> d, std::vector<double> rif, double temp,
                          const std::vector<std::vector<double>>& s = {}) {
  EngineInputs v;
  const int n = static_cast<int>(w1_cm.size());
  v.nmode = n;
  v.temp = temp;
  v.d = std::move(d);
  v.rif = std::move(rif);
  for (int j = 0; j < n; ++j) {
    v.omegag.push_back(w1_cm[j] / au2cm);
    v.omegae.push_back(w2_cm[j] / au2cm);
  }
  v.s = Matrix<double>(n, n);
  v.r = Matrix<double>(n, n);
  v.iscal = Matrix<char>(n, n);
  for (int j = 1; j <= n; ++j)
    for (int k = 1; k <= n; ++k) v.s(j, k) = s.empty() ? (j == k) : s[j - 1][k - 1];
  couple(v);
  return v;
}

// A random molecule-like system: frequencies 80-3300 cm-1 with changes of a few percent, Huang-
// Rhys factors up to about 1, a Duschinsky matrix that is a product of random plane rotations.
inline EngineInputs random_system(int n, unsigned seed, double mixing, double temp, int mode = 0) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> uni(0.0, 1.0);
  std::vector<double> w1(n), w2(n), d(n), rif(n);
  for (int j = 0; j < n; ++j) {
    w1[j] = 80.0 + 3200.0 * std::pow(uni(gen), 1.5);
    w2[j] = w1[j] * (0.92 + 0.12 * uni(gen));
    const double hr = uni(gen) < 0.3 ? uni(gen) : 0.02 * uni(gen);
    d[j] = (uni(gen) < 0.5 ? -1.0 : 1.0) * std::sqrt(2.0 * hr / (w1[j] / au2cm));
    rif[j] = 0.03 * (uni(gen) - 0.5);
  }
  EngineInputs v = modes(w1, w2, d, rif, temp);
  for (int rot = 0; rot < 3 * n; ++rot) {
    const int a = 1 + static_cast<int>(uni(gen) * n) % n,
              b = 1 + static_cast<int>(uni(gen) * n) % n;
    if (a == b) continue;
    const double th = mixing * (uni(gen) - 0.5), c = std::cos(th), s = std::sin(th);
    for (int k = 1; k <= n; ++k) {
      const double x = v.s(a, k), y = v.s(b, k);
      v.s(a, k) = c * x - s * y;
      v.s(b, k) = s * x + c * y;
    }
  }
  couple(v, mode);
  return v;
}

}  // namespace ictvcf::testing
