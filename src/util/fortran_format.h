// Fixed-format output as a Fortran runtime renders it: one function per edit descriptor
// (Iw, Iw.m, Fw.d, Ew.d, Aw, A, nX) and list-directed records (WRITE(u,*)).
// Pure string functions; no streams, no locale.
#pragma once

#include <complex>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace ictvcf {

std::string fmt_i(long long v, int w);                                       // Iw
std::string fmt_i(long long v, int w, int m);                                // Iw.m
std::string fmt_f(double x, int w, int d);                                   // Fw.d
std::string fmt_e(double x, int w, int d);                                   // Ew.d
std::string fmt_a(std::string_view s, int w);                                // Aw
inline std::string fmt_a(std::string_view s) { return std::string(s); }      // A
inline std::string fmt_x(int n) { return std::string(n > 0 ? n : 0, ' '); }  // nX

// One item of a list-directed WRITE. Text is written as it stands (trailing blanks kept).
struct LdItem {
  enum Kind { text, int32, int64, real8, real4, logical, complex8, complex4 };
  Kind kind;
  std::string_view s;
  long long i = 0;
  double re = 0, im = 0;
  bool b = false;

  LdItem(std::string_view v) : kind(text), s(v) {}
  LdItem(const char* v) : kind(text), s(v) {}
  LdItem(const std::string& v) : kind(text), s(v) {}
  LdItem(std::int32_t v) : kind(int32), i(v) {}
  LdItem(std::int64_t v) : kind(int64), i(v) {}
  LdItem(double v) : kind(real8), re(v) {}
  LdItem(float v) : kind(real4), re(v) {}
  LdItem(bool v) : kind(logical), b(v) {}
  LdItem(std::complex<double> v) : kind(complex8), re(v.real()), im(v.imag()) {}
  LdItem(std::complex<float> v) : kind(complex4), re(v.real()), im(v.imag()) {}
};

// The record written by WRITE(u,*) items (without the newline).
std::string ld_record(std::span<const LdItem> items);
inline std::string ld_record(std::initializer_list<LdItem> items) {
  return ld_record(std::span<const LdItem>(items.begin(), items.size()));
}

}  // namespace ictvcf
