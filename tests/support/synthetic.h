// A synthetic molecule built in memory, for engine tests and the benchmark.
#pragma once

#include <cmath>
#include <random>

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

// A random molecule-like system: frequencies 80-3300 cm-1 with changes of a few percent, Huang-
// Rhys factors up to about 1, a Duschinsky matrix that is a product of random plane rotations.
inline EngineInputs random_system(int n, unsigned seed, double mixing, double temp, int mode = 0) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> uni(0.0, 1.0);
  EngineInputs v;
  v.nmode = n;
  v.temp = temp;
  v.omegag.resize(n);
  v.omegae.resize(n);
  v.d.resize(n);
  v.rif.resize(n);
  v.s = Matrix<double>(n, n);
  v.r = Matrix<double>(n, n);
  v.iscal = Matrix<char>(n, n);
  for (int j = 0; j < n; ++j) {
    const double wg = (80.0 + 3200.0 * std::pow(uni(gen), 1.5)) / au2cm;
    v.omegag[j] = wg;
    v.omegae[j] = wg * (0.92 + 0.12 * uni(gen));
    const double hr = uni(gen) < 0.3 ? uni(gen) : 0.02 * uni(gen);
    v.d[j] = (uni(gen) < 0.5 ? -1.0 : 1.0) * std::sqrt(2.0 * hr / wg);
    v.rif[j] = 0.03 * (uni(gen) - 0.5);
  }
  for (int j = 1; j <= n; ++j) v.s(j, j) = 1.0;
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
