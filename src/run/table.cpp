#include "run/table.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "engine/dosqrt.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/fortran_format.h"

namespace ictvcf {

using cplx = std::complex<double>;

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

}  // namespace ictvcf
