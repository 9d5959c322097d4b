// The internal-conversion rate from the exact correlation function: the damping that broadens
// each vibronic line, the Fourier integral on the time grid, the energy-gap scan and the checks
// of the integral's validity. Atomic units throughout; nothing here reads or writes files.
//
//   k_IC(dE) = integral dt e^{+i dE t} C(t) D(t)
//            ~ dt [Re C_0 + 2 sum_{k>=1} Re(e^{i dE t_k} C_k D(t_k))]      (C(-t) = C(t)*)
//
// with t_k = k dt. The first sample is the engine's value at dt * 1e-5, but it is weighted as the
// value at t = 0 (phase 1, damping 1).
#pragma once

#include <complex>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "input/inputfile.h"

namespace ictvcf {

enum class DampingShape { gaussian, lorentzian };

// D(t) = exp(-width^2 t^2 / 2) (Gaussian line of standard deviation `width`) or
// exp(-width |t|) (Lorentzian line of half width `width`); width in hartree.
struct Damping {
  DampingShape shape = DampingShape::gaussian;
  double width = 0.0;
  bool chosen_by_default = false;  // the input asked for no broadening
};

// Full width at half maximum, in cm-1, of the Gaussian used when the input sets no broadening.
inline constexpr double default_fwhm_cm = 100.0;

// The damping the prepared parameters ask for (`isgauss`, `broadentype`, `degauss`), or the
// default Gaussian when `isgauss` is not set. Throws FatalError (status 1) for an unknown
// line shape or a broadening without a positive width.
Damping damping_from(const ParameterSet& p);

double damping_at(const Damping& d, double t);

// Full width at half maximum of the line, hartree.
double line_fwhm(const Damping& d);

// C(k dt) for k = 0 .. nt on the real axis, the square root's branch followed from point to
// point with midpoints where its argument turns fast (a warning where that fails); C(0) is the
// exact value, where the formulas' own first point (at dt * 1e-5) would cost digits.
std::vector<std::complex<double>> exact_correlation(EngineContext& ctx, double dt, std::int64_t nt,
                                                    std::vector<std::string>& warnings,
                                                    const Progress& progress = {});

// The variance of the energy gap H1 - H2 over the initial state's thermal distribution (hartree^2),
// the second cumulant of the Franck-Condon line shape: in state 2's coordinates, with
// K1 = S diag(w1^2) S^T, M = K1 - diag(w2^2), b = -K1 d, Sigma = diag(coth(beta w2 / 2) / 2 w2),
// it is tr((M Sigma)^2) / 2 + b^T Sigma b. The correlation function falls off as
// exp(-variance t^2 / 2) at short times: it says where C(t) lives.
double gap_variance(const EngineInputs& in);

// k_IC in atomic units (per atomic unit of time) at each gap, from c[k] = C(k dt), k = 0 .. nt.
std::vector<double> rate_scan(std::span<const std::complex<double>> c, double dt, const Damping& d,
                              std::span<const double> gaps);

double rate_at(std::span<const std::complex<double>> c, double dt, const Damping& d, double gap);

// `points` equally spaced gaps from centre - half_width to centre + half_width; with an odd count
// the middle one is `centre` exactly.
std::vector<double> gap_grid(double centre, double half_width, int points);

// What makes the rate `rate` at `gap` from c[k] = C(k dt) untrustworthy, one sentence each: the
// damping not decayed to 1e-6 at the end of the window; the rate changing by more than 1 % when
// the last tenth of the window is left out (the damped correlation function, small as it may be,
// still matters for this gap); a gap above the Nyquist limit pi/dt; a negative rate.
std::vector<std::string> rate_warnings(std::span<const std::complex<double>> c, double dt,
                                       const Damping& d, double gap, double rate);

// The warning for a scan whose highest gap `top` is above the Nyquist limit pi/dt; empty when
// it is not.
std::string scan_warning(double dt, double top);

}  // namespace ictvcf
