#include "run/prepare_data.h"

#include <cmath>

#include "util/strings.h"

namespace ictvcf {

std::int32_t round_to_int32(double q) {
  if (!(std::fabs(q) < 9.2233720368547758e18)) return 0;
  auto wide = static_cast<std::uint64_t>(std::llround(q));
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(wide & 0xffffffffu));
}

namespace {

// Derives the broadening widths from the first one given (> 0), in the order of precedence
// degauss, fwhm, fwhm_w, fwhm_t, fwhmt, lifetime. degauss is the half width (Lorentzian) or the
// standard deviation (Gaussian) in energy; fwhm/fwhm_w the full width in energy; fwhm_t/fwhmt the
// full width of the damping in time; lifetime the damping time. The source keeps its value, its
// twin name is set equal to it, and everything else follows from degauss.
void derive_broadening(ParameterSet& p, bool lorentz) {
  const double c = 1.3862943611198906;  // 2 ln 2
  const double s = std::sqrt(c);
  const double r = 1.4142135623730951;  // sqrt(2)
  double* source = nullptr;
  for (double* f : {&p.degauss, &p.fwhm, &p.fwhm_w, &p.fwhm_t, &p.fwhmt, &p.lifetime})
    if (*f > 0.0) {
      source = f;
      break;
    }
  if (!source) return;

  if (source == &p.fwhm || source == &p.fwhm_w)
    p.degauss = lorentz ? *source / 2.0 : *source / 2.0 / s;
  else if (source == &p.fwhm_t || source == &p.fwhmt)
    p.degauss = lorentz ? c / *source : (s + s) / *source;
  else if (source == &p.lifetime)
    p.degauss = lorentz ? 1.0 / p.lifetime : r / p.lifetime;

  if (source != &p.lifetime) p.lifetime = lorentz ? 1.0 / p.degauss : r / p.degauss;
  if (source == &p.fwhm)
    p.fwhm_w = p.fwhm;
  else if (source != &p.fwhm_w)
    p.fwhm_w = lorentz ? p.degauss + p.degauss : p.degauss * (s + s);
  p.fwhm = p.fwhm_w;
  if (source == &p.fwhmt)
    p.fwhm_t = p.fwhmt;
  else if (source != &p.fwhm_t)
    p.fwhm_t = lorentz ? c / p.degauss : (s + s) / p.degauss;
  p.fwhmt = p.fwhm_t;
}

}  // namespace

void prepare_data(ParameterSet& p) {
  if (p.evert == 0.0) p.evert = p.ead;
  if (p.isgauss) {
    std::string_view shape = rtrim(p.broadentype);
    if (shape == "lorentzian")
      derive_broadening(p, true);
    else if (shape == "gaussian")
      derive_broadening(p, false);
    p.fwhm_w_max = p.fwhm_w * static_cast<double>(p.fwhm_n);
    p.fwhm_t_max = p.fwhm_t * static_cast<double>(p.fwhm_n);
  }
  p.nt = round_to_int32((p.tmax - p.tmin) / p.dt);
}

}  // namespace ictvcf
