// `ictvcf rate INPUT`: the internal-conversion rate at the adiabatic gap and a scan of gaps around
// it (on the shifted time contour for a Gaussian line, on the real axis for a Lorentzian one or
// on request), the exact correlation function on the run's time grid, and two plots. Reads the
// same block and data files as the run, but its temporary files go to a private directory and it
// writes no log and no table of the run: only files named after `ftfile`.
#include "rate/command.h"

#include <stdlib.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "coupling/soc.h"
#include "engine/branch.h"
#include "engine/engine.h"
#include "rate/analysis.h"
#include "rate/contour.h"
#include "rate/integral.h"
#include "rate/plot.h"
#include "run/progress.h"
#include "run/run.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {

namespace {

using cplx = std::complex<double>;

constexpr double kLn10 = 2.302585092994046;
constexpr double kPi = std::numbers::pi;

// Gaps scanned: ead -/+ 1 eV in 201 steps of 0.01 eV.
constexpr double kScanHalfWidthEv = 1.0;
constexpr int kScanPoints = 201;
// The scan's gaps other than ead are integrated to this relative accuracy (or --tol, if larger):
// enough for the energy-gap law, and each gap's estimated error is in the file.
constexpr double kScanTol = 1e-4;

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

}  // namespace

void write_text(const std::string& name, const std::string& text, const char* what) {
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) throw IoError(name, 0, std::string("cannot write the ") + what);
}

std::string damping_line(const Damping& d) {
  const char* shape = d.shape == DampingShape::gaussian ? "Gaussian" : "Lorentzian";
  const char* width = d.shape == DampingShape::gaussian ? "sigma" : "half width";
  std::string s = printed("damping: %s, FWHM %.6g cm-1 (%s %.6g cm-1)", shape, line_fwhm(d) * au2cm,
                          width, d.width * au2cm);
  if (d.chosen_by_default) s += ", the default: the input sets no broadening (isgauss)";
  return s;
}

namespace {

// Our own files write numbers with the letter e, so that any program reads them.
std::string exact_text(std::span<const cplx> c, double dt) {
  std::string s = printed("#%15s %24s %24s\n", "t(fs)", "Re C(t) (au)", "Im C(t) (au)");
  const std::int64_t nt = static_cast<std::int64_t>(c.size()) - 1;
  for (std::int64_t k = -nt; k <= nt; ++k) {
    const cplx x =
        k < 0 ? std::conj(c[static_cast<std::size_t>(-k)]) : c[static_cast<std::size_t>(k)];
    s += printed("%16.8e %24.16e %24.16e\n", au2fs * dt * static_cast<double>(k), x.real(),
                 x.imag());
  }
  return s;
}

std::string scan_text(const std::vector<double>& gaps, const std::vector<double>& rates,
                      const std::vector<double>* errors) {
  std::string s = printed("#%15s %16s %24s %24s", "dE(cm-1)", "dE(eV)", "k_IC(au)", "k_IC(s-1)");
  s += errors ? printed(" %12s\n", "rel.error") : "\n";
  for (std::size_t i = 0; i < gaps.size(); ++i) {
    s += printed("%16.8e %16.8e %24.16e %24.16e", gaps[i] * au2cm, gaps[i] * au2ev, rates[i],
                 rates[i] * au_per_second);
    s += errors ? printed(" %12.3e\n", (*errors)[i]) : "\n";
  }
  return s;
}

}  // namespace

// The block and the data files, read without leaving anything in the working directory, and
// the checks of the run. False when a reader has asked the run to stop.
bool read_inputs(const std::string& infile, ParameterSet& p, DushinData& v, bool any_gap) {
  Units units;
  std::ofstream no_log;
  {
    PrivateDir scratch;
    read_run_data(infile, p, v, units, no_log, scratch.path);
  }
  if (p.is_exit != 0) return false;
  if (rtrim(p.ftfile).empty())
    throw IoError(infile, 0, "ftfile in the &ic_tvcf block: the rate files are named after it");
  if (!(p.ead > 0.0) && !(any_gap && std::isfinite(p.ead)))
    throw IoError(infile, 0,
                  printed("ead = %g hartree: the gap between the minima must be positive (the "
                          "initial state above the final one)",
                          p.ead));
  check_time_grid(p.nt);
  thermal_factors(p, v);
  return true;
}

namespace {

// The gaps of the scan with `ead` first (it anchors the contours), and where each one goes.
std::vector<double> ead_first(const std::vector<double>& gaps, std::size_t middle) {
  std::vector<double> out{gaps[middle]};
  for (std::size_t i = 0; i < gaps.size(); ++i)
    if (i != middle) out.push_back(gaps[i]);
  return out;
}

// The rates at the scan's gaps and at ead, and what the method says about them.
struct Rates {
  std::vector<double> scan, errors;
  double at_ead = 0.0, error_at_ead = 0.0;
  double log_at_ead = 0.0;  // ln of the rate at ead (the contour gives it beyond underflow)
  std::string method;
  std::vector<std::string> warnings;
};

Rates contour_scan(EngineContext& ctx, const Damping& d, double tol,
                   const std::vector<double>& gaps, std::size_t middle) {
  const std::vector<double> ordered = ead_first(gaps, middle);
  ContourResult r = contour_rates(ctx, ContourSettings{d.width, tol, kScanTol}, ordered);
  Rates out;
  out.scan.resize(gaps.size());
  out.errors.resize(gaps.size());
  for (std::size_t k = 0; k < ordered.size(); ++k) {
    const std::size_t i = k == 0 ? middle : (k <= middle ? k - 1 : k);
    out.scan[i] = r.rates[k].rate;
    out.errors[i] = r.rates[k].error;
  }
  const GapRate& e = r.rates[0];
  out.at_ead = e.rate;
  out.log_at_ead = e.log_rate;
  out.error_at_ead = e.error;
  out.method = printed(
      "method: shifted time contour t = s + i tau, tau = %.6g au (%.4g fs; saddle point tau0 = "
      "%.6g au), step %.4g au over s = 0 .. %.6g au; %d contour%s for the scan, %lld engine "
      "evaluations; estimated relative error %.2g (tolerance %.2g)",
      e.tau, e.tau * au2fs, e.saddle, e.step, e.window, r.contours, r.contours == 1 ? "" : "s",
      static_cast<long long>(r.evaluations), e.error, tol);
  out.warnings = r.warnings;
  return out;
}

Rates real_axis_scan(std::span<const cplx> c, const ParameterSet& p, const Damping& d,
                     const std::vector<double>& gaps) {
  Rates out;
  out.scan = rate_scan(c, p.dt, d, gaps);
  out.at_ead = rate_at(c, p.dt, d, p.ead);
  out.log_at_ead = std::log(out.at_ead);
  out.method = printed("method: real time axis, the block's grid (dt = %.6g au, nt = %lld)", p.dt,
                       static_cast<long long>(p.nt));
  out.warnings = rate_warnings(c, p.dt, d, p.ead, out.at_ead);
  if (const std::string w = scan_warning(p.dt, gaps.back()); !w.empty()) out.warnings.push_back(w);
  return out;
}

// Far from the peak a Lorentzian rate is set by the wings of the strong lines: compared with the
// Gaussian line of the same width, computed on the contour.
void lorentzian_wings(EngineContext& ctx, const Damping& d, double ead, double tol, Rates& r) {
  const Damping same{DampingShape::gaussian, line_fwhm(d) * std::sqrt(1.0 / (8.0 * std::log(2.0))),
                     false};
  try {
    const double g =
        contour_rates(ctx, ContourSettings{same.width, tol}, std::span<const double>(&ead, 1))
            .rates[0]
            .rate;
    if (g > 0.0 && r.at_ead > 10.0 * g)
      r.warnings.push_back(printed(
          "the Lorentzian rate is %.3g times that of a Gaussian line of the same FWHM (%.6e s-1): "
          "at this gap it is set by the Lorentzian wings of the strong lines, not by the "
          "molecule's vibrations; consider broadentype = gaussian",
          r.at_ead / g, g * au_per_second));
  } catch (const FatalError&) {
    // No Gaussian comparison to be had (no saddle): nothing to add.
  }
}

// "k_IC = 1.234567e+02 s-1", or the power of ten where the number underflows a double.
std::string rate_line(double rate, double log_rate, const char* unit) {
  if (rate == 0.0 && std::isfinite(log_rate))
    return printed("k_IC = 10^%.6f %s (below the range of double precision)\n", log_rate / kLn10,
                   unit);
  return printed("k_IC = %.6e %s\n", rate, unit);
}

void print_summary(const ParameterSet& p, const Damping& d, const Rates& r,
                   const std::string& files) {
  std::cout << damping_line(d) << '\n'
            << printed("gap: ead = %.6g cm-1 = %.6g eV, temperature %.6g K", p.ead * au2cm,
                       p.ead * au2ev, p.temp)
            << '\n'
            << rate_line(r.at_ead * au_per_second, r.log_at_ead + std::log(au_per_second), "s-1")
            << rate_line(r.at_ead, r.log_at_ead, "au") << r.method << '\n'
            << "written: " << files << '\n'
            << std::flush;
}

// --modes: the pair integrals on the contour of the rate at ead, split over the modes.
void mode_analysis(EngineContext& ctx, const Damping& d, double ead, double tol,
                   const std::string& base, std::vector<std::string>& warnings) {
  const ContourResult r =
      contour_rates(ctx, ContourSettings{d.width, tol}, std::span<const double>(&ead, 1), true);
  warnings.insert(warnings.end(), r.warnings.begin(), r.warnings.end());
  const Decomposition m = decompose(ctx.in, r.pairs);
  const GapRate& g = r.rates[0];
  write_text(base + ".modes", modes_text(m, g.rate, g.error), "mode decomposition");
  write_text(base + ".pairs", pairs_text(m, 50), "pair decomposition");
  write_text(base + ".modes.svg", modes_svg(m, 15), "mode plot");
  std::cout << printed(
                   "modes: k_IC = %.6e s-1 split over %zu modes (%lld engine evaluations); "
                   "the leading shares:",
                   m.total * au_per_second, m.modes.size(), static_cast<long long>(r.evaluations))
            << '\n';
  for (std::size_t i = 0; i < std::min<std::size_t>(5, m.modes.size()); ++i)
    std::cout << printed("  mode %4d  %9.2f cm-1  share %.6e s-1 (%5.1f %%), alone %.6e s-1",
                         m.modes[i].mode, m.modes[i].frequency * au2cm,
                         m.modes[i].share * au_per_second, 100.0 * m.modes[i].share / m.total,
                         m.modes[i].diagonal * au_per_second)
              << '\n';
  std::cout << "written: " << base << ".modes, " << base << ".pairs, " << base << ".modes.svg\n"
            << std::flush;
}

// --temps: the rate at ead at each temperature, on the contour or the real axis as the rate.
void temperature_study(const EngineInputs& in, const ParameterSet& p, const Damping& d,
                       const RateOptions& o, const std::string& base,
                       std::vector<std::string>& warnings) {
  std::vector<double> rates, errors;
  const bool contour = d.shape == DampingShape::gaussian && !o.real_axis;
  std::cout << "temperatures: T (K), k_IC (s-1), estimated relative error\n";
  for (double temp : o.temps) {
    EngineInputs at = in;
    at.temp = temp;
    EngineContext ctx(at);
    double rate = 0.0, error = std::numeric_limits<double>::quiet_NaN();
    if (contour) {
      const ContourResult r =
          contour_rates(ctx, ContourSettings{d.width, o.tol}, std::span<const double>(&p.ead, 1));
      for (const std::string& w : r.warnings) warnings.push_back(printed("at %g K: ", temp) + w);
      rate = r.rates[0].rate;
      error = r.rates[0].error;
    } else {
      const std::vector<cplx> c = exact_correlation(ctx, p.dt, p.nt, warnings);
      rate = rate_at(c, p.dt, d, p.ead);
    }
    rates.push_back(rate);
    errors.push_back(error);
    std::cout << printed("  %10.3f  %.6e  %.2g", temp, rate * au_per_second, error) << '\n';
  }
  write_text(base + ".temps", temps_text(o.temps, rates, errors), "temperature study");
  write_text(base + ".temps.svg", temps_svg(o.temps, rates), "temperature plot");
  std::cout << "written: " << base << ".temps, " << base << ".temps.svg\n" << std::flush;
}

// The correlation-function plot shows C where it lives: out to kPlotWidths widths of its short-time
// fall-off exp(-variance t^2 / 2) (the gap's variance, plus sigma^2 for a Gaussian line), the
// window doubled while |C| D is still above 2 % of C(0) near its end (the recurrences of a few
// undamped modes), never beyond the block's tmax or where the damping has fallen below e^-18.
constexpr double kPlotWidths = 6.0;
constexpr double kAlive = 0.02;
constexpr std::int64_t kPlotPoints = 64;      // over the first window
constexpr std::int64_t kMaxPlotPoints = 512;  // over a doubled one

struct Shown {
  std::vector<cplx> c;
  double step = 0.0;
};

bool still_alive(const Shown& s, const Damping& d) {
  const std::size_t n = s.c.size();
  double tail = 0.0;
  for (std::size_t k = n - n / 5 - 1; k < n; ++k)
    tail = std::max(tail, std::abs(s.c[k]) * damping_at(d, s.step * static_cast<double>(k)));
  return tail > kAlive * std::abs(s.c[0]);
}

Shown plotted_correlation(EngineContext& ctx, const Damping& d, double dt, std::int64_t nt,
                          const std::vector<cplx>& on_grid, std::vector<std::string>& warnings) {
  const double tmax = dt * static_cast<double>(nt);
  const bool gaussian = d.shape == DampingShape::gaussian;
  const double limit = std::min(tmax, gaussian ? kPlotWidths / d.width : 18.0 / d.width);
  const double var = gap_variance(ctx.in) + (gaussian ? d.width * d.width : 0.0);
  const double first = var > 0.0 ? std::min(limit, kPlotWidths / std::sqrt(var)) : limit;
  for (double window = first;; window = std::min(2.0 * window, limit)) {
    Shown s;
    std::vector<std::string> said;
    if (!on_grid.empty()) {
      const auto n = std::clamp<std::int64_t>(static_cast<std::int64_t>(std::ceil(window / dt)),
                                              std::min<std::int64_t>(nt, kPlotPoints / 4), nt);
      s.c.assign(on_grid.begin(), on_grid.begin() + static_cast<std::ptrdiff_t>(n) + 1);
      s.step = dt;
    } else {
      const auto n = std::min(
          kMaxPlotPoints, static_cast<std::int64_t>(std::llround(kPlotPoints * window / first)));
      s.step = window / static_cast<double>(n);
      s.c = exact_correlation(ctx, s.step, n, said);
    }
    if (window >= limit || !still_alive(s, d)) {
      warnings.insert(warnings.end(), said.begin(), said.end());
      return s;
    }
  }
}

void rate_command(const RateOptions& o) {
  ParameterSet p;
  DushinData v;
  if (!read_inputs(o.input, p, v)) return;
  const Damping d = damping_from(p);
  if (o.modes && (d.shape != DampingShape::gaussian || o.real_axis))
    throw FatalError(
        "ictvcf rate: --modes integrates on the shifted contour: it needs a Gaussian line and "
        "no --real-axis",
        2);
  const std::string base(rtrim(p.ftfile));
  const EngineInputs in = engine_inputs(p, v);
  EngineContext ctx(in);

  std::vector<std::string> warnings;
  const bool contour = d.shape == DampingShape::gaussian && !o.real_axis;
  // The exact C(t) on the block's whole grid: the real-axis integral needs it, --exact writes it.
  std::vector<cplx> c;
  if (!contour || o.exact) c = exact_correlation(ctx, p.dt, p.nt, warnings, terminal_progress());
  std::string files;
  if (o.exact) {
    write_text(base + ".exact", exact_text(c, p.dt), "exact correlation function");
    files = base + ".exact, ";
  }

  // The scan: ead -/+ 1 eV, the gaps above zero (internal conversion releases energy).
  std::vector<double> gaps;
  std::size_t middle = 0;
  for (double g : gap_grid(p.ead, kScanHalfWidthEv / au2ev, kScanPoints))
    if (g > 0.0) {
      if (g == p.ead) middle = gaps.size();
      gaps.push_back(g);
    }
  Rates r = contour ? contour_scan(ctx, d, o.tol, gaps, middle) : real_axis_scan(c, p, d, gaps);
  if (d.shape == DampingShape::lorentzian) lorentzian_wings(ctx, d, p.ead, o.tol, r);
  write_text(base + ".rate", scan_text(gaps, r.scan, contour ? &r.errors : nullptr), "rate scan");
  write_text(base + ".rate.svg",
             gap_law_svg(gaps, r.scan, p.ead, r.at_ead, d,
                         contour ? std::numeric_limits<double>::infinity() : kPi / p.dt),
             "energy-gap plot");
  const Shown shown = plotted_correlation(ctx, d, p.dt, p.nt, c, warnings);
  write_text(base + ".corr.svg", correlation_svg(shown.c, shown.step, d),
             "correlation-function plot");
  files += base + ".rate, " + base + ".rate.svg, " + base + ".corr.svg";
  print_summary(p, d, r, files);
  warnings.insert(warnings.end(), r.warnings.begin(), r.warnings.end());
  if (o.modes) mode_analysis(ctx, d, p.ead, o.tol, base, warnings);
  if (!o.temps.empty()) temperature_study(in, p, d, o, base, warnings);
  for (const std::string& w : warnings) std::cerr << "ictvcf rate: warning: " << w << '\n';
}

}  // namespace

std::vector<double> parse_temperature_list(const std::string& list) {
  auto number = [&](const std::string& text) {
    std::size_t used = 0;
    double x = 0.0;
    try {
      x = std::stod(text, &used);
    } catch (const std::exception&) {
      used = 0;
    }
    if (used == 0 || used != text.size() || !(x >= 0.0) || !std::isfinite(x))
      throw FatalError("ictvcf rate: --temps " + list +
                           ": expected temperatures in K (0 or more), "
                           "like 77,150,300 or 100:500:50; found '" +
                           text + "'",
                       2);
    return x;
  };
  std::vector<double> out;
  if (list.find(':') != std::string::npos) {
    const std::size_t a = list.find(':'), b = list.find(':', a + 1);
    if (b == std::string::npos)
      throw FatalError("ictvcf rate: --temps " + list + ": a range is first:last:step", 2);
    const double first = number(list.substr(0, a)), last = number(list.substr(a + 1, b - a - 1)),
                 step = number(list.substr(b + 1));
    if (!(step > 0.0) || last < first)
      throw FatalError("ictvcf rate: --temps " + list + ": a range needs last >= first, step > 0",
                       2);
    for (double t = first; t <= last + 1e-9 * step; t += step) out.push_back(t);
  } else {
    std::size_t at = 0;
    for (;;) {
      const std::size_t comma = list.find(',', at);
      out.push_back(number(list.substr(at, comma - at)));
      if (comma == std::string::npos) break;
      at = comma + 1;
    }
  }
  return out;
}

RateOptions parse_rate_options(const std::vector<std::string>& args) {
  RateOptions o;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> const std::string& {
      if (i + 1 >= args.size()) throw FatalError("ictvcf rate: " + a + " needs a value", 2);
      return args[++i];
    };
    if (a == "--tol") {
      const std::string& t = value();
      std::size_t used = 0;
      try {
        o.tol = std::stod(t, &used);
      } catch (const std::exception&) {
        used = 0;
      }
      if (used != t.size() || used == 0 || !(o.tol > 0.0 && o.tol < 1.0))
        throw FatalError("ictvcf rate: --tol " + t +
                             ": expected a relative accuracy between 0 "
                             "and 1, such as 1e-6",
                         2);
    } else if (a == "--real-axis") {
      o.real_axis = true;
    } else if (a == "--modes") {
      o.modes = true;
    } else if (a == "--exact") {
      o.exact = true;
    } else if (a == "--temps") {
      o.temps = parse_temperature_list(value());
    } else if (a == "--radiative") {
      o.radiative = true;
    } else if (a == "--yield") {
      o.yield = true;
    } else if (a == "--dipole") {
      o.dipole = value();
    } else if (a == "--refractive-index") {
      const std::string& t = value();
      std::size_t used = 0;
      try {
        o.refractive_index = std::stod(t, &used);
      } catch (const std::exception&) {
        used = 0;
      }
      if (used != t.size() || used == 0 || !(o.refractive_index > 0.0) ||
          !std::isfinite(o.refractive_index))
        throw FatalError("ictvcf rate: --refractive-index " + t +
                             ": expected the medium's refractive index, a number above 0 (1 for "
                             "vacuum, about 1.33 for water)",
                         2);
    } else if (a == "--isc") {
      o.isc = true;
    } else if (a == "--soc") {
      o.soc_values = value();
      if (i + 1 >= args.size())
        throw FatalError("ictvcf rate: --soc " + o.soc_values +
                             ": expected the values and a unit, cm-1, eV or au",
                         2);
      o.soc_unit = value();
      parse_soc_values(o.soc_values, o.soc_unit);  // checked before anything is read
    } else if (a == "--soc-file") {
      o.soc_file = value();
    } else if (a == "--isc-input") {
      o.isc_input = value();
    } else if (a == "--spin") {
      o.spin = value();
      o.spin_given = true;
    } else if (a.size() > 1 && a[0] == '-') {
      throw FatalError("ictvcf rate: unknown option " + a, 2);
    } else if (o.input.empty()) {
      o.input = a;
    } else {
      throw FatalError("ictvcf rate: one input file only (" + o.input + ", " + a + ")", 2);
    }
  }
  if (o.input.empty()) throw FatalError("ictvcf rate: the input file is missing", 2);
  if (o.radiative && o.yield)
    throw FatalError("ictvcf rate: --radiative and --yield: give one (--yield includes k_r)", 2);
  if ((o.radiative || o.yield) && o.real_axis)
    throw FatalError(
        "ictvcf rate: --real-axis: k_r and the emission spectrum are computed on "
        "the shifted contour only",
        2);
  if (o.yield && o.modes) throw FatalError("ictvcf rate: --modes does not combine with --yield", 2);
  if (o.isc && (o.radiative || o.yield))
    throw FatalError(
        "ictvcf rate: --isc gives k_ISC alone; --yield --soc ... adds it to the yield's "
        "denominator",
        2);
  if (o.isc && o.soc_values.empty() == o.soc_file.empty())
    throw FatalError(
        "ictvcf rate: --isc needs the spin-orbit coupling, one of --soc VALUES UNIT (one value "
        "summed over the triplet's sublevels, or three for M = 0, +1, -1; unit cm-1, eV or au) "
        "or --soc-file FILE (its values and derivatives per sublevel)",
        2);
  if (!o.isc && !o.yield && (!o.soc_values.empty() || !o.soc_file.empty() || o.spin_given))
    throw FatalError("ictvcf rate: --soc, --soc-file and --spin belong to --isc (or --yield)", 2);
  if (o.yield && !o.soc_values.empty() && !o.soc_file.empty())
    throw FatalError("ictvcf rate: --soc and --soc-file: give one", 2);
  if (o.yield && (!o.soc_values.empty() || !o.soc_file.empty()) != !o.isc_input.empty())
    throw FatalError(
        "ictvcf rate: --yield counts k_ISC with both the spin-orbit coupling (--soc or "
        "--soc-file) and --isc-input FILE, the singlet-triplet crossing's own block (its gap "
        "ead and its modes: the emission's block describes the singlet's other crossing)",
        2);
  if (!o.yield && !o.isc_input.empty())
    throw FatalError("ictvcf rate: --isc-input belongs to --yield", 2);
  if (!o.soc_values.empty())  // the rule with the values, before anything is read
    soc_squared(parse_soc_values(o.soc_values, o.soc_unit), parse_spin_rule(o.spin));
  if (o.spin_given) parse_spin_rule(o.spin);
  if (o.isc && (o.real_axis || o.exact))
    throw FatalError(
        "ictvcf rate: --isc integrates on the shifted contour only (no --real-axis, --exact)", 2);
  if (o.isc && o.modes && o.soc_file.empty())
    throw FatalError(
        "ictvcf rate: --modes with --isc needs --soc-file: a constant spin-orbit coupling is "
        "lent by no mode",
        2);
  return o;
}

int run_rate(const RateOptions& options) {
  if (options.radiative) return guarded([&] { radiative_command(options); });
  if (options.yield) return guarded([&] { yield_command(options); });
  if (options.isc) return guarded([&] { isc_command(options); });
  return guarded([&] { rate_command(options); });
}

}  // namespace ictvcf
