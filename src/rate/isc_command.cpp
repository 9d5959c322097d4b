// `ictvcf rate --isc --soc VALUES UNIT [--spin RULE] INPUT`: the intersystem-crossing rate between
// a singlet and a triplet from a constant spin-orbit coupling, k_ISC = |V|^2 K_FC(ead), K_FC the
// transform of the Franck-Condon correlation function (the operator 1) on the shifted contour, at
// gaps of either sign (ead < 0: the uphill direction, the reverse crossing of a TADF emitter).
// Reads as `ictvcf rate` does and writes only files named after `ftfile`.
#include <cmath>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

#include "coupling/soc.h"
#include "engine/engine.h"
#include "rate/command.h"
#include "rate/contour.h"
#include "rate/integral.h"
#include "rate/plot.h"
#include "run/run.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

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

std::string conventions_line() {
  return printed(
      "conventions: k_ISC = |V|^2 integral dt e^{i ead t} C_FC(t) D(t) = 2 pi |V|^2 FCWD(ead) "
      "(hbar = 1; FCWD the Franck-Condon weighted density of states per hartree, C_FC(0) = 1); "
      "1 cm-1 = %.7g hartree, 1 eV = %.7g hartree; s-1 = au / %.10g",
      1.0 / au2cm, 1.0 / au2ev, 1.0 / au_per_second);
}

std::string scan_text(const std::vector<double>& gaps, const std::vector<GapRate>& rates,
                      double v2) {
  std::string s = printed("#%15s %16s %24s %24s %12s %9s\n", "dE(cm-1)", "dE(eV)", "k_ISC(au)",
                          "k_ISC(s-1)", "rel.error", "reversed");
  for (std::size_t i = 0; i < gaps.size(); ++i) {
    const double k = v2 * rates[i].rate;
    s += printed("%16.8e %16.8e %24.16e %24.16e %12.3e %9d\n", gaps[i] * au2cm, gaps[i] * au2ev, k,
                 k * au_per_second, rates[i].error, rates[i].reversed ? 1 : 0);
  }
  return s;
}

std::string method_line(const ContourResult& r, const EngineInputs& in, double sigma, double tol) {
  const GapRate& e = r.rates[0];
  std::string s = "method: shifted time contour t = s + i tau";
  if (e.reversed) {
    const double beta = kelvin_per_hartree / in.temp;
    s += printed(
        " of the reverse crossing (the states swapped) at the gap %.6g cm-1, by detailed "
        "balance k(E) = (Z1/Z2) e^{beta E + beta^2 sigma^2/2} k_reverse(-E - beta sigma^2), "
        "ln(Z1/Z2) = %.6g",
        (-e.gap - beta * sigma * sigma) * au2cm, 0.0 - ln_partition_ratio(in));
  }
  return s + printed(
                 ", tau = %.6g au (saddle point tau0 = %.6g au), step %.4g au over s = 0 .. "
                 "%.6g au; %d contour%s for the scan, %lld engine evaluations; estimated "
                 "relative error %.2g (tolerance %.2g)",
                 e.tau, e.saddle, e.step, e.window, r.contours, r.contours == 1 ? "" : "s",
                 static_cast<long long>(r.evaluations), e.error, tol);
}

}  // namespace

void isc_command(const RateOptions& o) {
  const SocValues soc = parse_soc_values(o.soc_values, o.soc_unit);
  const SpinRule rule = parse_spin_rule(o.spin);
  const double v2 = soc_squared(soc, rule);
  ParameterSet p;
  DushinData v;
  if (!read_inputs(o.input, p, v, true)) return;
  const Damping d = damping_from(p);
  if (d.shape != DampingShape::gaussian)
    throw FatalError(
        "ictvcf rate: --isc integrates on the shifted contour, which needs a Gaussian line "
        "(broadentype = gaussian)",
        2);
  const std::string base(rtrim(p.ftfile));
  EngineInputs in = engine_inputs(p, v);
  in.op.kind = OperatorKind::franck_condon;
  EngineContext ctx(in);

  // The scan with ead first: it anchors the contours.
  const std::vector<double> gaps = gap_grid(p.ead, kScanHalfWidthEv / au2ev, kScanPoints);
  std::vector<double> ordered{p.ead};
  for (std::size_t i = 0; i < gaps.size(); ++i)
    if (i != kScanPoints / 2) ordered.push_back(gaps[i]);
  const ContourResult r = contour_rates(ctx, ContourSettings{d.width, o.tol}, ordered);
  std::vector<GapRate> scan(gaps.size());
  std::vector<double> rates(gaps.size());
  for (std::size_t k = 0; k < ordered.size(); ++k) {
    const std::size_t i = k == 0 ? kScanPoints / 2 : (k <= kScanPoints / 2 ? k - 1 : k);
    scan[i] = r.rates[k];
    rates[i] = v2 * r.rates[k].rate;
  }
  const GapRate& e = r.rates[0];
  const double k = v2 * e.rate, log_k = std::log(v2) + e.log_rate;
  write_text(base + ".isc", scan_text(gaps, scan, v2), "k_ISC scan");
  write_text(
      base + ".isc.svg",
      gap_law_svg(gaps, rates, p.ead, k, d, std::numeric_limits<double>::infinity(), "k_ISC"),
      "energy-gap plot");
  std::vector<std::string> warnings = r.warnings;

  std::cout << damping_line(d) << '\n'
            << printed("gap: ead = %.6g cm-1 = %.6g eV, temperature %.6g K", p.ead * au2cm,
                       p.ead * au2ev, p.temp)
            << (p.ead > 0.0 ? "" : " (uphill: the initial state lies below the final one)") << '\n'
            << coupling_line(soc, rule, v2) << '\n'
            << conventions_line() << '\n'
            << rate_line(k * au_per_second, log_k + std::log(au_per_second), "s-1")
            << rate_line(k, log_k, "au") << method_line(r, in, d.width, o.tol) << '\n';
  std::string files = base + ".isc, " + base + ".isc.svg";
  if (!o.temps.empty()) {
    std::vector<double> at_t, errors;
    std::cout << "temperatures: T (K), k_ISC (s-1), estimated relative error\n";
    for (double temp : o.temps) {
      EngineInputs in_t = in;
      in_t.temp = temp;
      EngineContext ctx_t(in_t);
      const ContourResult t =
          contour_rates(ctx_t, ContourSettings{d.width, o.tol}, std::span<const double>(&p.ead, 1));
      for (const std::string& w : t.warnings) warnings.push_back(printed("at %g K: ", temp) + w);
      at_t.push_back(v2 * t.rates[0].rate);
      errors.push_back(t.rates[0].error);
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
    files += ", " + base + ".isc.temps, " + base + ".isc.temps.svg";
  }
  std::cout << "written: " << files << '\n' << std::flush;
  for (const std::string& w : warnings) std::cerr << "ictvcf rate: warning: " << w << '\n';
}

}  // namespace ictvcf
