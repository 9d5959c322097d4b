// Fixed-format and list-directed output against tables of the Fortran runtime's own output
// (tests/data/edit-descriptors.tsv, tests/data/list-directed-write.tsv), plus the corners the
// tables do not reach.
#include <gtest/gtest.h>

#include <bit>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "util/fortran_format.h"

namespace ictvcf {
namespace {

using Row = std::vector<std::string>;

std::vector<Row> read_table(const std::string& file) {
  std::ifstream in(std::string(ICTVCF_TEST_DATA) + "/" + file);
  EXPECT_TRUE(in) << "cannot open " << file;
  std::vector<Row> rows;
  std::string line;
  bool header = true;
  while (std::getline(in, line)) {
    if (header) {
      header = false;
      continue;
    }
    Row row;
    std::istringstream fields(line);
    std::string f;
    while (std::getline(fields, f, '\t')) row.push_back(f);
    if (!line.empty() && line.back() == '\t') row.emplace_back();
    rows.push_back(row);
  }
  return rows;
}

// "|text|" -> "text"; several records are "|a| |b|".
std::vector<std::string> records(const std::string& field) {
  std::vector<std::string> out;
  std::size_t p = 0;
  while (p < field.size()) {
    if (field[p] != '|') break;
    const std::size_t q = field.find('|', p + 1);
    if (q == std::string::npos) break;
    out.push_back(field.substr(p + 1, q - p - 1));
    p = q + 2;
  }
  return out;
}

std::string single_record(const std::string& field) {
  const auto r = records(field);
  EXPECT_EQ(r.size(), 1u) << field;
  return r.empty() ? std::string() : r[0];
}

// Hexadecimal double as strtod reads it, plus "nan(mantissa 0x...)" with an optional sign.
double parse_double(const std::string& s) {
  const bool neg = s.rfind('-', 0) == 0;
  const std::string body = neg ? s.substr(1) : s;
  const std::string nan_prefix = "nan(mantissa ";
  if (body.rfind(nan_prefix, 0) == 0) {
    const std::uint64_t frac = std::strtoull(body.c_str() + nan_prefix.size(), nullptr, 16);
    const std::uint64_t bits = (neg ? 1ULL << 63 : 0) | (0x7ffULL << 52) | frac;
    return std::bit_cast<double>(bits);
  }
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  EXPECT_EQ(*end, '\0') << "bad double " << s;
  return v;
}

// "character(len=N) |text|" or "character(len=N) holding |text|": text blank-padded to N.
std::string parse_character(const std::string& s) {
  const std::size_t len_at = s.find("len=");
  const std::size_t bar = s.find('|');
  EXPECT_NE(len_at, std::string::npos) << s;
  EXPECT_NE(bar, std::string::npos) << s;
  if (len_at == std::string::npos || bar == std::string::npos) return {};
  const std::size_t len = std::strtoul(s.c_str() + len_at + 4, nullptr, 10);
  std::string text = single_record(s.substr(bar));
  EXPECT_LE(text.size(), len) << s;
  text.resize(len, ' ');
  return text;
}

struct Descriptor {
  char letter = 0;
  int w = -1;  // -1: no width (A alone)
  int d = -1;  // -1: no .d / .m part
};

Descriptor parse_descriptor(const std::string& s) {
  Descriptor out;
  out.letter = static_cast<char>(std::toupper(static_cast<unsigned char>(s.at(0))));
  if (s.size() == 1) return out;
  char* end = nullptr;
  out.w = static_cast<int>(std::strtol(s.c_str() + 1, &end, 10));
  if (*end == '.') out.d = static_cast<int>(std::strtol(end + 1, &end, 10));
  EXPECT_EQ(*end, '\0') << "bad descriptor " << s;
  return out;
}

TEST(FortranFormatTable, EveryEditDescriptorRow) {
  const auto rows = read_table("edit-descriptors.tsv");
  ASSERT_GT(rows.size(), 300u);
  std::set<char> seen;
  for (std::size_t n = 0; n < rows.size(); ++n) {
    const Row& row = rows[n];
    SCOPED_TRACE("row " + std::to_string(n + 2) + ": " + row[0] + " " + row[2]);
    ASSERT_GE(row.size(), 4u);
    const Descriptor desc = parse_descriptor(row[0]);
    const std::string expected = single_record(row[3]);
    seen.insert(desc.letter);
    switch (desc.letter) {
      case 'E':
        EXPECT_EQ(fmt_e(parse_double(row[1]), desc.w, desc.d), expected);
        break;
      case 'F':
        EXPECT_EQ(fmt_f(parse_double(row[1]), desc.w, desc.d), expected);
        break;
      case 'I': {
        const long long v = std::strtoll(row[2].c_str(), nullptr, 10);
        EXPECT_EQ(desc.d < 0 ? fmt_i(v, desc.w) : fmt_i(v, desc.w, desc.d), expected);
        break;
      }
      case 'A': {
        const std::string text = parse_character(row[2]);
        EXPECT_EQ(desc.w < 0 ? fmt_a(text) : fmt_a(text, desc.w), expected);
        break;
      }
      default:
        ADD_FAILURE() << "unknown descriptor " << row[0];
    }
  }
  EXPECT_EQ(seen, (std::set<char>{'A', 'E', 'F', 'I'}));
}

// The statement of each table row as the items handed to ld_record.
std::map<std::string, std::function<std::string()>> list_directed_cases() {
  using L = std::numeric_limits<double>;
  return {
      {"write(u,*) 'hello'", [] { return ld_record({"hello"}); }},
      {"write(u,*) 'hello   '", [] { return ld_record({"hello   "}); }},
      {"write(u,*) trim(name)", [] { return ld_record({"data.dat"}); }},
      {"write(u,*) name",
       [] {
         std::string name = "data.dat";
         name.resize(200, ' ');
         return ld_record({name});
       }},
      {"write(u,*) ''", [] { return ld_record({""}); }},
      {"write(u,*)", [] { return ld_record({}); }},
      {"write(u,*) 'a', 'b'",
       [] {
         return ld_record({"a", "b"});
       }},
      {"write(u,*) 'n =', 5",
       [] {
         return ld_record({"n =", 5});
       }},
      {"write(u,*) 5, 'x'",
       [] {
         return ld_record({5, "x"});
       }},
      {"write(u,*) 0", [] { return ld_record({0}); }},
      {"write(u,*) 42", [] { return ld_record({42}); }},
      {"write(u,*) -42", [] { return ld_record({-42}); }},
      {"write(u,*) huge(0)", [] { return ld_record({std::numeric_limits<std::int32_t>::max()}); }},
      {"write(u,*) -huge(0)-1",
       [] { return ld_record({std::numeric_limits<std::int32_t>::min()}); }},
      {"write(u,*) 42_int64", [] { return ld_record({std::int64_t{42}}); }},
      {"write(u,*) -huge(0_int64)-1",
       [] { return ld_record({std::numeric_limits<std::int64_t>::min()}); }},
      {"write(u,*) 1, 2, 3",
       [] {
         return ld_record({1, 2, 3});
       }},
      {"write(u,*) 0d0", [] { return ld_record({0.0}); }},
      {"write(u,*) -0d0", [] { return ld_record({-0.0}); }},
      {"write(u,*) 1d0", [] { return ld_record({1.0}); }},
      {"write(u,*) -1d0", [] { return ld_record({-1.0}); }},
      {"write(u,*) 0.1d0", [] { return ld_record({0.1}); }},
      {"write(u,*) 1d0/3d0", [] { return ld_record({1.0 / 3.0}); }},
      {"write(u,*) 300d0", [] { return ld_record({300.0}); }},
      {"write(u,*) 123456.789d0", [] { return ld_record({123456.789}); }},
      {"write(u,*) 0.099d0", [] { return ld_record({0.099}); }},
      {"write(u,*) 1d-5", [] { return ld_record({1e-5}); }},
      {"write(u,*) 1d15", [] { return ld_record({1e15}); }},
      {"write(u,*) 1d16", [] { return ld_record({1e16}); }},
      {"write(u,*) 9.99999999999999d15", [] { return ld_record({9.99999999999999e15}); }},
      {"write(u,*) 1d100", [] { return ld_record({1e100}); }},
      {"write(u,*) -1.5d-200", [] { return ld_record({-1.5e-200}); }},
      {"write(u,*) huge(0d0)", [] { return ld_record({L::max()}); }},
      {"write(u,*) 4.9d-324", [] { return ld_record({L::denorm_min()}); }},
      {"write(u,*) +Infinity", [] { return ld_record({L::infinity()}); }},
      {"write(u,*) -Infinity", [] { return ld_record({-L::infinity()}); }},
      {"write(u,*) NaN", [] { return ld_record({L::quiet_NaN()}); }},
      {"write(u,*) 1.5d0, -2.5d0",
       [] {
         return ld_record({1.5, -2.5});
       }},
      {"write(u,*) x(1:3)",
       [] {
         return ld_record({1.0, 2.0, 3.0});
       }},
      {"write(u,*) x(1:10)",
       [] {
         const double x = 1.1;
         return ld_record({1 * x, 2 * x, 3 * x, 4 * x, 5 * x, 6 * x, 7 * x, 8 * x, 9 * x, 10 * x});
       }},
      {"write(u,*) i(1:10)",
       [] {
         return ld_record({1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000, 9000, 10000});
       }},
      {"write(u,*) 1.0", [] { return ld_record({1.0f}); }},
      {"write(u,*) 0.1", [] { return ld_record({0.1f}); }},
      {"write(u,*) .true.", [] { return ld_record({true}); }},
      {"write(u,*) .false.", [] { return ld_record({false}); }},
      {"write(u,*) .true., .false.",
       [] {
         return ld_record({true, false});
       }},
      {"write(u,*) (1d0,2d0)", [] { return ld_record({std::complex<double>(1.0, 2.0)}); }},
      {"write(u,*) (-0.5d0,1d-20)", [] { return ld_record({std::complex<double>(-0.5, 1e-20)}); }},
      {"write(u,*) (1.0,-2.0)", [] { return ld_record({std::complex<float>(1.0f, -2.0f)}); }},
      {"write(u,*) 'nt', 5, 1.5d0, .true.",
       [] {
         return ld_record({"nt", 5, 1.5, true});
       }},
      {"write(u,*) 'x', 1.5d0",
       [] {
         return ld_record({"x", 1.5});
       }},
      {"write(u,*) 'it''s'", [] { return ld_record({"it's"}); }},
      {"write(u,*) 99999999999999984d0", [] { return ld_record({99999999999999984.0}); }},
      {"write(u,*) 1d17", [] { return ld_record({1e17}); }},
      {"write(u,*) 0.1d0 - epsilon", [] { return ld_record({std::nextafter(0.1, 0.0)}); }},
  };
}

TEST(FortranFormatTable, EveryListDirectedWriteRow) {
  const auto rows = read_table("list-directed-write.tsv");
  const auto cases = list_directed_cases();
  ASSERT_FALSE(rows.empty());
  std::set<std::string> used;
  for (std::size_t n = 0; n < rows.size(); ++n) {
    const Row& row = rows[n];
    SCOPED_TRACE("row " + std::to_string(n + 2) + ": " + row[0]);
    ASSERT_GE(row.size(), 3u);
    const auto it = cases.find(row[0]);
    if (it == cases.end()) {
      ADD_FAILURE() << "no items known for this statement";
      continue;
    }
    used.insert(row[0]);
    EXPECT_EQ(it->second(), single_record(row[2]));
  }
  EXPECT_EQ(used.size(), cases.size()) << "statements listed here but missing from the table";
}

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(FortranFormat, OptionalLeadingZeroIsDroppedBeforeAsterisks) {
  EXPECT_EQ(fmt_f(0.5, 4, 2), "0.50");
  EXPECT_EQ(fmt_f(0.5, 3, 2), ".50");
  EXPECT_EQ(fmt_f(-0.5, 4, 2), "-.50");
  EXPECT_EQ(fmt_f(-0.5, 3, 2), "***");
  EXPECT_EQ(fmt_f(-1e-9, 7, 5), "-.00000");
  EXPECT_EQ(fmt_f(1.5, 3, 2), "***");  // a nonzero integer digit is never dropped
  EXPECT_EQ(fmt_e(1.0, 15, 9), "0.100000000E+01");
  EXPECT_EQ(fmt_e(1.0, 14, 9), ".100000000E+01");
  EXPECT_EQ(fmt_e(-1.0, 15, 9), "-.100000000E+01");
  EXPECT_EQ(fmt_e(-1.0, 14, 9), "**************");
  EXPECT_EQ(fmt_e(-1e-200, 15, 9), "-.100000000-199");
}

TEST(FortranFormat, RoundingCarriesIntoTheExponent) {
  EXPECT_EQ(fmt_e(0.96, 7, 1), "0.1E+01");
  EXPECT_EQ(fmt_e(-99.96, 10, 3), "-0.100E+03");
  EXPECT_EQ(fmt_e(9.9996e-100, 9, 3), "0.100E-98");  // three exponent digits back to two
  EXPECT_EQ(fmt_e(9.9996e98, 9, 3), "0.100+100");
  EXPECT_EQ(fmt_f(9.995, 5, 2), " 9.99");  // 9.995 is stored below the tie
  EXPECT_EQ(fmt_f(99.996, 5, 2), "*****");
}

TEST(FortranFormat, InfinityAndNaNInNarrowFields) {
  EXPECT_EQ(fmt_f(kInf, 8, 2), "Infinity");
  EXPECT_EQ(fmt_e(kInf, 7, 2), "    Inf");
  EXPECT_EQ(fmt_f(kInf, 3, 1), "Inf");
  EXPECT_EQ(fmt_f(kInf, 2, 1), "**");
  EXPECT_EQ(fmt_f(-kInf, 9, 2), "-Infinity");
  EXPECT_EQ(fmt_e(-kInf, 8, 2), "    -Inf");
  EXPECT_EQ(fmt_f(-kInf, 4, 1), "-Inf");
  EXPECT_EQ(fmt_f(-kInf, 3, 1), "***");
  EXPECT_EQ(fmt_e(kNaN, 3, 1), "NaN");
  EXPECT_EQ(fmt_e(-kNaN, 3, 1), "NaN");
  EXPECT_EQ(fmt_f(kNaN, 2, 1), "**");
}

}  // namespace
}  // namespace ictvcf
