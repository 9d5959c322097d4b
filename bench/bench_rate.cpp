// Time of the energy-gap scan of `ictvcf rate` (the direct sum over the time grid, 201 gaps)
// against one complex FFT of the same damped samples, zero-padded to a power of two. The FFT is
// only the core of the alternative: its gaps are 2 pi m / (N dt) around the shift, so landing on
// the scan's 0.01 eV steps would still need interpolation or a chirp transform on top.
//
// usage: ictvcf_bench_rate [nt ...]      (default: 10000 30000 100000)
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <vector>

#include "rate/integral.h"
#include "util/constants.h"

namespace {

using cplx = std::complex<double>;
using clock_type = std::chrono::steady_clock;

// In place, iterative radix 2; a.size() a power of two.
void fft(std::vector<cplx>& a) {
  const std::size_t n = a.size();
  for (std::size_t i = 1, j = 0; i < n; ++i) {
    std::size_t bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(a[i], a[j]);
  }
  for (std::size_t len = 2; len <= n; len <<= 1) {
    const cplx w = std::polar(1.0, 2.0 * std::numbers::pi / static_cast<double>(len));
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

// Best of `repeats` calls, in seconds.
template <class F>
double best_of(int repeats, F f) {
  double best = 1e30;
  for (int r = 0; r < repeats; ++r) {
    const auto t0 = clock_type::now();
    f();
    best = std::min(best, std::chrono::duration<double>(clock_type::now() - t0).count());
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<long> sizes{10000, 30000, 100000};
  if (argc > 1) {
    sizes.clear();
    for (int i = 1; i < argc; ++i) sizes.push_back(std::atol(argv[i]));
  }
  const double dt = 5.0;
  const ictvcf::Damping d{ictvcf::DampingShape::gaussian, 20.0 / ictvcf::au2cm, false};
  std::printf("%10s %10s %16s %16s\n", "nt", "N (FFT)", "direct 201 (ms)", "one FFT (ms)");
  for (long nt : sizes) {
    std::vector<cplx> c(static_cast<std::size_t>(nt + 1));
    for (long k = 0; k <= nt; ++k) {
      const double t = dt * static_cast<double>(k);
      c[k] = std::polar(1e-6 * std::exp(-1e-4 * t), -0.08 * t) +
             std::polar(5e-7, -0.03 * t + 0.3 * std::sin(0.01 * t));
    }
    const std::vector<double> gaps = ictvcf::gap_grid(0.1, 1.0 / ictvcf::au2ev, 201);
    volatile double sink = 0.0;
    const double direct = best_of(5, [&] { sink = sink + ictvcf::rate_scan(c, dt, d, gaps)[100]; });
    std::size_t n = 1;
    while (n < c.size()) n <<= 1;
    const double through_fft = best_of(5, [&] {
      std::vector<cplx> a(n);
      for (std::size_t k = 0; k < c.size(); ++k)
        a[k] = c[k] * ictvcf::damping_at(d, dt * static_cast<double>(k));
      fft(a);
      sink = sink + a[1].real();
    });
    std::printf("%10ld %10zu %16.3f %16.3f\n", nt, n, 1e3 * direct, 1e3 * through_fft);
  }
  return 0;
}
