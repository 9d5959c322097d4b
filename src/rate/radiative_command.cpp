// `ictvcf rate --radiative INPUT` and `ictvcf rate --yield INPUT`: the radiative rate k_r from the
// transition dipole (dipole.dat), split into its Franck-Condon and Herzberg-Teller parts, the
// emission spectrum and its plot; and the fluorescence quantum yield from k_r and k_IC at the
// same temperatures. Reads as `ictvcf rate` does and writes only files named after `ftfile`.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <vector>

#include "coupling/dipole.h"
#include "engine/engine.h"
#include "rate/analysis.h"
#include "rate/command.h"
#include "rate/contour.h"
#include "rate/integral.h"
#include "rate/plot.h"
#include "rate/radiative.h"
#include "run/run.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"
#include "util/text_file.h"

namespace ictvcf {

namespace {

struct Molecule {
  ParameterSet p;
  DushinData v;
  Damping d;
  std::string base;  // ftfile
};

// The block, the data files and the damping, which must be a Gaussian: the w^3-weighted
// integral of a Lorentzian line diverges.
bool read_molecule(const RateOptions& o, Molecule& m) {
  if (!read_inputs(o.input, m.p, m.v)) return false;
  m.d = damping_from(m.p);
  if (m.d.shape != DampingShape::gaussian)
    throw FatalError(
        "ictvcf rate: k_r needs a Gaussian line (broadentype = gaussian): the emission of a "
        "Lorentzian line, weighted by w^3, has no finite integral",
        2);
  m.base = std::string(rtrim(m.p.ftfile));
  return true;
}

struct Dipole {
  DipoleFile file;
  std::vector<double> dmu;  // store order, m_kc at [c * nmode + k]
  bool constant = false, derivatives = false;
};

Dipole read_dipole(const std::string& name, const Molecule& m) {
  Dipole out;
  TextFile f = open_text_file(name);
  out.file = read_dipole_file(f);
  out.dmu = dipole_derivatives(out.file, name, m.v, m.p.n3all);
  for (double x : out.file.mu0) out.constant = out.constant || x != 0.0;
  for (double x : out.dmu) out.derivatives = out.derivatives || x != 0.0;
  return out;
}

// The engine's inputs with the dipole, or its constant part, or its derivatives alone.
enum class Part { whole, franck_condon, herzberg_teller };

EngineInputs with_dipole(const EngineInputs& in, const Dipole& dip, Part part) {
  EngineInputs out = in;
  out.op.kind = OperatorKind::dipole;
  out.op.mu0 = part == Part::herzberg_teller ? std::array<double, 3>{} : dip.file.mu0;
  if (part != Part::franck_condon) out.op.dmu = dip.dmu;
  return out;
}

double rate_of(const EngineInputs& in, double gap, double sigma, double n, int& evaluations) {
  EngineContext ctx(in);
  const SpectralMoments m = spectral_moments(ctx);
  evaluations += m.evaluations;
  return radiative_rate(m, gap, sigma, n);
}

// k_r and its parts: Franck-Condon (mu0 alone), Herzberg-Teller (the derivatives alone) and
// their interference (the rest; k_r is a quadratic form in the dipole).
struct RadiativeParts {
  SpectralMoments moments;
  double total = 0.0, fc = 0.0, ht = 0.0, interference = 0.0;
  int evaluations = 0;
};

RadiativeParts radiative_parts(const EngineInputs& in, const Dipole& dip, double gap, double sigma,
                               double n) {
  RadiativeParts r;
  EngineInputs whole = with_dipole(in, dip, Part::whole);
  EngineContext ctx(whole);
  r.moments = spectral_moments(ctx);
  r.evaluations = r.moments.evaluations;
  r.total = radiative_rate(r.moments, gap, sigma, n);
  if (dip.constant && dip.derivatives) {
    r.fc = rate_of(with_dipole(in, dip, Part::franck_condon), gap, sigma, n, r.evaluations);
    r.ht = rate_of(with_dipole(in, dip, Part::herzberg_teller), gap, sigma, n, r.evaluations);
  } else {
    (dip.constant ? r.fc : r.ht) = r.total;
  }
  // What is left within the accuracy of the three rates (about 1e-9 of each) is rounding.
  r.interference = r.total - r.fc - r.ht;
  if (std::fabs(r.interference) <= 1e-9 * (std::fabs(r.fc) + std::fabs(r.ht))) r.interference = 0.0;
  return r;
}

std::string rate_pair(double au) { return printed("%.6e s-1 (%.6e au)", au * au_per_second, au); }

std::string conventions_line(const RateOptions& o, const Dipole& dip) {
  return printed(
      "conventions: k_r = (4 n^2 / 3 c^3) sum over x, y, z of <|mu|^2 w^3> (no orientational "
      "average), n = %.6g (k_r scales as n^2); mu from %s%s: mu0 at the final state's minimum%s",
      o.refractive_index, o.dipole.c_str(), dip.file.debye ? " (converted from debye)" : "",
      dip.derivatives ? ", d mu/d Q along the final state's mass-weighted normal coordinates"
                      : " (Franck-Condon only: no derivatives listed)");
}

std::string dipole_line(const Dipole& dip) {
  const double mu =
      std::sqrt(dip.file.mu0[0] * dip.file.mu0[0] + dip.file.mu0[1] * dip.file.mu0[1] +
                dip.file.mu0[2] * dip.file.mu0[2]);
  return printed("dipole: |mu0| = %.6g au (%.6g D), derivatives for %zu modes", mu, mu * au2db,
                 dip.file.modes.size());
}

std::string emission_text(const Emission& e, double peak, const RateOptions& o, double temp) {
  std::string s = printed(
      "# emission spectrum sigma_em(w) = (4 n^2 w^3 / 3 c^3) (1/2 pi) K(dE - w), n = %.6g, "
      "T = %.6g K; the band above 1e-6 of the peak\n",
      o.refractive_index, temp);
  s += printed("#%15s %16s %24s %16s\n", "w(cm-1)", "w(eV)", "sigma_em(s-1/cm-1)", "normalised");
  for (std::size_t i = 0; i < e.omega.size(); ++i)
    s += printed("%16.8e %16.8e %24.16e %16.8e\n", e.omega[i] * au2cm, e.omega[i] * au2ev,
                 e.sigma[i] * au_per_second / au2cm, e.sigma[i] / peak);
  return s;
}

void print_parts(const RadiativeParts& r) {
  std::cout << "k_r = " << printed("%.6e", r.total * au_per_second) << " s-1\n"
            << "k_r = " << printed("%.6e", r.total) << " au\n"
            << "  Franck-Condon:   " << rate_pair(r.fc) << '\n'
            << "  Herzberg-Teller: " << rate_pair(r.ht) << '\n'
            << "  interference:    " << rate_pair(r.interference) << '\n';
}

// --modes: which modes lend intensity: each mode's derivative alone, and with mu0 beside it the
// interference it adds.
void intensity_modes(const EngineInputs& in, const Dipole& dip, const Molecule& m,
                     const RateOptions& o, double fc, std::vector<std::string>& written) {
  std::vector<LendingMode> rows;
  const int n = in.nmode;
  int evaluations = 0;
  for (int k = 0; k < n; ++k) {
    Dipole one = dip;
    bool any = false;
    for (int c = 0; c < 3; ++c) {
      for (int j = 0; j < n; ++j)
        if (j != k) one.dmu[static_cast<std::size_t>(c) * n + j] = 0.0;
      any = any || one.dmu[static_cast<std::size_t>(c) * n + k] != 0.0;
    }
    if (!any) continue;
    LendingMode r{m.v.order(k + 1, 1), in.omegag[k], 0.0, 0.0};
    r.alone = rate_of(with_dipole(in, one, Part::herzberg_teller), m.p.ead, m.d.width,
                      o.refractive_index, evaluations);
    if (dip.constant) {
      r.interference = rate_of(with_dipole(in, one, Part::whole), m.p.ead, m.d.width,
                               o.refractive_index, evaluations) -
                       fc - r.alone;
      if (std::fabs(r.interference) <= 1e-9 * (std::fabs(fc) + std::fabs(r.alone)))
        r.interference = 0.0;
    }
    rows.push_back(r);
  }
  write_text(m.base + ".emission.modes", lending_text(rows), "intensity-lending modes");
  written.push_back(m.base + ".emission.modes");
  std::cout << lending_summary(rows, "intensity", static_cast<long long>(evaluations), "mu0")
            << std::flush;
}

void warn_all(const std::vector<std::string>& warnings) {
  for (const std::string& w : warnings) std::cerr << "ictvcf rate: warning: " << w << '\n';
}

}  // namespace

void radiative_command(const RateOptions& o) {
  Molecule m;
  if (!read_molecule(o, m)) return;
  const Dipole dip = read_dipole(o.dipole, m);
  const EngineInputs in = engine_inputs(m.p, m.v);
  const double sigma = m.d.width, n = o.refractive_index;

  const RadiativeParts r = radiative_parts(in, dip, m.p.ead, sigma, n);
  const EngineInputs whole = with_dipole(in, dip, Part::whole);
  EngineContext ctx(whole);
  const Emission e = emission_spectrum(ctx, r.moments, m.p.ead, sigma, n);
  std::vector<std::string> warnings = e.warnings;
  double peak = 0.0, at = 0.0;
  for (std::size_t i = 0; i < e.sigma.size(); ++i)
    if (e.sigma[i] > peak) peak = e.sigma[i], at = e.omega[i];
  write_text(m.base + ".emission", emission_text(e, peak, o, m.p.temp), "emission spectrum");
  write_text(m.base + ".emission.svg", emission_svg(e.omega, e.sigma, r.total, m.d, m.p.temp, n),
             "emission plot");
  std::vector<std::string> written{m.base + ".emission", m.base + ".emission.svg"};

  std::cout << damping_line(m.d) << '\n'
            << printed("gap: ead = %.6g cm-1 = %.6g eV, temperature %.6g K", m.p.ead * au2cm,
                       m.p.ead * au2ev, m.p.temp)
            << '\n'
            << dipole_line(dip) << '\n'
            << conventions_line(o, dip) << '\n';
  print_parts(r);
  std::cout
      << printed(
             "emission: peak at %.6g cm-1 (%.6g eV), mean %.6g cm-1; band %.6g .. %.6g cm-1; "
             "the written spectrum integrates to %.6e s-1 (%.1e relative to k_r)",
             at * au2cm, at * au2ev, (m.p.ead - r.moments.l1) * au2cm,
             e.omega.empty() ? 0.0 : e.omega.front() * au2cm,
             e.omega.empty() ? 0.0 : e.omega.back() * au2cm, e.integral * au_per_second,
             (e.integral - r.total) / r.total)
      << '\n'
      << printed(
             "method: k_r exactly from the cumulants of ln C(i tau) at tau = +-%.3g .. +-%.3g "
             "au (%d engine evaluations); the spectrum from C on the real axis, dt = %.4g au, "
             "%lld steps",
             r.moments.step, 4 * r.moments.step, r.evaluations, e.dt, static_cast<long long>(e.nt))
      << '\n';
  if (o.modes) intensity_modes(in, dip, m, o, r.fc, written);
  if (!o.temps.empty()) {
    std::string s = printed("#%15s %24s %24s %24s %24s\n", "T(K)", "k_r(s-1)", "FC(s-1)", "HT(s-1)",
                            "interference(s-1)");
    std::cout << "temperatures: T (K), k_r, Franck-Condon, Herzberg-Teller, interference (s-1)\n";
    for (double temp : o.temps) {
      EngineInputs at_t = in;
      at_t.temp = temp;
      const RadiativeParts t = radiative_parts(at_t, dip, m.p.ead, sigma, n);
      s += printed("%16.8e %24.16e %24.16e %24.16e %24.16e\n", temp, t.total * au_per_second,
                   t.fc * au_per_second, t.ht * au_per_second, t.interference * au_per_second);
      std::cout << printed("  %10.3f  %.6e  %.6e  %.6e  %.6e", temp, t.total * au_per_second,
                           t.fc * au_per_second, t.ht * au_per_second,
                           t.interference * au_per_second)
                << '\n';
    }
    write_text(m.base + ".radiative.temps", s, "temperature study of k_r");
    written.push_back(m.base + ".radiative.temps");
  }
  std::string list;
  for (const std::string& w : written) list += (list.empty() ? "" : ", ") + w;
  std::cout << "written: " << list << '\n' << std::flush;
  warn_all(warnings);
}

void yield_command(const RateOptions& o) {
  Molecule m;
  if (!read_molecule(o, m)) return;
  const Dipole dip = read_dipole(o.dipole, m);
  IscChannel isc;
  const bool with_isc = !o.isc_input.empty();
  if (with_isc && !isc_channel(o, isc)) return;
  const EngineInputs in = engine_inputs(m.p, m.v);
  const double sigma = m.d.width, n = o.refractive_index;
  const std::vector<double> temps = o.temps.empty() ? std::vector<double>{m.p.temp} : o.temps;
  // k_IC falls or rises steeply with the line width where the gap is far out in the tail; k_r
  // barely moves. The width's factors beside the chosen one:
  constexpr double kNarrow = 0.8, kWide = 1.25;
  std::vector<std::string> warnings;
  std::cout << damping_line(m.d) << '\n'
            << printed("gap: ead = %.6g cm-1 = %.6g eV", m.p.ead * au2cm, m.p.ead * au2ev) << '\n'
            << dipole_line(dip) << '\n'
            << conventions_line(o, dip) << '\n';
  if (with_isc) {
    for (const std::string& line : isc.lines) std::cout << line << '\n';
    std::cout << "Phi_F = k_r / (k_r + k_IC + k_ISC)\n";
  } else {
    std::cout << "Phi_F = k_r / (k_r + k_IC); no intersystem crossing counted\n";
  }
  std::cout << printed(
                   "yield: T (K), k_r (s-1), k_IC (s-1), %sPhi_F; k_IC and Phi_F with the FWHM "
                   "%.4g and %.4g cm-1 (x%.2g, x%.3g)",
                   with_isc ? "k_ISC (s-1), " : "", line_fwhm(m.d) * kNarrow * au2cm,
                   line_fwhm(m.d) * kWide * au2cm, kNarrow, kWide)
            << '\n';
  std::string s =
      printed("#%15s %24s %24s %16s %24s %16s %24s %16s", "T(K)", "k_r(s-1)", "k_IC(s-1)", "Phi_F",
              "k_IC(x0.8)(s-1)", "Phi_F(x0.8)", "k_IC(x1.25)(s-1)", "Phi_F(x1.25)");
  s += with_isc ? printed(" %24s\n", "k_ISC(s-1)") : "\n";
  for (double temp : temps) {
    EngineInputs at_t = in;
    at_t.temp = temp;
    const RadiativeParts r = radiative_parts(at_t, dip, m.p.ead, sigma, n);
    EngineContext ctx(at_t);
    double kic[3];
    const double widths[3] = {sigma, kNarrow * sigma, kWide * sigma};
    for (int i = 0; i < 3; ++i) {
      const ContourResult c = contour_rates(ctx, ContourSettings{widths[i], o.tol},
                                            std::span<const double>(&m.p.ead, 1));
      for (const std::string& w : c.warnings) warnings.push_back(printed("at %g K: ", temp) + w);
      kic[i] = c.rates[0].rate;
    }
    const double kisc = with_isc ? isc.rate_at(temp, warnings) : 0.0;
    auto phi = [&](double k) { return r.total / (r.total + k + kisc); };
    s += printed("%16.8e %24.16e %24.16e %16.8e %24.16e %16.8e %24.16e %16.8e", temp,
                 r.total * au_per_second, kic[0] * au_per_second, phi(kic[0]),
                 kic[1] * au_per_second, phi(kic[1]), kic[2] * au_per_second, phi(kic[2]));
    s += with_isc ? printed(" %24.16e\n", kisc * au_per_second) : "\n";
    std::cout << printed("  %10.3f  k_r = %.6e  k_IC = %.6e  ", temp, r.total * au_per_second,
                         kic[0] * au_per_second)
              << (with_isc ? printed("k_ISC = %.6e  ", kisc * au_per_second) : "")
              << printed("Phi_F = %.6f   (k_IC %.3e .. %.3e, Phi_F %.6f .. %.6f)", phi(kic[0]),
                         kic[1] * au_per_second, kic[2] * au_per_second, phi(kic[1]), phi(kic[2]))
              << '\n';
  }
  write_text(m.base + ".yield", s, "quantum yield");
  std::cout << "written: " << m.base << ".yield\n" << std::flush;
  warn_all(warnings);
}

}  // namespace ictvcf
