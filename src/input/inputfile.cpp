#include "input/inputfile.h"

namespace ictvcf {

void init(ParameterSet& p) {
  // The order of these assignments (and their repetitions) is the historical one; the result
  // is the table of defaults above.
  p.dushin = true;
  p.ilog = 45;
  p.d12 = 2;
  p.dush12 = 2;
  p.dushtype = 1;
  p.dushin = true;
  p.samemode = 0;
  p.samefreq = false;
  p.samed = false;
  p.dmin[0] = p.dmin[1] = 0.0;
  p.freqscale = 1.0;
  p.dscale = 1.0;
  p.mode = 0;
  p.logfile = pad("log", 200);
  p.broadentype = pad("gaussian", 10);
  p.broadenfunc = pad("time", 10);
  p.degauss = p.fwhm_w = p.fwhm_t = p.lifetime = -1.0;
  p.fwhm_n = 10;
  p.fwhm = p.fwhmt = p.fwhm_w = p.fwhm_t = -1.0;
  p.nscale = 1;
  p.ftbin = false;
  p.tmin = 0.0;
  p.de = -1.0;
  p.evert = 0.0;
  p.logfile = pad("log", 200);
  p.electyp = pad("GAUSSIAN", 200);
  p.n3all = false;
  p.if_dcoupl = false;
}

std::vector<NmlVar> input_group(ParameterSet& p) {
  using T = NmlVar;
  auto text = [](std::string_view name, std::string& s) {
    return NmlVar{name, T::text, &s, s.size()};
  };
  return {
      {"dushtype", T::integer, &p.dushtype},
      {"d12", T::integer, &p.d12},
      {"dush12", T::integer, &p.dush12},
      {"dushin", T::logical, &p.dushin},
      {"temp", T::real, &p.temp},
      {"tmin", T::real, &p.tmin},
      {"tmax", T::real, &p.tmax},
      {"dt", T::real, &p.dt},
      {"samemode", T::integer, &p.samemode},
      {"ead", T::real, &p.ead},
      text("dsfile", p.dsfile),
      text("ftfile", p.ftfile),
      text("coulfile", p.coulfile),
      {"debug", T::logical, &p.debug},
      {"mode", T::integer, &p.mode},
      {"ftbin", T::logical, &p.ftbin},
      {"evert", T::real, &p.evert},
      text("logfile", p.logfile),
      {"freqscale", T::real, &p.freqscale},
      {"samed", T::logical, &p.samed},
      {"samefreq", T::logical, &p.samefreq},
      {"dscale", T::real, &p.dscale},
      text("electyp", p.electyp),
      text("gfile", p.gfile),
      {"isgauss", T::logical, &p.isgauss},
      {"degauss", T::real, &p.degauss},
      {"fwhm", T::real, &p.fwhm},
      {"fwhmt", T::real, &p.fwhmt},
      {"fwhm_w", T::real, &p.fwhm_w},
      {"fwhm_t", T::real, &p.fwhm_t},
      {"lifetime", T::real, &p.lifetime},
      {"fwhm_n", T::integer, &p.fwhm_n},
      text("broadentype", p.broadentype),
      text("broadenfunc", p.broadenfunc),
      {"emax", T::real, &p.emax},
      {"scalemaxomega", T::real, &p.scalemaxomega},
      {"deltaomega", T::real, &p.deltaomega},
      {"deltan", T::integer, &p.deltan},
      {"maxinttau", T::integer, &p.maxinttau},
      text("fofile", p.fofile),
      text("fosfile", p.fosfile),
      {"nscale", T::integer, &p.nscale},
      {"isorder", T::logical, &p.isorder},
      {"n3all", T::logical, &p.n3all},
      text("dcouplfile", p.dcouplfile),
      {"if_dcoupl", T::logical, &p.if_dcoupl},
      {"if_upcovert", T::logical, &p.if_upcovert},
  };
}

}  // namespace ictvcf
