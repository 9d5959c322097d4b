// `ictvcf rate INPUT`: the exact correlation function on the run's time grid, its damped Fourier
// integral, the internal-conversion rate at the adiabatic gap and a scan of gaps around it, with
// two plots. Reads the same block and data files as the run, but its temporary files go to a
// private directory and it writes no log and no table of the run: only files named after
// `ftfile` with the suffixes .exact, .rate, .rate.svg and .corr.svg.
#include "rate/command.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <numbers>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "rate/integral.h"
#include "rate/plot.h"
#include "run/progress.h"
#include "run/run.h"
#include "run/table.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using cplx = std::complex<double>;

// Gaps scanned: ead -/+ 1 eV in 201 steps of 0.01 eV.
constexpr double kScanHalfWidthEv = 1.0;
constexpr int kScanPoints = 201;

// A fresh directory under the system's temporary directory for the reader's work files, removed
// with its contents when the command ends, however it ends.
struct PrivateDir {
  std::string path;
  PrivateDir() {
    std::string name = (std::filesystem::temp_directory_path() / "ictvcf-rate-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
      throw IoError(name, 0, "cannot create a private temporary directory");
    path = name;
  }
  ~PrivateDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  PrivateDir(const PrivateDir&) = delete;
  PrivateDir& operator=(const PrivateDir&) = delete;
};

void write_text(const std::string& name, const std::string& text, const char* what) {
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) throw IoError(name, 0, std::string("cannot write the ") + what);
}

std::string scan_text(const std::vector<double>& gaps, const std::vector<double>& rates) {
  std::string s = printed("#%13s %12s %17s %17s\n", "dE(cm-1)", "dE(eV)", "k_IC(au)", "k_IC(s-1)");
  for (std::size_t i = 0; i < gaps.size(); ++i)
    s += printed("%14.4f %12.6f %17.8e %17.8e\n", gaps[i] * au2cm, gaps[i] * au2ev, rates[i],
                 rates[i] * au_per_second);
  return s;
}

std::string damping_line(const Damping& d) {
  const char* shape = d.shape == DampingShape::gaussian ? "Gaussian" : "Lorentzian";
  const char* width = d.shape == DampingShape::gaussian ? "sigma" : "half width";
  std::string s = printed("damping: %s, FWHM %.6g cm-1 (%s %.6g cm-1)", shape, line_fwhm(d) * au2cm,
                          width, d.width * au2cm);
  if (d.chosen_by_default) s += ", the default: the input sets no broadening (isgauss)";
  return s;
}

// The exact correlation function at k = -nt .. nt (index k + nt).
std::vector<cplx> exact_correlation(const ParameterSet& p, DushinData& v) {
  const std::size_t points = static_cast<std::size_t>(p.nt + 1);
  std::vector<cplx> usqrt(points), ft(points);
  compute_correlation(engine_inputs(p, v), p.dt, 0, p.nt, usqrt.data(), ft.data(),
                      /*keep_imaginary=*/true, 0, terminal_progress());
  return assemble(p.nt, usqrt, ft, v.sqrtdone);
}

// The block and the data files, read without leaving anything in the working directory, and
// the checks of the run. False when a reader has asked the run to stop.
bool read_inputs(const std::string& infile, ParameterSet& p, DushinData& v) {
  Units units;
  std::ofstream no_log;
  {
    PrivateDir scratch;
    read_run_data(infile, p, v, units, no_log, scratch.path);
  }
  if (p.is_exit != 0) return false;
  if (rtrim(p.ftfile).empty())
    throw IoError(infile, 0, "ftfile in the &ic_tvcf block: the rate files are named after it");
  check_time_grid(p.nt);
  thermal_factors(p, v);
  return true;
}

void print_summary(const ParameterSet& p, const Damping& d, double rate, const std::string& base) {
  std::cout << damping_line(d) << '\n'
            << printed("gap: ead = %.6g cm-1 = %.6g eV, temperature %.6g K", p.ead * au2cm,
                       p.ead * au2ev, p.temp)
            << '\n'
            << printed("k_IC = %.6e s-1", rate * au_per_second) << '\n'
            << printed("k_IC = %.6e au", rate) << '\n'
            << "written: " << base << ".exact, " << base << ".rate, " << base << ".rate.svg, "
            << base << ".corr.svg\n"
            << std::flush;
}

void rate_command(const std::string& infile) {
  ParameterSet p;
  DushinData v;
  if (!read_inputs(infile, p, v)) return;
  const Damping d = damping_from(p);
  const std::string base(rtrim(p.ftfile));

  const std::vector<cplx> h = exact_correlation(p, v);
  write_table(base + ".exact", false, p.nt, p.dt, h);
  const std::span<const cplx> c(h.data() + p.nt, static_cast<std::size_t>(p.nt + 1));

  const double rate = rate_at(c, p.dt, d, p.ead);
  const std::vector<double> gaps = gap_grid(p.ead, kScanHalfWidthEv / au2ev, kScanPoints);
  const std::vector<double> rates = rate_scan(c, p.dt, d, gaps);
  write_text(base + ".rate", scan_text(gaps, rates), "rate scan");
  write_text(base + ".rate.svg", gap_law_svg(gaps, rates, p.ead, rate, d, std::numbers::pi / p.dt),
             "energy-gap plot");
  write_text(base + ".corr.svg", correlation_svg(c, p.dt, d), "correlation-function plot");
  print_summary(p, d, rate, base);

  std::vector<std::string> warnings = rate_warnings(c, p.dt, d, p.ead, rate);
  if (const std::string w = scan_warning(p.dt, gaps.back()); !w.empty()) warnings.push_back(w);
  for (const std::string& w : warnings) std::cerr << "ictvcf rate: warning: " << w << '\n';
}

}  // namespace

int run_rate(const std::string& infile) {
  return guarded([&] { rate_command(infile); });
}

}  // namespace ictvcf
