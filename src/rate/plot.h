// The two pictures of `ictvcf rate` as SVG text: the energy-gap law (log10 k_IC against the gap)
// and the correlation function with its damping envelope. Plain line plots drawn by hand.
#pragma once

#include <complex>
#include <span>
#include <string>
#include <vector>

#include "rate/analysis.h"
#include "rate/integral.h"

namespace ictvcf {

// log10 k_IC (s-1) against the gap (eV), the point at `ead` marked. Gaps whose rate is not
// positive have no logarithm: the curve is broken there and their number is noted. Gaps above
// `nyquist` (pi/dt) are shaded as aliased. `rate` names the rate (k_IC, k_ISC).
std::string gap_law_svg(std::span<const double> gaps, std::span<const double> rates, double ead,
                        double rate_at_ead, const Damping& d, double nyquist,
                        const std::string& rate = "k_IC");

// Re C(t) and Im C(t) (au) against t (fs) for t = k dt, k = 0 .. nt, and the damping envelope
// +-|C(0)| D(t).
std::string correlation_svg(std::span<const std::complex<double>> c, double dt, const Damping& d);

// The leading modes' shares of the rate as bars (s-1): each mode's own pair and the sum of its
// cross parts side by side, the mode number and frequency under them.
std::string modes_svg(const Decomposition& d, std::size_t most);

// log10 k_IC (s-1) against 1000/T (an Arrhenius plot); T = 0 has no place on it and is noted.
std::string temps_svg(std::span<const double> temps, std::span<const double> rates,
                      const std::string& rate = "k_IC");

// The emission spectrum, normalised to its peak, against the photon energy (cm-1), with k_r,
// the temperature and the refractive index in the title line.
std::string emission_svg(std::span<const double> omega, std::span<const double> sigma, double k_r,
                         const Damping& d, double temp, double refractive_index);

// At most `most` round tick values (steps 1, 2 or 5 times a power of ten) covering [lo, hi].
std::vector<double> nice_ticks(double lo, double hi, int most);

}  // namespace ictvcf
