#include "run/run.h"

#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>

#include "coupling/getrlk.h"
#include "engine/dosqrt.h"
#include "engine/engine.h"
#include "engine/kernels.h"
#include "input/read_input.h"
#include "input/values.h"
#include "run/prepare_data.h"
#include "util/errors.h"
#include "util/fortran_format.h"
#include "util/memory.h"
#include "util/strings.h"
#include "util/text_file.h"
#include "vibronic/read_dush.h"

namespace ictvcf {

using cplx = std::complex<double>;

void read_run_data(const std::string& infile, ParameterSet& p, DushinData& v, Units& units,
                   std::ofstream& log, const std::string& scratch_dir) {
  init(p);
  if (scratch_dir.empty()) {
    readinput(p, units, pad(infile, 200), ".input.convert", "&ic_tvcf", "/");
    // The log begins with the parameter echo.
    file_copy(units, ".input.convert", p.logfile);
    file_delete(units, ".input.convert");
  } else {
    const std::string conv = scratch_dir + "/.input.convert";
    readinput(p, units, pad(infile, 200), conv, "&ic_tvcf", "/", scratch_dir);
    file_delete(units, conv);
  }
  prepare_data(p);

  if (scratch_dir.empty()) {
    const std::string logname(rtrim(p.logfile));
    log.open(logname, std::ios::app);
    if (!log) throw IoError(logname, 0, "cannot open the log for appending");
  }

  readdushinout(p, v, log);
  log.flush();
  TextFile coupling = open_text_file(std::string(rtrim(p.coulfile)));
  getrlk(p, v, coupling, 0, log);
  log.flush();
}

void thermal_factors(const ParameterSet& p, DushinData& v) {
  for (int j = 1; j <= v.nmode; ++j) {
    const double x = kelvin_per_hartree * v.omegae(j) / p.temp / 2.0;
    const double sh = std::sinh(x);
    v.invz2(j) = 4.0 * (sh * sh);
    if (!std::isfinite(v.invz2(j)))
      std::cerr << "ictvcf: warning: 4 sinh^2(hw/2kT) is not finite for mode " << j << " ("
                << v.omegae(j) * au2cm << " cm-1) at T = " << p.temp
                << " K; the correlation function will not be finite\n";
  }
  rdetm(v.invz2.data(), v.nmode, v.invz2det);
}

std::vector<cplx> assemble(std::int64_t nt, const std::vector<cplx>& usqrt,
                           const std::vector<cplx>& ft, Vector<cplx>& sqrtdone) {
  std::vector<cplx> h_ft(static_cast<std::size_t>(2 * nt + 1));
  const std::size_t zero = static_cast<std::size_t>(nt);
  dosqrt(nt + 1, usqrt.data(), sqrtdone.data());
  // sqrtdone on the left: re = s.re h.re - s.im h.im, im = h.re s.im + h.im s.re
  auto times = [](cplx s, cplx h) {
    return cplx(s.real() * h.real() - s.imag() * h.imag(),
                h.real() * s.imag() + h.imag() * s.real());
  };
  h_ft[zero] = times(sqrtdone[0], ft[0]);
  for (std::int64_t k = 1; k <= nt; ++k) {
    const cplx c = times(sqrtdone[static_cast<std::size_t>(k)], ft[static_cast<std::size_t>(k)]);
    h_ft[zero + static_cast<std::size_t>(k)] = c;
    h_ft[zero - static_cast<std::size_t>(k)] = std::conj(c);
  }
  return h_ft;
}

namespace {

void write_text_table(std::ostream& out, std::int64_t nt, double dt, const std::vector<cplx>& h) {
  // (A14,6x, A16, 2x, A16)
  out << fmt_a("#time(fs)", 14) << fmt_x(6) << fmt_a("IC_ft_Re(au)", 16) << fmt_x(2)
      << fmt_a("IC_ft_Im(au)", 16) << '\n';
  std::string buf;
  for (std::int64_t k = -nt; k <= nt; ++k) {
    const cplx c = h[static_cast<std::size_t>(k + nt)];
    // (F14.5,6X,E16.9,2X,E16.9)
    buf = fmt_f(au2fs * (dt * static_cast<double>(k)), 14, 5);
    buf += fmt_x(6);
    buf += fmt_e(c.real(), 16, 9);
    buf += fmt_x(2);
    buf += fmt_e(c.imag(), 16, 9);
    buf += '\n';
    out << buf;
  }
}

// One sequential unformatted record: its byte count before and after the payload.
void record(std::ostream& out, const void* payload, std::int32_t bytes) {
  out.write(reinterpret_cast<const char*>(&bytes), 4);
  out.write(static_cast<const char*>(payload), bytes);
  out.write(reinterpret_cast<const char*>(&bytes), 4);
}

void write_binary_table(std::ostream& out, std::int64_t nt, double dt, const std::vector<cplx>& h) {
  record(out, &nt, 8);
  record(out, &dt, 8);
  for (const cplx& c : h) {
    const double pair[2] = {c.real(), c.imag()};
    record(out, pair, 16);
  }
}

}  // namespace

void write_table(const std::string& name, bool binary, std::int64_t nt, double dt,
                 const std::vector<cplx>& h_ft) {
  const std::string part = name + ".part";
  {
    std::ofstream out(part, std::ios::binary | std::ios::trunc);
    if (!out) throw IoError(name, 0, "cannot create the correlation-function table");
    if (binary)
      write_binary_table(out, nt, dt, h_ft);
    else
      write_text_table(out, nt, dt, h_ft);
    out.close();
    if (!out) {
      std::remove(part.c_str());
      throw IoError(name, 0, "could not write the whole correlation-function table");
    }
  }
  std::error_code ec;
  std::filesystem::rename(part, name, ec);
  if (ec) {
    std::remove(part.c_str());
    throw IoError(name, 0, "cannot put the correlation-function table in place: " + ec.message());
  }
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

// A progress line on standard error for long runs, when standard error is a terminal: time
// points done, rate and time left, redrawn at most four times a second and erased at the end.
Progress terminal_progress() {
  if (!isatty(STDERR_FILENO)) return {};
  struct State {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now(), last;
    bool shown = false;
  };
  auto state = std::make_shared<State>();
  return [state](std::int64_t done, std::int64_t total) {
    using namespace std::chrono;
    const auto now = steady_clock::now();
    if (done >= total) {
      if (state->shown) std::fprintf(stderr, "\r%*s\r", 72, "");
      return;
    }
    if (now - state->last < milliseconds(250) || now - state->start < milliseconds(500)) return;
    state->last = now;
    state->shown = true;
    const double secs = duration<double>(now - state->start).count();
    const double rate = done / std::max(secs, 1e-9);
    const double left = (total - done) / std::max(rate, 1e-9);
    std::fprintf(stderr, "\rictvcf: %lld/%lld time points, %.1f per second, %.0f s left   ",
                 static_cast<long long>(done), static_cast<long long>(total), rate, left);
    std::fflush(stderr);
  };
}

void warn_non_finite(const std::vector<cplx>& h_ft, std::int64_t nt, double dt) {
  std::int64_t bad = 0, first = 0;
  for (std::int64_t k = nt; k >= -nt; --k) {
    const cplx c = h_ft[static_cast<std::size_t>(k + nt)];
    if (!std::isfinite(c.real()) || !std::isfinite(c.imag())) {
      ++bad;
      if (k >= 0) first = k;
    }
  }
  if (bad > 0)
    std::cerr << "ictvcf: warning: " << bad << " of the " << 2 * nt + 1
              << " values of the table are not finite (the first at t = "
              << au2fs * (dt * static_cast<double>(first))
              << " fs); check the frequencies, the temperature and the matrices\n";
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
  std::vector<cplx> h_ft = assemble(nt, usqrt, ft, s.v.sqrtdone);
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
  compute_correlation(s.p, s.v, 0, s.p.nt, usqrt.data(), ft.data(), false, terminal_progress());
  finish_run(s, usqrt, ft);
}

}  // namespace ictvcf
