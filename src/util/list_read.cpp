#include "util/list_read.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "util/list_scan.h"

namespace ictvcf {

namespace detail {

void Scanner::skip_blanks() {
  if (at_eof()) return;
  const std::string& s = record();
  while (col < s.size() && is_blank(s[col])) ++col;
}

bool Scanner::skip_space() {
  for (;;) {
    if (at_eof()) return false;
    const std::string& s = record();
    while (col < s.size() && is_blank(s[col])) ++col;
    if (col < s.size() && !(namelist_ && s[col] == '!')) return true;
    next_record();
  }
}

Datum Scanner::scan(bool& sep_pending) {
  Datum d;
  if (!skip_space()) {
    d.kind = Datum::end_of_file;
    return d;
  }
  if (sep_pending && record()[col] == ',') {
    // The comma that ends the value before: blanks, one comma and blanks are one separator.
    ++col;
    sep_pending = false;
    if (!skip_space()) {
      d.kind = Datum::end_of_file;
      return d;
    }
  }
  const std::string& s = record();
  const std::size_t n = s.size();
  if (s[col] == ',') {
    ++col;
    sep_pending = false;
    d.kind = Datum::null;
    return d;
  }
  if (s[col] == '/') {
    ++col;
    d.kind = Datum::slash;
    return d;
  }

  // "r*value" or "r*": digits right before a star are a repeat count.
  std::size_t j = col;
  while (j < n && is_digit(s[j])) ++j;
  if (j > col && j < n && s[j] == '*') {
    constexpr std::int64_t kMaxRepeat = std::numeric_limits<std::int32_t>::max();
    std::int64_t r = 0;
    for (std::size_t k = col; k < j; ++k) r = std::min(r * 10 + (s[k] - '0'), kMaxRepeat + 1);
    col = j + 1;
    if (r > kMaxRepeat) {
      d.kind = Datum::repeat_overflow;
      return d;
    }
    if (r == 0) {
      d.kind = Datum::zero_repeat;
      return d;
    }
    d.repeat = r;
    sep_pending = true;
    if (col >= n || ends_value(s[col])) {
      d.kind = Datum::null;
      return d;
    }
  }

  sep_pending = true;
  d.kind = Datum::value;
  d.rec = rec;
  d.col = col;
  if (s[col] == '\'' || s[col] == '"') {
    scan_quoted(d);
    return d;
  }
  std::size_t e = col;
  while (e < n && !ends_value(s[e])) ++e;
  d.text = std::string_view(s).substr(col, e - col);
  col = e;
  return d;
}

// A quoted value: a doubled quote stands for one; at a record end the text goes on at the start
// of the next record, with nothing put in between.
void Scanner::scan_quoted(Datum& d) {
  const char q = record()[col++];
  d.quoted = true;
  quoted_.clear();
  for (;;) {
    if (at_eof()) {
      d.eof_in_quote = true;
      break;
    }
    const std::string& s = record();
    std::size_t k = s.find(q, col);
    if (k == std::string::npos) {
      quoted_.append(s, col, std::string::npos);
      next_record();
      continue;
    }
    quoted_.append(s, col, k - col);
    if (k + 1 < s.size() && s[k + 1] == q) {
      quoted_ += q;
      col = k + 2;
      continue;
    }
    col = k + 1;
    if (col < s.size() && !ends_value(s[col])) d.junk_after_quote = true;
    break;
  }
  d.text = quoted_;
}

Conv to_integer(std::string_view s, std::int64_t lo, std::int64_t hi, std::int64_t& v) {
  std::size_t i = 0;
  bool neg = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) neg = s[i++] == '-';
  if (i == s.size()) return Conv::bad;
  const std::uint64_t limit =
      neg ? static_cast<std::uint64_t>(-(lo + 1)) + 1 : static_cast<std::uint64_t>(hi);
  std::uint64_t mag = 0;
  bool over = false;
  for (; i < s.size(); ++i) {
    if (!is_digit(s[i])) return Conv::bad;
    const unsigned digit = static_cast<unsigned>(s[i] - '0');
    if (mag > (limit - digit) / 10) over = true;
    if (!over) mag = mag * 10 + digit;
  }
  if (over) return Conv::overflow;
  if (!neg || mag == 0)
    v = static_cast<std::int64_t>(mag);
  else
    v = -static_cast<std::int64_t>(mag - 1) - 1;
  return Conv::ok;
}

namespace {

bool equals_nocase(std::string_view a, std::string_view lower) {
  if (a.size() != lower.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (to_lower(a[i]) != lower[i]) return false;
  return true;
}

bool is_exponent_letter(char c) {
  c = to_lower(c);
  return c == 'e' || c == 'd' || c == 'q';
}

}  // namespace

Conv to_real(std::string_view s, double& v, std::string& buf) {
  // Checks the form and writes the C form of the number into `buf` for strtod, which rounds
  // correctly: "1.5d-3" becomes "1.5e-3", "1.5-3" becomes "1.5e-3".
  buf.clear();
  std::size_t i = 0;
  const std::size_t n = s.size();
  if (i < n && (s[i] == '+' || s[i] == '-')) {
    if (s[i] == '-') buf += '-';
    ++i;
  }
  if (i < n && !is_digit(s[i]) && s[i] != '.') {
    std::string_view w = s.substr(i);
    if (!equals_nocase(w, "inf") && !equals_nocase(w, "infinity") && !equals_nocase(w, "nan"))
      return Conv::bad;
    for (char c : w) buf += to_lower(c);
  } else {
    std::size_t digits = 0;
    for (; i < n && is_digit(s[i]); ++i, ++digits) buf += s[i];
    if (i < n && s[i] == '.') {
      buf += '.';
      for (++i; i < n && is_digit(s[i]); ++i, ++digits) buf += s[i];
    }
    if (digits == 0) return Conv::bad;
    if (i < n) {
      if (is_exponent_letter(s[i]))
        ++i;
      else if (s[i] != '+' && s[i] != '-')
        return Conv::bad;
      buf += 'e';
      if (i < n && (s[i] == '+' || s[i] == '-')) buf += s[i++];
      std::size_t exp_digits = 0;
      for (; i < n && is_digit(s[i]); ++i, ++exp_digits) buf += s[i];
      if (exp_digits == 0 || i != n) return Conv::bad;
    }
  }
  v = std::strtod(buf.c_str(), nullptr);
  return Conv::ok;
}

Conv to_logical(std::string_view s, bool& v) {
  if (s.empty()) return Conv::bad;
  if (is_digit(s[0])) return Conv::bad_repeat;
  std::size_t i = s[0] == '.' ? 1 : 0;
  if (i >= s.size()) return Conv::bad;
  const char c = to_lower(s[i]);
  if (c != 't' && c != 'f') return Conv::bad;
  v = c == 't';
  return Conv::ok;
}

void store_text(std::string_view s, std::string& v, std::size_t len) {
  v.assign(s.substr(0, std::min(len, s.size())));
  v.resize(len, ' ');
}

}  // namespace detail

using detail::Conv;
using detail::Datum;

struct ListReader::State {
  State(TextFile& f, std::string& m) : sc(f, false), msg(m) {}

  detail::Scanner sc;
  std::string& msg;
  int item = 0;              // items of this READ so far, the current one included
  bool sep_pending = false;  // a value was read and its comma may still follow
  bool done = false;         // "/", a failure or finish(): later items are not read
  bool finished = false;
  LdStatus status = LdStatus::ok;
  std::int64_t repeat_left = 0;  // further copies of `d` still to hand out
  Datum d;
  std::string buf;

  LdStatus fail(LdStatus s, const char* what, const char* tail) {
    done = true;
    status = s;
    msg = what;
    if (tail) {
      msg += std::to_string(item);
      msg += tail;
    }
    return s;
  }
  LdStatus end_of_file() { return fail(LdStatus::end_of_file, "End of file", nullptr); }

  // The value for the next item, or nullptr when the item keeps its value (a null value, "/",
  // or a failure, with `out` telling which).
  const Datum* next(LdStatus& out) {
    ++item;
    out = status;
    if (done) return nullptr;
    if (repeat_left > 0) {
      --repeat_left;
      return d.kind == Datum::value ? &d : nullptr;
    }
    d = sc.scan(sep_pending);
    switch (d.kind) {
      case Datum::value:
        repeat_left = d.repeat - 1;
        return &d;
      case Datum::null:
        repeat_left = d.repeat - 1;
        return nullptr;
      case Datum::slash:
        done = true;
        return nullptr;
      case Datum::end_of_file:
        out = end_of_file();
        return nullptr;
      case Datum::zero_repeat:
        out = fail(LdStatus::bad_value, "Zero repeat count in item ", " of list input");
        return nullptr;
      case Datum::repeat_overflow:
        out = fail(LdStatus::bad_value, "Repeat count overflow in item ", " of list input");
        return nullptr;
    }
    return nullptr;
  }

  template <class Int>
  LdStatus integer(Int& v) {
    LdStatus s;
    const Datum* x = next(s);
    if (!x) return s;
    std::int64_t r = 0;
    Conv c = x->quoted ? Conv::bad
                       : detail::to_integer(x->text, std::numeric_limits<Int>::min(),
                                            std::numeric_limits<Int>::max(), r);
    if (c == Conv::overflow)
      return fail(LdStatus::bad_value, "Integer overflow while reading item ", "");
    if (c != Conv::ok) return fail(LdStatus::bad_value, "Bad integer for item ", " in list input");
    v = static_cast<Int>(r);
    return LdStatus::ok;
  }

  LdStatus text(std::string* v, std::size_t len) {
    LdStatus s;
    const Datum* x = next(s);
    if (!x) return s;
    if (x->junk_after_quote)
      return fail(LdStatus::bad_value, "Bad string in item ", " of list input");
    if (v) detail::store_text(x->text, *v, len);
    if (x->eof_in_quote) return end_of_file();
    return LdStatus::ok;
  }
};

ListReader::ListReader(TextFile& f) : f_(f), st_(std::make_unique<State>(f, message_)) {}

ListReader::~ListReader() { finish(); }

LdStatus ListReader::read(std::int32_t& v) { return st_->integer(v); }

LdStatus ListReader::read(std::int64_t& v) { return st_->integer(v); }

LdStatus ListReader::read(double& v) {
  LdStatus s;
  const Datum* x = st_->next(s);
  if (!x) return s;
  double r = 0;
  if (x->quoted || detail::to_real(x->text, r, st_->buf) != Conv::ok)
    return st_->fail(LdStatus::bad_value, "Bad real number in item ", " of list input");
  v = r;
  return LdStatus::ok;
}

LdStatus ListReader::read(bool& v) {
  LdStatus s;
  const Datum* x = st_->next(s);
  if (!x) return s;
  bool r = false;
  Conv c = x->quoted ? Conv::bad : detail::to_logical(x->text, r);
  if (c == Conv::bad_repeat)
    return st_->fail(LdStatus::bad_value, "Bad repeat count in item ", " of list input");
  if (c != Conv::ok)
    return st_->fail(LdStatus::bad_value, "Bad logical value while reading item ", "");
  v = r;
  return LdStatus::ok;
}

LdStatus ListReader::read_text(std::string& v, std::size_t len) { return st_->text(&v, len); }

LdStatus ListReader::skip_text() { return st_->text(nullptr, 0); }

void ListReader::finish() {
  if (st_->finished) return;
  st_->finished = true;
  st_->done = true;
  f_.next = std::min(st_->sc.rec + 1, f_.records.size());
}

long ListReader::line() const {
  return static_cast<long>(std::min(st_->sc.rec + 1, f_.records.size()));
}

LdStatus read_f(std::string_view field, int d, double& v) {
  // Blanks anywhere in the field are ignored; what is left is [sign] digits [. digits]
  // [exponent], the exponent being a letter E, D or Q with an optional sign, or a sign alone,
  // and digits. Without a point the last d digits are decimals. Inf, Infinity and NaN are
  // accepted too.
  std::string t;
  t.reserve(field.size());
  for (char c : field)
    if (c != ' ') t += c;
  std::size_t i = 0;
  const std::size_t n = t.size();
  bool neg = false;
  if (i < n && (t[i] == '+' || t[i] == '-')) neg = t[i++] == '-';
  if (i == n) {
    v = 0.0;
    return LdStatus::ok;
  }
  std::string buf = neg ? "-" : "";
  if (!detail::is_digit(t[i]) && t[i] != '.') {  // Inf, Infinity, NaN or junk
    std::string_view w = std::string_view(t).substr(i);
    if (w[0] == '+' || w[0] == '-') return LdStatus::bad_value;
    double r = 0;
    if (detail::to_real(w, r, buf) != Conv::ok) return LdStatus::bad_value;
    v = neg ? -r : r;
    return LdStatus::ok;
  }
  std::string digits;
  long long point = -1;  // digits before the point, -1 when there is none
  for (; i < n && detail::is_digit(t[i]); ++i) digits += t[i];
  if (i < n && t[i] == '.') {
    point = static_cast<long long>(digits.size());
    for (++i; i < n && detail::is_digit(t[i]); ++i) digits += t[i];
  }
  if (digits.empty()) return LdStatus::bad_value;
  long long exp = 0;
  if (i < n) {
    if (detail::is_exponent_letter(t[i]))
      ++i;
    else if (t[i] != '+' && t[i] != '-')
      return LdStatus::bad_value;
    bool exp_neg = false;
    if (i < n && (t[i] == '+' || t[i] == '-')) exp_neg = t[i++] == '-';
    if (i == n) return LdStatus::bad_value;
    constexpr long long kCap = 1000000000;  // far beyond any double; keeps the sum in range
    for (; i < n; ++i) {
      if (!detail::is_digit(t[i])) return LdStatus::bad_value;
      exp = std::min(exp * 10 + (t[i] - '0'), kCap);
    }
    if (exp_neg) exp = -exp;
  }
  if (point < 0) point = static_cast<long long>(digits.size()) - d;
  // value = 0.<digits> * 10**(point + exp)
  buf += "0.";
  buf += digits;
  buf += 'e';
  buf += std::to_string(point + exp);
  v = std::strtod(buf.c_str(), nullptr);
  return LdStatus::ok;
}

}  // namespace ictvcf
