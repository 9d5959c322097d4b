// Edit descriptors and list-directed records rendered column for column like the Fortran
// runtime. All decimal digits come from std::to_chars with an explicit precision: it rounds the
// exact binary value to nearest with ties to even (the same digits as printf("%.*e"/"%.*f")) and,
// unlike printf, never looks at the locale.
#include "util/fortran_format.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace ictvcf {

namespace {

// to_chars output for one value; a stack buffer covers every ordinary precision, the heap takes
// over only for absurdly long requests (hundreds of digits).
class Digits {
 public:
  Digits(double ax, std::chars_format fmt, int precision) {
    auto r = std::to_chars(small_.data(), small_.data() + small_.size(), ax, fmt, precision);
    if (r.ec == std::errc()) {
      text_ = std::string_view(small_.data(), static_cast<std::size_t>(r.ptr - small_.data()));
      return;
    }
    const std::size_t cap = 400 + static_cast<std::size_t>(precision);
    big_ = std::make_unique<char[]>(cap);
    r = std::to_chars(big_.get(), big_.get() + cap, ax, fmt, precision);
    text_ = std::string_view(big_.get(), static_cast<std::size_t>(r.ptr - big_.get()));
  }
  Digits(const Digits&) = delete;  // text_ points into this object
  Digits& operator=(const Digits&) = delete;
  std::string_view text() const { return text_; }

 private:
  std::array<char, 128> small_;
  std::unique_ptr<char[]> big_;
  std::string_view text_;
};

// |x| (finite) rounded to n >= 1 significant digits: x = d1.d2d3... * 10^exp10.
struct Scientific {
  Scientific(double ax, int n) : raw(ax, std::chars_format::scientific, n - 1) {
    const std::string_view t = raw.text();  // "d.ddde+XX", or "de+XX" when n == 1
    const std::size_t e = t.find('e');
    lead = t[0];
    rest = e > 2 ? t.substr(2, e - 2) : std::string_view();
    const char* p = t.data() + e + 1;
    const bool minus = *p == '-';
    if (*p == '+' || *p == '-') ++p;
    int v = 0;
    std::from_chars(p, t.data() + t.size(), v);
    exp10 = minus ? -v : v;
  }
  Digits raw;
  char lead;              // first significant digit
  std::string_view rest;  // the other n - 1 digits
  int exp10;
};

std::string stars(int w) { return std::string(static_cast<std::size_t>(w > 0 ? w : 0), '*'); }

void append_rjust(std::string& out, std::string_view s, int w) {
  if (static_cast<int>(s.size()) < w) out.append(static_cast<std::size_t>(w) - s.size(), ' ');
  out.append(s);
}

// Infinity and NaN in an F or E field: the full word where it fits, else the short one, else
// asterisks. NaN never carries a sign, +Infinity no plus.
std::string nonfinite(double x, int w) {
  std::string_view word;
  if (std::isnan(x)) {
    if (w >= 3) word = "NaN";
  } else if (std::signbit(x)) {
    if (w >= 9) {
      word = "-Infinity";
    } else if (w >= 4) {
      word = "-Inf";
    }
  } else {
    if (w >= 8) {
      word = "Infinity";
    } else if (w >= 3) {
      word = "Inf";
    }
  }
  if (word.empty()) return stars(w);
  std::string out;
  append_rjust(out, word, w);
  return out;
}

// Exponent field of Ew.d: "E+dd" up to 99, then "+ddd" without the letter. Returns its length,
// 0 when even three digits are not enough.
int exponent_field(int e, char* buf) {
  const int a = std::abs(e);
  const char sign = e < 0 ? '-' : '+';
  if (a <= 99) {
    buf[0] = 'E';
    buf[1] = sign;
    buf[2] = static_cast<char>('0' + a / 10);
    buf[3] = static_cast<char>('0' + a % 10);
    return 4;
  }
  if (a <= 999) {
    buf[0] = sign;
    buf[1] = static_cast<char>('0' + a / 100);
    buf[2] = static_cast<char>('0' + a / 10 % 10);
    buf[3] = static_cast<char>('0' + a % 10);
    return 4;
  }
  return 0;
}

// Layout of REAL items in list-directed output.
struct RealLayout {
  int sig;         // significant digits
  int exp_digits;  // digits of the exponent in the 1P form
  int width;       // field width, not counting the separating blank
};
constexpr RealLayout kReal8{17, 3, 25};
constexpr RealLayout kReal4{9, 2, 16};

// Text of one list-directed real without padding: fixed form for 0.1 <= |x| < 10^sig (after
// rounding), otherwise d.ddd...E+xxx. Parts of a complex value carry one digit more in the
// exponent form. Returns the length written to buf (room for 48 characters); *fixed tells
// whether the fixed form was chosen.
int ld_real_text(double x, const RealLayout& lay, bool complex_part, char* buf, bool* fixed) {
  *fixed = false;
  auto copy = [buf](std::string_view s) {
    s.copy(buf, s.size());
    return static_cast<int>(s.size());
  };
  if (std::isnan(x)) return copy("NaN");
  if (std::isinf(x)) return copy(x < 0 ? "-Infinity" : "Infinity");

  const double ax = std::fabs(x);
  int n = 0;
  if (std::signbit(x)) buf[n++] = '-';
  const Scientific s(ax, lay.sig);
  const int k = s.exp10 + 1;  // digits before the point in the fixed form
  if (k >= 0 && k <= lay.sig) {
    *fixed = true;
    if (k == 0) {
      buf[n++] = '0';
      buf[n++] = '.';
      buf[n++] = s.lead;
      n += static_cast<int>(s.rest.copy(buf + n, 48));
    } else {
      buf[n++] = s.lead;
      n += static_cast<int>(s.rest.copy(buf + n, static_cast<std::size_t>(k - 1)));
      buf[n++] = '.';
      if (k - 1 < static_cast<int>(s.rest.size())) {
        n += static_cast<int>(s.rest.substr(static_cast<std::size_t>(k - 1)).copy(buf + n, 48));
      }
    }
    return n;
  }

  const Scientific e = complex_part ? Scientific(ax, lay.sig + 1) : Scientific(ax, lay.sig);
  buf[n++] = e.lead;
  buf[n++] = '.';
  n += static_cast<int>(e.rest.copy(buf + n, 48));
  buf[n++] = 'E';
  buf[n++] = e.exp10 < 0 ? '-' : '+';
  char digits[8];
  auto r = std::to_chars(digits, digits + sizeof digits, std::abs(e.exp10));
  const int nd = static_cast<int>(r.ptr - digits);
  for (int i = nd; i < lay.exp_digits; ++i) buf[n++] = '0';
  for (int i = 0; i < nd; ++i) buf[n++] = digits[i];
  return n;
}

void append_ld_real(std::string& out, double x, const RealLayout& lay) {
  char buf[48];
  bool fixed = false;
  const int n = ld_real_text(x, lay, false, buf, &fixed);
  const std::string_view text(buf, static_cast<std::size_t>(n));
  if (fixed) {
    const int tail = lay.exp_digits + 2;  // where the exponent would stand
    append_rjust(out, text, lay.width - tail);
    out.append(static_cast<std::size_t>(tail), ' ');
  } else {
    append_rjust(out, text, lay.width);
  }
}

void append_ld_complex(std::string& out, double re, double im, const RealLayout& lay) {
  char buf[104];
  bool fixed = false;
  int n = 0;
  buf[n++] = '(';
  n += ld_real_text(re, lay, true, buf + n, &fixed);
  buf[n++] = ',';
  n += ld_real_text(im, lay, true, buf + n, &fixed);
  buf[n++] = ')';
  append_rjust(out, std::string_view(buf, static_cast<std::size_t>(n)), 2 * lay.width + 3);
}

void append_ld_integer(std::string& out, long long v, int width) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  append_rjust(out, std::string_view(buf, static_cast<std::size_t>(r.ptr - buf)), width);
}

}  // namespace

std::string fmt_i(long long v, int w) { return fmt_i(v, w, 1); }

std::string fmt_i(long long v, int w, int m) {
  if (w <= 0) return {};
  const bool neg = v < 0;
  const unsigned long long mag =
      neg ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, mag);
  int nd = static_cast<int>(r.ptr - buf);
  if (m <= 0 && v == 0) nd = 0;  // Iw.0 writes zero as blanks only
  const int digits = nd > m ? nd : m;
  const int len = (neg ? 1 : 0) + digits;
  if (len > w) return stars(w);
  std::string out;
  out.reserve(static_cast<std::size_t>(w));
  out.append(static_cast<std::size_t>(w - len), ' ');
  if (neg) out += '-';
  out.append(static_cast<std::size_t>(digits - nd), '0');
  out.append(buf, static_cast<std::size_t>(nd));
  return out;
}

std::string fmt_f(double x, int w, int d) {
  if (w <= 0) return {};
  if (!std::isfinite(x)) return nonfinite(x, w);
  if (d < 0) return stars(w);
  const bool neg = std::signbit(x);
  const double ax = std::fabs(x);
  // At least w + 1 integer digits cannot fit; spares formatting hundreds of digits.
  if (w < 300 && ax >= std::pow(10.0, w + 1)) return stars(w);

  const Digits digits(ax, std::chars_format::fixed, d);
  const std::string_view t = digits.text();  // "iii.ddd", or "iii" when d == 0
  const std::size_t point = t.find('.');
  std::string_view int_part = t.substr(0, point);
  const std::string_view frac = point == std::string_view::npos ? "" : t.substr(point + 1);

  int len = (neg ? 1 : 0) + static_cast<int>(int_part.size()) + 1 + d;
  if (len > w) {
    // The zero before the point of a value below one is optional.
    if (int_part == "0" && d > 0 && len - 1 <= w) {
      int_part = {};
      --len;
    } else {
      return stars(w);
    }
  }
  std::string out;
  out.reserve(static_cast<std::size_t>(w));
  out.append(static_cast<std::size_t>(w - len), ' ');
  if (neg) out += '-';
  out.append(int_part);
  out += '.';
  out.append(frac);
  return out;
}

std::string fmt_e(double x, int w, int d) {
  if (w <= 0) return {};
  if (!std::isfinite(x)) return nonfinite(x, w);
  if (d < 1) return stars(w);
  const bool neg = std::signbit(x);
  const double ax = std::fabs(x);
  // The runtime writes 0.d1d2...dd; to_chars gives d1.d2...dd, one power of ten lower.
  const Scientific s(ax, d);
  char ebuf[4];
  const int elen = exponent_field(ax == 0 ? 0 : s.exp10 + 1, ebuf);
  if (elen == 0) return stars(w);

  int len = (neg ? 1 : 0) + 2 + d + elen;
  bool lead_zero = true;
  if (len > w) {
    if (len - 1 > w) return stars(w);
    lead_zero = false;
    --len;
  }
  std::string out;
  out.reserve(static_cast<std::size_t>(w));
  out.append(static_cast<std::size_t>(w - len), ' ');
  if (neg) out += '-';
  if (lead_zero) out += '0';
  out += '.';
  out += s.lead;
  out.append(s.rest);
  out.append(ebuf, static_cast<std::size_t>(elen));
  return out;
}

std::string fmt_a(std::string_view s, int w) {
  if (w <= 0) return {};
  const auto uw = static_cast<std::size_t>(w);
  if (s.size() >= uw) return std::string(s.substr(0, uw));
  std::string out(uw - s.size(), ' ');
  out.append(s);
  return out;
}

std::string ld_record(std::span<const LdItem> items) {
  std::string out;
  if (items.size() == 0) return out;
  out.reserve(1 + 26 * items.size());
  out += ' ';
  bool first = true;
  bool prev_text = false;
  for (const LdItem& item : items) {
    const bool text = item.kind == LdItem::text;
    // Consecutive text items run together; every other item gets a separating blank. The
    // record's own leading blank separates the first item.
    if (!first && !(text && prev_text)) out += ' ';
    switch (item.kind) {
      case LdItem::text:
        out.append(item.s);
        break;
      case LdItem::int32:
        append_ld_integer(out, item.i, 11);
        break;
      case LdItem::int64:
        append_ld_integer(out, item.i, 20);
        break;
      case LdItem::logical:
        out += item.b ? 'T' : 'F';
        break;
      case LdItem::real8:
        append_ld_real(out, item.re, kReal8);
        break;
      case LdItem::real4:
        append_ld_real(out, item.re, kReal4);
        break;
      case LdItem::complex8:
        append_ld_complex(out, item.re, item.im, kReal8);
        break;
      case LdItem::complex4:
        append_ld_complex(out, item.re, item.im, kReal4);
        break;
    }
    first = false;
    prev_text = text;
  }
  return out;
}

}  // namespace ictvcf
