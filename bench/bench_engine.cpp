// Time per time point of the straightforward engine (one thread) and of the fast engine (one
// thread and all threads), against the work no evaluation can avoid: two LU factorisations and
// two inversions of n x n complex matrices. All figures of one row are measured in the same run.
//
// usage: ictvcf_bench [n ...]          (default: 48 144 294 594)
//        ictvcf_bench --seconds S      (time budget per measurement, default 1.5)
//        ictvcf_bench --write-case DIR NMODE NT
//                                      (writes a synthetic molecule as input and data files, for
//                                      timing whole runs such as bench/mpi-scaling.sh)
#ifdef _OPENMP
#include <omp.h>
#endif

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "support/synthetic.h"
#include "util/lapack.h"

namespace {

using cplx = std::complex<double>;
using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point t0) {
  return std::chrono::duration<double>(clock_type::now() - t0).count();
}

// Seconds per call of `f(points)` evaluating `points` time points, growing the count until the
// measurement takes at least `budget` seconds (or one call takes longer than that).
template <class F>
double per_point(F f, double budget, std::int64_t first) {
  std::int64_t points = first;
  for (;;) {
    auto t0 = clock_type::now();
    f(points);
    double s = seconds_since(t0);
    if (s >= budget || points >= (1 << 20)) return s / static_cast<double>(points);
    points =
        std::max(points + 1, static_cast<std::int64_t>(points * 1.2 * budget / std::max(s, 1e-3)));
  }
}

// Two zgetrf and two zgetri of n x n complex symmetric, diagonally weighted matrices, one thread.
double lapack_floor(int n, double budget) {
  std::vector<cplx> base(static_cast<std::size_t>(n) * n), a, b;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      base[i + static_cast<std::size_t>(j) * n] =
          i == j ? cplx(3.0 + i % 7, 0.5)
                 : cplx(std::sin(i + 2.0 * j), std::cos(i * j + 1.0)) / (1.0 + n);
  std::vector<int> ip1(n), ip2(n);
  std::vector<cplx> work;
  const ictvcf::lapack::SingleThreadedBlas single;
  return per_point(
      [&](std::int64_t points) {
        for (std::int64_t k = 0; k < points; ++k) {
          a = base;
          b = base;
          b[0] += 1.0;
          ictvcf::lapack::getrf(n, a.data(), ip1.data());
          ictvcf::lapack::getrf(n, b.data(), ip2.data());
          ictvcf::lapack::getri(n, a.data(), ip1.data(), work);
          ictvcf::lapack::getri(n, b.data(), ip2.data(), work);
        }
      },
      budget, 2);
}

// The synthetic system as the program's files: block-layout Duschinsky file (all coordinates
// kept as modes), new-layout coupling file and the input block.
int write_case(const std::string& dir, int n, long long nt) {
  const auto v = ictvcf::testing::random_system(n, 42u + n, 0.6, 300.0);
  const double cm = 219474.6307;
  std::FILE* d = std::fopen((dir + "/dushin.dat").c_str(), "w");
  std::FILE* c = std::fopen((dir + "/nacme.dat").c_str(), "w");
  std::FILE* in = std::fopen((dir + "/ic.inp").c_str(), "w");
  if (!d || !c || !in) {
    std::fprintf(stderr, "cannot write the case into %s\n", dir.c_str());
    return 2;
  }
  std::fprintf(d, "synthetic molecule, %d modes\n%6d  num of modes\n  BEGIN_OUTPUT_1\n -\n h\n -\n",
               n, n);
  for (int j = 1; j <= n; ++j)
    std::fprintf(d, " M%d A S0 %.10f %.12f | 0 0 | %.10f %.12f | 0 0 %d %d\n", j,
                 v.omegag[j - 1] * cm, v.d[j - 1], v.omegae[j - 1] * cm, v.d[j - 1], j, j);
  for (int block = 1; block <= 2; ++block) {
    std::fprintf(d, "  BEGIN_DUSH_DATA_%d\n columns\n", block);
    for (int i = 1; i <= n; ++i) {
      std::fprintf(d, " row %d\n", i);
      for (int j = 1; j <= n; ++j) std::fprintf(d, " %.15f", block == 1 ? v.s(j, i) : v.s(i, j));
      std::fprintf(d, "\n");
    }
  }
  std::fprintf(c, " NMODE %d\n Derivative Coupling synthetic\n No Mode irrep\n ----\n", n);
  for (int j = 1; j <= n; ++j) std::fprintf(c, " %d %d A 0 %.12e\n", j, j, v.rif[j - 1]);
  std::fprintf(in,
               "&ic_tvcf\n dsfile = dushin.dat\n coulfile = nacme.dat\n ftfile = ic_tvcf.dat\n"
               " logfile = ic_tvcf.log\n n3all = .true.\n temp = 300 K\n dt = 20\n tmax = %lld\n"
               " ead = 2.5 eV\n/\n",
               20 * nt);
  std::fclose(d);
  std::fclose(c);
  std::fclose(in);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && !std::strcmp(argv[1], "--write-case"))
    return write_case(argv[2], std::atoi(argv[3]), std::atoll(argv[4]));
  std::vector<int> sizes;
  double budget = 1.5;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc)
      budget = std::atof(argv[++i]);
    else
      sizes.push_back(std::atoi(argv[i]));
  }
  if (sizes.empty()) sizes = {48, 144, 294, 594};
#ifdef _OPENMP
  const int threads = omp_get_max_threads();
#else
  const int threads = 1;
#endif
  std::printf("ictvcf engine benchmark: %d threads available (OMP_NUM_THREADS), budget %.1f s\n",
              threads, budget);
  std::printf("time per time point, milliseconds\n");
  std::printf("%6s %14s %12s %12s %12s %12s %11s %11s %10s\n", "nmode", "straightforward",
              "fast 1 thr", "fast all", "LAPACK floor", "speed-up", "fast/floor", "efficiency",
              "all/1");
  for (int n : sizes) {
    const auto sys = ictvcf::testing::random_system(n, 42u + n, 0.6, 300.0);
    std::vector<cplx> u, f;
    auto grow = [&](std::int64_t points) {
      u.resize(points + 1);
      f.resize(points + 1);
    };
    const double t_ref = per_point(
        [&](std::int64_t points) {
          grow(points);
          ictvcf::getintegratedata(sys, 20.0, 1, points, u.data(), f.data());
        },
        budget, 1);
    const double t_fast1 = per_point(
        [&](std::int64_t points) {
          grow(points);
          ictvcf::compute_correlation(sys, 20.0, 1, points, u.data(), f.data(), false, 1);
        },
        budget, 4);
    const double t_fast = per_point(
        [&](std::int64_t points) {
          grow(points);
          ictvcf::compute_correlation(sys, 20.0, 1, points, u.data(), f.data(), false, threads);
        },
        budget, 4 * threads);
    const double t_floor = lapack_floor(n, budget);
    std::printf("%6d %14.3f %12.3f %12.3f %12.3f %11.1fx %11.2f %10.0f%% %10.2f\n", n, 1e3 * t_ref,
                1e3 * t_fast1, 1e3 * t_fast, 1e3 * t_floor, t_ref / t_fast, t_fast1 / t_floor,
                100.0 * t_fast1 / (threads * t_fast), t_fast1 / t_fast);
    std::fflush(stdout);
  }
  std::printf(
      "speed-up: straightforward (1 thread) / fast (all threads); fast/floor: fast on one thread "
      "/\n"
      "(2 zgetrf + 2 zgetri); efficiency: fast 1 thread / (threads x fast all threads).\n");
  return 0;
}
