// `ictvcf rate --isc --soc VALUES UNIT [--spin RULE] INPUT`: the intersystem-crossing rate between
// a singlet and a triplet from a constant spin-orbit coupling, k_ISC = |V|^2 K_FC(ead), K_FC the
// transform of the Franck-Condon correlation function (the operator 1) on the shifted contour, at
// gaps of either sign (ead < 0: the uphill direction, the reverse crossing of a TADF emitter).
// With `--soc-file FILE` the coupling of each sublevel is linear in the coordinates
// (Herzberg-Teller) and enters the correlation function as the engine's linear operator.
// Reads as `ictvcf rate` does and writes only files named after `ftfile`.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "coupling/soc.h"
#include "engine/engine.h"
#include "rate/analysis.h"
#include "rate/command.h"
#include "rate/contour.h"
#include "rate/crossing.h"
#include "rate/integral.h"
#include "rate/plot.h"
#include "run/run.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"
#include "util/text_file.h"

namespace ictvcf {

namespace {

constexpr double kLn10 = 2.302585092994046;
// Gaps scanned: ead -/+ 1 eV in 201 steps of 0.01 eV, of either sign.
constexpr double kScanHalfWidthEv = 1.0;
constexpr int kScanPoints = 201;

// "k_ISC = 1.234567e+02 s-1", or the power of ten where the number underflows a double.
std::string rate_line(double rate, double log_rate, const char* unit) {
  if (rate == 0.0 && std::isfinite(log_rate))
    return printed("k_ISC = 10^%.6f %s (below the range of double precision)\n", log_rate / kLn10,
                   unit);
  return printed("k_ISC = %.6e %s\n", rate, unit);
}

std::string coupling_line(const SocValues& soc, SpinRule rule, double v2) {
  std::string s = "spin-orbit coupling: --soc " + soc.text;
  if (soc.summed) {
    s += " (one value, the root of the sum over the sublevels)";
  } else {
    s += printed(" (|V_M| = %.6g, %.6g, %.6g cm-1 for M = 0, +1, -1)",
                 std::abs(soc.sublevel[0]) * au2cm, std::abs(soc.sublevel[1]) * au2cm,
                 std::abs(soc.sublevel[2]) * au2cm);
  }
  return s + "\nrule: " + spin_rule_words(rule) +
         printed("\n|V|^2 = %.6e cm-2 = %.6e au^2", v2 * au2cm * au2cm, v2);
}

std::string conventions_line(bool from_file) {
  return printed(
      "conventions: %s (hbar = 1; FCWD the Franck-Condon weighted density of states per "
      "hartree, C_FC(0) = 1); 1 cm-1 = %.7g hartree, 1 eV = %.7g hartree; s-1 = au / %.10g",
      from_file ? "k_ISC = w sum_M integral dt e^{i ead t} C_VM(t) D(t), w = 1 (sum) or 1/3 "
                  "(average), C_VM the correlation function of V_M = V0_M + dV_M.Q1, "
                  "= 2 pi |V0|^2 FCWD(ead) without derivatives"
                : "k_ISC = |V|^2 integral dt e^{i ead t} C_FC(t) D(t) = 2 pi |V|^2 FCWD(ead)",
      1.0 / au2cm, 1.0 / au2ev, 1.0 / au_per_second);
}

// A coupling read from --soc-file.
struct SocData {
  SocFile file;
  SublevelCoupling sub;
  bool constant = false, derivatives = false;
};

Coupling file_coupling(const EngineInputs& in, const SocData& soc, SpinRule rule, CouplingPart part,
                       int only_mode = -1) {
  return linear_coupling(in, soc.sub, rule == SpinRule::singlet_triplet ? 1.0 : 1.0 / 3.0, part,
                         only_mode);
}

std::string scan_text(const std::vector<double>& gaps, const std::vector<GapRate>& rates) {
  std::string s = printed("#%15s %16s %24s %24s %12s %9s\n", "dE(cm-1)", "dE(eV)", "k_ISC(au)",
                          "k_ISC(s-1)", "rel.error", "reversed");
  for (std::size_t i = 0; i < gaps.size(); ++i) {
    const double k = rates[i].rate;
    s += printed("%16.8e %16.8e %24.16e %24.16e %12.3e %9d\n", gaps[i] * au2cm, gaps[i] * au2ev, k,
                 k * au_per_second, rates[i].error, rates[i].reversed ? 1 : 0);
  }
  return s;
}

std::string method_line(const CrossingRates& c, const EngineInputs& in, double sigma, double tol) {
  const GapRate& e = c.rates[0];
  std::string s = "method: shifted time contour t = s + i tau";
  if (e.reversed) {
    const double beta = kelvin_per_hartree / in.temp;
    s += printed(
        " of the reverse crossing (the states swapped) at the gap %.6g cm-1, by detailed "
        "balance k(E) = (Z1/Z2) e^{beta E + beta^2 sigma^2/2} k_reverse(-E - beta sigma^2), "
        "ln(Z1/Z2) = %.6g",
        (-e.gap - beta * sigma * sigma) * au2cm, 0.0 - ln_partition_ratio(in));
  }
  s += printed(
      ", tau = %.6g au (saddle point tau0 = %.6g au), step %.4g au over s = 0 .. %.6g au; %d "
      "contour%s for the scan, %lld engine evaluations; estimated relative error %.2g "
      "(tolerance %.2g)",
      e.tau, e.saddle, e.step, e.window, c.contours, c.contours == 1 ? "" : "s",
      static_cast<long long>(c.evaluations), c.rates[0].error, tol);
  if (c.contours > c.first_contours)
    s += "; the sublevels' real and imaginary parts on contours of their own";
  return s;
}

double coupling_rate(const Coupling& c, double gap, double sigma, double tol,
                     std::int64_t& evaluations, std::vector<std::string>& warnings) {
  const CrossingRates r = crossing_rates(c, sigma, tol, std::span<const double>(&gap, 1));
  evaluations += r.evaluations;
  warnings.insert(warnings.end(), r.warnings.begin(), r.warnings.end());
  return r.rates[0].rate;
}

// k_ISC of a file's coupling split as k_r is: V0 alone, the derivatives alone, the interference.
void print_parts(const EngineInputs& in, const SocData& soc, SpinRule rule, double gap,
                 double sigma, double tol, double total, std::vector<std::string>& warnings) {
  if (!soc.constant || !soc.derivatives) return;
  std::int64_t evaluations = 0;
  const double fc = coupling_rate(file_coupling(in, soc, rule, CouplingPart::franck_condon), gap,
                                  sigma, tol, evaluations, warnings);
  const double ht = coupling_rate(file_coupling(in, soc, rule, CouplingPart::herzberg_teller), gap,
                                  sigma, tol, evaluations, warnings);
  double interference = total - fc - ht;
  if (std::fabs(interference) <= 10.0 * tol * (fc + ht)) interference = 0.0;
  auto pair = [](double au) { return printed("%.6e s-1 (%.6e au)", au * au_per_second, au); };
  std::cout << "  Franck-Condon:   " << pair(fc) << '\n'
            << "  Herzberg-Teller: " << pair(ht) << '\n'
            << "  interference:    " << pair(interference)
            << printed(" (within %.1e of k_ISC; %lld engine evaluations)", 10.0 * tol,
                       static_cast<long long>(evaluations))
            << '\n';
}

// --modes: the modes that lend the coupling: each mode's derivatives alone, and beside V0 the
// interference they add.
void lending_modes(const EngineInputs& in, const SocData& soc, SpinRule rule, double gap,
                   double sigma, double tol, double fc, const std::string& base,
                   const DushinData& v, std::vector<std::string>& warnings,
                   std::vector<std::string>& written) {
  std::vector<LendingMode> rows;
  std::int64_t evaluations = 0;
  const std::size_t n = static_cast<std::size_t>(in.nmode);
  for (std::size_t k = 0; k < n; ++k) {
    bool any = false;
    for (std::size_t m = 0; m < 3; ++m) any = any || soc.sub.dv[m * n + k] != 0.0;
    if (!any) continue;
    LendingMode r{v.order(static_cast<int>(k) + 1, 1), in.omegag[k], 0.0, 0.0};
    r.alone = coupling_rate(
        file_coupling(in, soc, rule, CouplingPart::herzberg_teller, static_cast<int>(k)), gap,
        sigma, tol, evaluations, warnings);
    if (soc.constant) {
      r.interference =
          coupling_rate(file_coupling(in, soc, rule, CouplingPart::whole, static_cast<int>(k)), gap,
                        sigma, tol, evaluations, warnings) -
          fc - r.alone;
      if (std::fabs(r.interference) <= 10.0 * tol * (fc + r.alone)) r.interference = 0.0;
    }
    rows.push_back(r);
  }
  write_text(base + ".isc.modes", lending_text(rows), "coupling-lending modes");
  written.push_back(base + ".isc.modes");
  std::cout << lending_summary(rows, "the coupling", static_cast<long long>(evaluations), "V0")
            << std::flush;
}

std::string file_line(const std::string& name, const SocData& soc) {
  return printed(
      "spin-orbit coupling: %s, |V0_M| = %.6g, %.6g, %.6g cm-1 for M = 0, +1, -1; "
      "derivatives for %zu modes (d V_M/d Q along the final state's mass-weighted "
      "normal coordinates)",
      name.c_str(), std::abs(soc.file.v0[0]) * au2cm, std::abs(soc.file.v0[1]) * au2cm,
      std::abs(soc.file.v0[2]) * au2cm, soc.file.modes.size());
}

// The crossing's block, damping and coupling.
struct Crossing {
  ParameterSet p;
  DushinData v;
  Damping d;
  SpinRule rule = SpinRule::singlet_triplet;
  bool from_file = false;
  SocValues values;
  double v2 = 1.0;  // |V|^2 of a constant coupling
  SocData soc;
  EngineInputs in;
  Coupling coupling;
};

bool read_crossing(const RateOptions& o, const std::string& input, Crossing& x) {
  x.rule = parse_spin_rule(o.spin);
  x.from_file = !o.soc_file.empty();
  if (!x.from_file) {
    x.values = parse_soc_values(o.soc_values, o.soc_unit);
    x.v2 = soc_squared(x.values, x.rule);
  }
  if (!read_inputs(input, x.p, x.v, true)) return false;
  x.d = damping_from(x.p);
  if (x.d.shape != DampingShape::gaussian)
    throw FatalError(
        "ictvcf rate: k_ISC is integrated on the shifted contour, which needs a Gaussian line "
        "(broadentype = gaussian in " +
            input + ")",
        2);
  x.in = engine_inputs(x.p, x.v);
  if (x.from_file) {
    TextFile f = open_text_file(o.soc_file);
    x.soc.file = read_soc_file(f);
    x.soc.sub.v0 = x.soc.file.v0;
    x.soc.sub.dv = soc_derivatives(x.soc.file, o.soc_file, x.v, x.p.n3all);
    for (const auto& z : x.soc.sub.v0) x.soc.constant = x.soc.constant || z != 0.0;
    for (const auto& z : x.soc.sub.dv) x.soc.derivatives = x.soc.derivatives || z != 0.0;
    x.coupling = file_coupling(x.in, x.soc, x.rule, CouplingPart::whole);
  } else {
    x.coupling = constant_coupling(x.in, x.v2);
  }
  return true;
}

// What the coupling is and how it counts.
std::string coupling_lines(const RateOptions& o, const Crossing& x) {
  if (!x.from_file) return coupling_line(x.values, x.rule, x.v2);
  const double v0 =
      std::norm(x.soc.file.v0[0]) + std::norm(x.soc.file.v0[1]) + std::norm(x.soc.file.v0[2]);
  return file_line(o.soc_file, x.soc) + "\nrule: " + spin_rule_words(x.rule) + "\n" +
         printed("|V0|^2 = %.6e cm-2 = %.6e au^2 (the Franck-Condon part's)",
                 x.coupling.weight * v0 * au2cm * au2cm, x.coupling.weight * v0);
}

// k_ISC at ead at a temperature.
double rate_at_temperature(const Crossing& x, double temp, double tol, double& error,
                           std::vector<std::string>& warnings) {
  Coupling c = x.coupling;
  for (EngineInputs& op : c.operators) op.temp = temp;
  const CrossingRates t = crossing_rates(c, x.d.width, tol, std::span<const double>(&x.p.ead, 1));
  for (const std::string& w : t.warnings) warnings.push_back(printed("at %g K: ", temp) + w);
  error = t.rates[0].error;
  return t.rates[0].rate;
}

}  // namespace

bool isc_channel(const RateOptions& o, IscChannel& channel) {
  auto x = std::make_shared<Crossing>();
  if (!read_crossing(o, o.isc_input, *x)) return false;
  channel.lines = {printed("intersystem crossing: %s, ead = %.6g cm-1 = %.6g eV, ",
                           o.isc_input.c_str(), x->p.ead * au2cm, x->p.ead * au2ev) +
                       damping_line(x->d).substr(9) + (x->p.ead > 0.0 ? "" : " (uphill)"),
                   coupling_lines(o, *x)};
  const double tol = o.tol;
  channel.rate_at = [x, tol](double temp, std::vector<std::string>& warnings) {
    double error = 0.0;
    return rate_at_temperature(*x, temp, tol, error, warnings);
  };
  return true;
}

void isc_command(const RateOptions& o) {
  Crossing x;
  if (!read_crossing(o, o.input, x)) return;
  const ParameterSet& p = x.p;
  const DushinData& v = x.v;
  const Damping& d = x.d;
  const SpinRule rule = x.rule;
  const bool from_file = x.from_file;
  const SocData& soc = x.soc;
  const EngineInputs& in = x.in;
  const Coupling& coupling = x.coupling;
  const std::string base(rtrim(p.ftfile));

  // The scan with ead first: it anchors the contours.
  const std::vector<double> gaps = gap_grid(p.ead, kScanHalfWidthEv / au2ev, kScanPoints);
  std::vector<double> ordered{p.ead};
  for (std::size_t i = 0; i < gaps.size(); ++i)
    if (i != kScanPoints / 2) ordered.push_back(gaps[i]);
  const CrossingRates r = crossing_rates(coupling, d.width, o.tol, ordered);
  std::vector<GapRate> scan(gaps.size());
  std::vector<double> rates(gaps.size());
  for (std::size_t k = 0; k < ordered.size(); ++k) {
    const std::size_t i = k == 0 ? kScanPoints / 2 : (k <= kScanPoints / 2 ? k - 1 : k);
    scan[i] = r.rates[k];
    rates[i] = r.rates[k].rate;
  }
  const double k = r.rates[0].rate, log_k = r.rates[0].log_rate;
  write_text(base + ".isc", scan_text(gaps, scan), "k_ISC scan");
  write_text(
      base + ".isc.svg",
      gap_law_svg(gaps, rates, p.ead, k, d, std::numeric_limits<double>::infinity(), "k_ISC"),
      "energy-gap plot");
  std::vector<std::string> warnings = r.warnings, written{base + ".isc", base + ".isc.svg"};

  std::cout << damping_line(d) << '\n'
            << printed("gap: ead = %.6g cm-1 = %.6g eV, temperature %.6g K", p.ead * au2cm,
                       p.ead * au2ev, p.temp)
            << (p.ead > 0.0 ? "" : " (uphill: the initial state lies below the final one)") << '\n';
  std::cout << coupling_lines(o, x) << '\n';
  std::cout << conventions_line(from_file) << '\n'
            << rate_line(k * au_per_second, log_k + std::log(au_per_second), "s-1")
            << rate_line(k, log_k, "au");
  if (from_file) print_parts(in, soc, rule, p.ead, d.width, o.tol, k, warnings);
  std::cout << method_line(r, in, d.width, o.tol) << '\n';
  if (from_file && o.modes) {
    std::int64_t evaluations = 0;
    const double fc = soc.constant
                          ? coupling_rate(file_coupling(in, soc, rule, CouplingPart::franck_condon),
                                          p.ead, d.width, o.tol, evaluations, warnings)
                          : 0.0;
    lending_modes(in, soc, rule, p.ead, d.width, o.tol, fc, base, v, warnings, written);
  }
  if (!o.temps.empty()) {
    std::vector<double> at_t, errors;
    std::cout << "temperatures: T (K), k_ISC (s-1), estimated relative error\n";
    for (double temp : o.temps) {
      double error = 0.0;
      at_t.push_back(rate_at_temperature(x, temp, o.tol, error, warnings));
      errors.push_back(error);
      std::cout << printed("  %10.3f  %.6e  %.2g", temp, at_t.back() * au_per_second, errors.back())
                << '\n';
    }
    std::string s =
        printed("#%15s %24s %24s %12s\n", "T(K)", "k_ISC(s-1)", "k_ISC(au)", "rel.error");
    for (std::size_t i = 0; i < at_t.size(); ++i)
      s += printed("%16.8e %24.16e %24.16e %12.3e\n", o.temps[i], at_t[i] * au_per_second, at_t[i],
                   errors[i]);
    write_text(base + ".isc.temps", s, "temperature study of k_ISC");
    write_text(base + ".isc.temps.svg", temps_svg(o.temps, at_t, "k_ISC"), "temperature plot");
    written.push_back(base + ".isc.temps");
    written.push_back(base + ".isc.temps.svg");
  }
  std::string list;
  for (const std::string& w : written) list += (list.empty() ? "" : ", ") + w;
  std::cout << "written: " << list << '\n' << std::flush;
  for (const std::string& w : warnings) std::cerr << "ictvcf rate: warning: " << w << '\n';
}

}  // namespace ictvcf
