// The parameter set: everything the user sets in the "&ic_tvcf" block, with its defaults, and
// the few run-wide values derived from it. Filled by init, read_input and prepare_data; read-only
// afterwards, but for the stop flag is_exit. Energies in hartree, times in atomic units of time,
// temperature in kelvin. Text fields are fixed-length and blank-padded.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "input/namelist.h"
#include "util/strings.h"

namespace ictvcf {

struct ParameterSet {
  // The name-list group "input", in the order the group declares it.
  std::int32_t dushtype = 1;  // 1: block layout of the Duschinsky file; otherwise column layout
  std::int32_t d12 = 2;       // displacement used by the engine: 1 state 1, else state 2
  std::int32_t dush12 = 2;    // Duschinsky matrix used by the engine: 1 first block, else second
  bool dushin = true;         // read the Duschinsky matrices (false: identity)
  double temp = 300.0;        // K
  double tmin = 0.0;
  double tmax = 0.0;
  double dt = 0.0;
  std::int32_t samemode = 0;  // which state's data samefreq/samed copy (1, 2, else the mean)
  double ead = 0.0;           // adiabatic energy gap
  std::string dsfile = pad("", 200);
  std::string ftfile = pad("", 200);
  std::string coulfile = pad("", 200);
  bool debug = false;
  std::int32_t mode = 0;  // single coupled mode (0: all pairs)
  bool ftbin = false;
  double evert = 0.0;  // vertical energy gap
  std::string logfile = pad("log", 200);
  double freqscale = 1.0;
  bool samed = false;
  bool samefreq = false;
  double dscale = 1.0;
  std::string electyp = pad("GAUSSIAN", 200);
  std::string gfile = pad("", 80);
  bool isgauss = false;
  double degauss = -1.0;
  double fwhm = -1.0;
  double fwhmt = -1.0;
  double fwhm_w = -1.0;
  double fwhm_t = -1.0;
  double lifetime = -1.0;
  std::int32_t fwhm_n = 10;
  std::string broadentype = pad("gaussian", 10);
  std::string broadenfunc = pad("time", 10);
  double emax = 0.0;
  double scalemaxomega = 0.0;
  double deltaomega = 0.0;
  std::int32_t deltan = 1;
  std::int32_t maxinttau = 0;
  std::string fofile = pad("", 100);
  std::string fosfile = pad("", 100);
  std::int32_t nscale = 1;
  bool isorder = false;
  bool n3all = false;
  std::string dcouplfile = pad("", 100);
  bool if_dcoupl = false;
  bool if_upcovert = false;

  // Not settable by the user.
  std::int32_t ilog = 45;       // unit of the log
  std::int32_t stdin_unit = 5;  // unit of standard input
  double de = -1.0;
  double dmin[2] = {0.0, 0.0};  // print thresholds of the two mode tables
  std::int64_t nt = 0;          // number of positive time steps
  double fwhm_w_max = 0.0;
  double fwhm_t_max = 0.0;
  std::int32_t is_exit = 0;  // stop after the data have been read
};

// Resets the parameter set to its defaults.
void init(ParameterSet& p);

// The 47 variables of the group "input", in declaration order, bound to `p`.
std::vector<NmlVar> input_group(ParameterSet& p);

}  // namespace ictvcf
