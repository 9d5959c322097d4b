// The radiative channel from the same correlation functions: with the transition dipole as the
// operator, C_O(t) = Tr[e^{-beta H2} e^{iH2 t} O^+ e^{-iH1 t} O]/Z2 (summed over the Cartesian
// components) is the emission's correlation function. Its transform at dE - w is the emission
// spectrum (photons per unit time and unit angular frequency w)
//
//   sigma_em(w) = (4 n^2 w^3 / 3 c^3) (1/2 pi) K_O(dE - w),   K_O(E) = integral dt e^{iEt} C_O D,
//
// and the radiative rate k_r = integral dw sigma_em(w) = (4 n^2 / 3 c^3) C_O(0) <w^3>. The moments
// come without a spectrum: L(tau) = ln C_O(i tau) - ln C_O(0) is the cumulant generating function
// of dE - w over the unbroadened lines, so with kappa1 = dE - L'(0), kappa2 = L''(0) + sigma^2
// (the Gaussian damping adds its variance), kappa3 = -L'''(0),
//
//   <w^3> = kappa1^3 + 3 kappa1 kappa2 + kappa3        (exact for the broadened spectrum).
//
// Atomic units (c = 137.035999084); no files, no output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace ictvcf {

inline constexpr double speed_of_light_au = 137.035999084;

// C_O(0) and the first three derivatives of L at tau = 0.
struct SpectralMoments {
  double c0 = 0.0;  // C_O(0), au (dipole squared)
  double l1 = 0.0, l2 = 0.0, l3 = 0.0;
  double step = 0.0;    // the tau step of the differences, au
  int evaluations = 0;  // engine evaluations
};

// From ln C_O(i tau) at tau = +-h, +-2h, +-3h, +-4h (h = 0.02/w_max, quartered while a point is
// outside the strip of convergence), the odd and even parts extrapolated to tau = 0 in tau^2
// (Neville). Measured against closed cumulants (three rotated modes, 0 to 1200 K): the first
// derivative within 1e-10, the second within 1e-9, the third within 1e-6 relative, k_r within
// 1e-9 (the third enters it weighted by about 1e-4). Throws FatalError (status 2) when C_O(0) is
// not positive or the values are not finite.
SpectralMoments spectral_moments(EngineContext& ctx);

// The photon energy's third moment <w^3> (hartree^3) of the spectrum broadened by a Gaussian of
// standard deviation sigma, at the gap dE between the minima.
double third_moment(const SpectralMoments& m, double gap, double sigma);

// 4 n^2 / 3 c^3: k_r = prefactor * C_O(0) <w^3> (au).
double emission_prefactor(double refractive_index);

// k_r in atomic units (per atomic unit of time).
double radiative_rate(const SpectralMoments& m, double gap, double sigma, double refractive_index);

// The emission spectrum on an even grid of photon energies (step sigma/2) over the band where it
// is above 1e-6 of its peak, and its integral over the grid (trapezoids; for a spectrum of
// Gaussian lines it converges as e^{-2 pi^2 (sigma/step)^2}, so the grid's integral is k_r
// within the band's cut). K_O from the exact C_O on the real axis, sampled on a grid of its own:
// dt = 2 pi over the window plus 12 sigma (the aliased copies of the band fall beyond it), up to
// where the damping is 1e-10; within about 1e-8 of the peak everywhere.
struct Emission {
  std::vector<double> omega;  // hartree
  std::vector<double> sigma;  // sigma_em, per atomic unit of time and per hartree
  double integral = 0.0;      // atomic units, the rate
  double dt = 0.0;            // the time grid used
  std::int64_t nt = 0;
  std::int64_t evaluations = 0;  // engine evaluations (the grid's; the branch's midpoints aside)
  std::vector<std::string> warnings;
};

Emission emission_spectrum(EngineContext& ctx, const SpectralMoments& m, double gap, double sigma,
                           double refractive_index);

}  // namespace ictvcf
