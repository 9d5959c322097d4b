#include "input/namelist.h"

#include <algorithm>
#include <limits>
#include <string>

#include "util/list_scan.h"

namespace ictvcf {

namespace {

using detail::Conv;
using detail::Datum;
using detail::Scanner;
using detail::to_lower;

std::string lower(std::string_view s) {
  std::string r(s);
  for (char& c : r) c = to_lower(c);
  return r;
}

// True when the characters at the scan position are `word` (lower case) in any case; the
// position then moves past them.
bool take_word(Scanner& sc, std::string_view word) {
  const std::string& s = sc.record();
  if (s.size() - sc.col < word.size()) return false;
  for (std::size_t i = 0; i < word.size(); ++i)
    if (to_lower(s[sc.col + i]) != word[i]) return false;
  sc.col += word.size();
  return true;
}

// Moves past "&group" or "$group" followed by a blank or the record end, skipping everything
// before it (other groups included). A "!" outside a group comments out the rest of its record.
bool find_group(Scanner& sc, std::string_view group) {
  const std::string name = lower(group);
  while (!sc.at_eof()) {
    const std::string& s = sc.record();
    std::size_t k = s.find_first_of("&$!", sc.col);
    if (k == std::string::npos || s[k] == '!') {
      sc.next_record();
      continue;
    }
    sc.col = k + 1;
    if (take_word(sc, name) && (sc.col == s.size() || detail::is_blank(s[sc.col]))) return true;
  }
  return false;
}

// An object name: everything up to a blank, "=", ",", "/" or the record end, in lower case.
std::string take_name(Scanner& sc) {
  const std::string& s = sc.record();
  std::size_t e = sc.col;
  while (e < s.size() && !detail::ends_value(s[e]) && s[e] != '=') ++e;
  std::string name = lower(std::string_view(s).substr(sc.col, e - sc.col));
  sc.col = e;
  return name;
}

// The text of a value as it stands in its record, up to the next blank or "=" (how a value
// that cannot be one is shown in messages: as the name it would then be).
std::string raw_word(const Scanner& sc, const Datum& d) {
  const std::string& s = sc.file().records[d.rec];
  std::size_t e = d.col;
  while (e < s.size() && !detail::is_blank(s[e]) && s[e] != '=') ++e;
  return lower(std::string_view(s).substr(d.col, e - d.col));
}

// Stores the value into the variable; returns the message when it does not fit the type.
std::string store(const NmlVar& var, const Scanner& sc, const Datum& d, std::string& buf) {
  const std::string no_name = "Cannot match namelist object name ";
  if (var.type != NmlVar::text && d.quoted) return no_name + raw_word(sc, d);
  switch (var.type) {
    case NmlVar::integer: {
      std::int64_t v = 0;
      Conv c = detail::to_integer(d.text, std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max(), v);
      if (c == Conv::overflow) return "Integer overflow while reading item 1";
      if (c != Conv::ok) {
        // What follows the leading digits would be taken for the next name ("3.0" -> ".0").
        std::string_view t = d.text;
        std::size_t i = (!t.empty() && (t[0] == '+' || t[0] == '-')) ? 1 : 0;
        std::size_t j = i;
        while (j < t.size() && detail::is_digit(t[j])) ++j;
        return no_name + lower(j > i ? t.substr(j) : t);
      }
      *static_cast<std::int32_t*>(var.ptr) = static_cast<std::int32_t>(v);
      return {};
    }
    case NmlVar::real: {
      double v = 0;
      if (detail::to_real(d.text, v, buf) != Conv::ok) return no_name + lower(d.text);
      *static_cast<double*>(var.ptr) = v;
      return {};
    }
    case NmlVar::logical: {
      bool v = false;
      Conv c = detail::to_logical(d.text, v);
      if (c == Conv::bad_repeat) return "Bad repeat count in item 1 of list input";
      if (c != Conv::ok) return no_name + lower(d.text);
      *static_cast<bool*>(var.ptr) = v;
      return {};
    }
    case NmlVar::text:
      if (d.junk_after_quote) return "Bad string in item 1 of list input";
      detail::store_text(d.text, *static_cast<std::string*>(var.ptr), var.len);
      return {};
  }
  return {};
}

}  // namespace

NmlResult read_namelist(TextFile& f, std::string_view group, std::span<const NmlVar> vars) {
  Scanner sc(f, true);
  NmlResult res;
  // Like any READ, the group takes whole records: the next read starts after its last one.
  auto done = [&](LdStatus s, std::string message) {
    f.next = std::min(sc.rec + 1, f.records.size());
    res.status = s;
    res.message = std::move(message);
    return res;
  };
  auto bad = [&](std::string message) { return done(LdStatus::bad_value, std::move(message)); };
  auto end_of_file = [&]() { return done(LdStatus::end_of_file, "End of file"); };

  if (!find_group(sc, group)) return end_of_file();
  std::string buf;
  for (;;) {
    // Between assignments: blanks, commas, record ends and comments.
    if (!sc.skip_space()) return end_of_file();
    int c = sc.peek();
    if (c == ',') {
      ++sc.col;
      continue;
    }
    if (c == '/') {
      ++sc.col;
      return done(LdStatus::ok, {});
    }
    if (c == '&' || c == '$') {
      ++sc.col;
      if (!take_word(sc, "end")) return bad("namelist not terminated with / or &end");
      return done(LdStatus::ok, {});
    }
    if (c == '=') return bad("namelist read: misplaced = sign");

    const std::string name = take_name(sc);
    auto it =
        std::find_if(vars.begin(), vars.end(), [&](const NmlVar& v) { return v.name == name; });
    if (it == vars.end()) return bad("Cannot match namelist object name " + name);
    const NmlVar& var = *it;

    if (!sc.skip_space()) return end_of_file();
    c = sc.peek();
    if (c == '/') {  // a name alone before the end of the group
      ++sc.col;
      return done(LdStatus::ok, {});
    }
    if (c != '=') return bad("Equal sign must follow namelist object name " + name);
    ++sc.col;

    // The value must start on the same record; "name =" with nothing after it (or only a
    // comment) assigns nothing.
    sc.skip_blanks();
    c = sc.peek();
    if (c < 0 || c == '!') continue;
    if (c == '=') return bad("namelist read: misplaced = sign");
    bool sep_pending = false;
    const Datum d = sc.scan(sep_pending);
    switch (d.kind) {
      case Datum::slash:
        return done(LdStatus::ok, {});
      case Datum::end_of_file:
        return end_of_file();
      case Datum::zero_repeat:
        return bad("Zero repeat count in item 1 of list input");
      case Datum::repeat_overflow:
        return bad("Repeat count overflow in item 1 of list input");
      case Datum::value: {
        std::string message = store(var, sc, d, buf);
        if (!message.empty()) return bad(std::move(message));
        if (d.eof_in_quote) return end_of_file();
        break;
      }
      case Datum::null:
        break;
    }
    if (d.repeat > 1) return bad("Repeat count too large for namelist object " + name);
  }
}

}  // namespace ictvcf
