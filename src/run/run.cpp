#include "run/run.h"

#include <sys/time.h>

#include <cmath>
#include <ctime>
#include <fstream>
#include <iostream>

#include "coupling/getrlk.h"
#include "input/diagnostics.h"
#include "input/read_input.h"
#include "run/prepare_data.h"
#include "run/progress.h"
#include "run/table.h"
#include "util/constants.h"
#include "util/dir_lock.h"
#include "util/errors.h"
#include "util/fortran_format.h"
#include "util/memory.h"
#include "util/scaled_product.h"
#include "util/strings.h"
#include "util/text_file.h"
#include "vibronic/checks.h"
#include "vibronic/read_dush.h"

namespace ictvcf {

using cplx = std::complex<double>;

void read_run_data(const std::string& infile, ParameterSet& p, DushinData& v, Units& units,
                   std::ofstream& log, const std::string& scratch_dir) {
  init(p);
  if (scratch_dir.empty()) {
    // Runs started together in one directory take turns with the shared work files.
    const WorkFilesLock lock(infile);
    readinput(p, units, pad(infile, 200), ".input.convert", "&ic_tvcf", "/");
    check_parameters(p, infile, true);
    // The log begins with the parameter echo.
    file_copy(units, ".input.convert", p.logfile);
    file_delete(units, ".input.convert");
  } else {
    const std::string conv = scratch_dir + "/.input.convert";
    readinput(p, units, pad(infile, 200), conv, "&ic_tvcf", "/", scratch_dir);
    check_parameters(p, infile, false);
    file_delete(units, conv);
  }
  prepare_data(p);

  if (scratch_dir.empty()) {
    const std::string logname(rtrim(p.logfile));
    log.open(logname, std::ios::app);
    if (!log) throw IoError(logname, 0, "cannot open the log for appending");
  }

  try {
    readdushinout(p, v, log);
    log.flush();
    TextFile coupling = open_text_file(std::string(rtrim(p.coulfile)));
    getrlk(p, v, coupling, 0, log);
    log.flush();
  } catch (const StopRun& e) {
    if (e.status == 0) warn_stopped(p, scratch_dir.empty());
    throw;
  }
  if (p.is_exit != 0) warn_stopped(p, scratch_dir.empty());
  check_vibronic_data(p, v);
}

void thermal_factors(const ParameterSet& p, DushinData& v) {
  for (int j = 1; j <= v.nmode; ++j) {
    const double x = kelvin_per_hartree * v.omegae(j) / p.temp / 2.0;
    const double sh = std::sinh(x);
    v.invz2(j) = 4.0 * (sh * sh);
  }
  rdetm(v.invz2.data(), v.nmode, v.invz2det);
}

EngineInputs engine_inputs(const ParameterSet& p, const DushinData& v) {
  EngineInputs in;
  in.nmode = v.nmode;
  in.omegag.assign(v.omegag.begin(), v.omegag.end());
  in.omegae.assign(v.omegae.begin(), v.omegae.end());
  in.d.assign(v.d.begin(), v.d.end());
  in.rif.assign(v.rif.begin(), v.rif.end());
  in.s = v.s;
  in.r = v.r;
  in.iscal = v.iscal;
  in.temp = p.temp;
  return in;
}

std::string stamp_line(const char* label) {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  std::tm lt{};
  time_t secs = tv.tv_sec;
  localtime_r(&secs, &lt);
  // (label,2X,I4,"-",I2.2,"-",I2.2," ",I2.2,":",I2.2,":",I2.2,".",I3.3)
  return std::string(label) + fmt_x(2) + fmt_i(lt.tm_year + 1900, 4) + "-" +
         fmt_i(lt.tm_mon + 1, 2, 2) + "-" + fmt_i(lt.tm_mday, 2, 2) + " " +
         fmt_i(lt.tm_hour, 2, 2) + ":" + fmt_i(lt.tm_min, 2, 2) + ":" + fmt_i(lt.tm_sec, 2, 2) +
         "." + fmt_i(tv.tv_usec / 1000, 3, 3);
}

void check_time_grid(std::int64_t nt) {
  if (nt < 0)
    throw FatalError("ictvcf: the time grid is empty: (tmax - tmin)/dt rounds to nt = " +
                         std::to_string(nt) + "; expected tmax >= tmin and dt > 0",
                     2);
  // h_ft over -nt .. nt, and the engine's two arrays over 0 .. nt
  check_allocation({{2 * nt + 1, sizeof(cplx)}, {nt + 1, 2 * sizeof(cplx)}});
}

bool prepare_run(const std::string& infile, RunState& s) {
  read_run_data(infile, s.p, s.v, s.units, s.log);
  if (s.p.is_exit != 0) return false;

  if (s.p.debug) s.log << '\n' << stamp_line("Begin:") << "\n\n";
  check_time_grid(s.p.nt);
  thermal_factors(s.p, s.v);
  return true;
}

void finish_run(RunState& s, const std::vector<cplx>& usqrt, const std::vector<cplx>& ft) {
  const std::int64_t nt = s.p.nt;
  // A thermal factor below 1e-127 (a frequency or temperature so extreme that hw/2kT vanishes)
  // is set to zero, and with it the whole determinant term.
  std::vector<cplx> h_ft = s.v.invz2det[0] == 0.0
                               ? assemble(nt, std::vector<cplx>(usqrt.size()), ft, s.v.sqrtdone)
                               : assemble(nt, usqrt, ft, s.v.sqrtdone);
  warn_non_finite(h_ft, nt, s.p.dt);
  const std::string table(rtrim(s.p.ftfile));
  // ("  nt : ",I20), then the table's name list-directed
  s.log << "  nt : " << fmt_i(nt, 20) << '\n' << ld_record({table}) << '\n';
  s.log.flush();
  write_table(table, s.p.ftbin, nt, s.p.dt, h_ft);
  if (s.p.debug) s.log << '\n' << stamp_line("End:  ") << "\n\n";
}

void run(const std::string& infile) {
  RunState s;
  if (!prepare_run(infile, s)) return;
  const std::size_t points = static_cast<std::size_t>(s.p.nt + 1);
  std::vector<cplx> usqrt(points), ft(points);
  compute_correlation(engine_inputs(s.p, s.v), s.p.dt, 0, s.p.nt, usqrt.data(), ft.data(), false, 0,
                      terminal_progress());
  finish_run(s, usqrt, ft);
}

}  // namespace ictvcf
