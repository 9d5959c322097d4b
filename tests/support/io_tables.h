// Reading the tab-separated tables of Fortran input cases (tests/data/*.tsv) and rendering
// values the way those tables show them, so that a case compares as one string.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "util/list_read.h"

namespace ictvcf::testing {

struct TableRow {
  int line = 0;  // line in the table file, for failure messages
  std::map<std::string, std::string> col;
  const std::string& operator[](const std::string& name) const { return col.at(name); }
};

inline std::vector<std::string> split(std::string_view s, char sep) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (;;) {
    std::size_t k = s.find(sep, start);
    out.emplace_back(s.substr(start, k == std::string_view::npos ? k : k - start));
    if (k == std::string_view::npos) return out;
    start = k + 1;
  }
}

// The rows of a table; the first line names the columns.
inline std::vector<TableRow> load_table(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot open " + path);
  std::string line;
  std::getline(in, line);
  const std::vector<std::string> header = split(line, '\t');
  std::vector<TableRow> rows;
  for (int n = 2; std::getline(in, line); ++n) {
    if (line.empty()) continue;
    std::vector<std::string> f = split(line, '\t');
    if (f.size() != header.size()) throw std::runtime_error(path + ": bad field count");
    TableRow r;
    r.line = n;
    for (std::size_t i = 0; i < f.size(); ++i) r.col[header[i]] = f[i];
    rows.push_back(std::move(r));
  }
  return rows;
}

// "|rec1| |rec2|" -> {"rec1", "rec2"}.
inline std::vector<std::string> barred_records(std::string_view s) {
  std::vector<std::string> out;
  std::size_t i = 0;
  while (i < s.size()) {
    if (s[i] != '|') throw std::runtime_error("bad record list: " + std::string(s));
    std::size_t k = s.find('|', i + 1);
    if (k == std::string_view::npos) throw std::runtime_error("unclosed record: " + std::string(s));
    out.emplace_back(s.substr(i + 1, k - i - 1));
    i = k + 1;
    if (i < s.size() && s[i] == ' ') ++i;
  }
  return out;
}

// Drops the decimal renderings " (...)" that follow values outside bars: the tables give a
// double as "0x1p+0 (1.0000000000000000E+000)"; the hexadecimal part alone has all the bits.
inline std::string without_decimals(std::string_view s) {
  std::string out;
  bool in_bars = false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '|') in_bars = !in_bars;
    if (!in_bars && s[i] == ' ' && i + 1 < s.size() && s[i + 1] == '(') {
      std::size_t k = s.find(')', i);
      if (k == std::string_view::npos) break;
      i = k;
      continue;
    }
    out += s[i];
  }
  return out;
}

// A double as the tables show it: C99 hexadecimal, "inf", "nan(mantissa 0x...)".
inline std::string hex_double(double x) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  const std::string sign = std::signbit(x) ? "-" : "";
  if (std::isnan(x)) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "nan(mantissa 0x%llx)",
                  static_cast<unsigned long long>(bits & ((std::uint64_t{1} << 52) - 1)));
    return sign + buf;
  }
  if (std::isinf(x)) return sign + "inf";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%a", x);
  return buf;
}

// The inverse of hex_double (plain "nan" and "inf" too): strtod reads hexadecimal doubles.
inline double from_hex(const std::string& s) {
  const std::size_t at = s.find("nan(mantissa ");
  if (at == std::string::npos) return std::strtod(s.c_str(), nullptr);
  const std::uint64_t frac = std::strtoull(s.c_str() + at + 13, nullptr, 16);
  return std::bit_cast<double>((s[0] == '-' ? 1ULL << 63 : 0) | (0x7ffULL << 52) | frac);
}

inline std::string rtrim(std::string s) {
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// The iostat a Fortran runtime gives for the outcome.
inline int iostat(LdStatus s) {
  return s == LdStatus::ok ? 0 : s == LdStatus::end_of_file ? -1 : 5010;
}

}  // namespace ictvcf::testing
