// The rate at the input's gap two ways, each timed in the same run (best of five interleaved
// rounds): on the shifted time contour, at the default accuracy and at 1e-9, with and without the
// pair integrals of --modes, and on the real time axis on the block's own grid (the exact
// correlation function at nt + 1 points and the damped sum); and the whole `ictvcf rate` command
// (reading, scan, files and plots) against the whole `ictvcf rate --real-axis`, their standard
// output discarded.
// Gaussian damping from the block's broadening (or the default).
//
// usage: ictvcf_bench_rate INPUT        (run in the directory of the input and its data files)
#include <stdlib.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "engine/engine.h"
#include "rate/command.h"
#include "rate/contour.h"
#include "rate/integral.h"
#include "run/run.h"
#include "util/constants.h"
#include "util/errors.h"

namespace {

using namespace ictvcf;
using clock_type = std::chrono::steady_clock;

template <class F>
double timed(F f) {
  const auto t0 = clock_type::now();
  f();
  return std::chrono::duration<double>(clock_type::now() - t0).count();
}

int bench(const std::string& input) {
  ParameterSet p;
  DushinData v;
  Units units;
  std::ofstream no_log;
  char scratch[] = "/tmp/ictvcf-bench-XXXXXX";
  if (!mkdtemp(scratch)) return 2;
  read_run_data(input, p, v, units, no_log, scratch);
  std::filesystem::remove_all(scratch);
  thermal_factors(p, v);
  const EngineInputs in = engine_inputs(p, v);
  const Damping d = damping_from(p);
  if (d.shape != DampingShape::gaussian) {
    std::fprintf(stderr, "the benchmark compares Gaussian damping only\n");
    return 2;
  }
  EngineContext ctx(in);
  std::printf("%d modes, %g K, gap %.6g eV, sigma %.4g cm-1, grid dt %g au, nt %lld\n", in.nmode,
              in.temp, p.ead * au2ev, d.width * au2cm, p.dt, static_cast<long long>(p.nt));

  // The methods in turn, round after round, so that a slow spell of a shared machine falls on
  // all of them; the best round of each is kept.
  constexpr int kRounds = 5;
  ContourResult contour, tight, with_pairs;
  double real = 0.0;
  double t_contour = 1e30, t_tight = 1e30, t_pairs = 1e30, t_real = 1e30;
  double t_command = 1e30, t_command_real = 1e30;
  auto command = [&](bool real_axis) {
    RateOptions o;
    o.input = input;
    o.real_axis = real_axis;
    std::ostringstream discard;
    std::streambuf* out = std::cout.rdbuf(discard.rdbuf());
    const int status = run_rate(o);
    std::cout.rdbuf(out);
    if (status != 0) throw FatalError("the rate command failed", status);
  };
  for (int round = 0; round < kRounds; ++round) {
    t_contour = std::min(
        t_contour, timed([&] {
          contour = contour_rates(ctx, {d.width, 1e-6}, std::span<const double>(&p.ead, 1));
        }));
    t_pairs = std::min(t_pairs, timed([&] {
                         with_pairs = contour_rates(ctx, {d.width, 1e-6},
                                                    std::span<const double>(&p.ead, 1), true);
                       }));
    t_tight =
        std::min(t_tight, timed([&] {
                   tight = contour_rates(ctx, {d.width, 1e-9}, std::span<const double>(&p.ead, 1));
                 }));
    t_real = std::min(t_real, timed([&] {
                        std::vector<std::string> warnings;
                        const auto c = exact_correlation(ctx, p.dt, p.nt, warnings);
                        real = rate_at(c, p.dt, d, p.ead);
                      }));
    t_command = std::min(t_command, timed([&] { command(false); }));
    t_command_real = std::min(t_command_real, timed([&] { command(true); }));
  }
  const double exact = tight.rates[0].rate;
  std::printf("%-26s %16s %12s %12s %10s\n", "method", "k_IC (au)", "rel. to 1e-9", "evaluations",
              "seconds");
  std::printf("%-26s %16.9e %12.2e %12lld %10.4f\n", "contour, tol 1e-6", contour.rates[0].rate,
              contour.rates[0].rate / exact - 1.0, static_cast<long long>(contour.evaluations),
              t_contour);
  std::printf("%-26s %16.9e %12.2e %12lld %10.4f\n", "contour, tol 1e-9", exact, 0.0,
              static_cast<long long>(tight.evaluations), t_tight);
  std::printf("%-26s %16.9e %12.2e %12lld %10.4f\n", "real axis, block's grid", real,
              real / exact - 1.0, static_cast<long long>(p.nt + 1), t_real);
  std::printf("%-26s %16.9e %12.2e %12lld %10.4f\n", "contour + mode pairs",
              with_pairs.rates[0].rate, with_pairs.rates[0].rate / exact - 1.0,
              static_cast<long long>(with_pairs.evaluations), t_pairs);
  const GapRate& r = contour.rates[0];
  std::printf(
      "contour (tol 1e-6): tau %.4g au (saddle point %.4g au), step %.4g au, window %.6g au\n",
      r.tau, r.saddle, r.step, r.window);
  std::printf("time of the contour (tol 1e-6) / real axis: %.3f\n", t_contour / t_real);
  std::printf("time with the mode pairs (--modes) / without: %.3f\n", t_pairs / t_contour);
  std::printf("whole command: ictvcf rate %.4f s, ictvcf rate --real-axis %.4f s, ratio %.3f\n",
              t_command, t_command_real, t_command / t_command_real);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: ictvcf_bench_rate INPUT\n");
    return 2;
  }
  int status = 0;
  const int error = ictvcf::guarded([&] { status = bench(argv[1]); });
  return error != 0 ? error : status;
}
