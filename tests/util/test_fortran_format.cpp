// Fixed-format and list-directed output against tables of the Fortran runtime's own output
// (tests/data/edit-descriptors.tsv, list-directed-write.tsv) and the corners of narrow fields,
// rounding and non-finite values (edit-descriptors-extra.tsv).
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "support/io_tables.h"
#include "util/fortran_format.h"

namespace ictvcf {
namespace {

using testing::barred_records;
using testing::from_hex;
using testing::load_table;
using testing::split;

// One value through one descriptor: "E16.9" of input_hex, "I10" of the decimal integer, "A12" of
// "character(len=N) |text|" (blank-padded to N).
std::string edit(const testing::TableRow& row) {
  const std::string& desc = row["descriptor"];
  const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(desc[0])));
  const std::size_t dot = desc.find('.');
  const int w = desc.size() > 1 ? std::stoi(desc.substr(1, dot - 1)) : -1;
  const int d = dot == std::string::npos ? -1 : std::stoi(desc.substr(dot + 1));
  if (letter == 'E') return fmt_e(from_hex(row["input_hex"]), w, d);
  if (letter == 'F') return fmt_f(from_hex(row["input_hex"]), w, d);
  if (letter == 'I') {
    const long long v = std::stoll(row["input_decimal"]);
    return d < 0 ? fmt_i(v, w) : fmt_i(v, w, d);
  }
  const std::string& in = row["input_decimal"];
  std::string text = barred_records(in.substr(in.find('|'))).at(0);
  text.resize(std::stoul(in.substr(in.find("len=") + 4)), ' ');
  return w < 0 ? fmt_a(text) : fmt_a(text, w);
}

TEST(FortranFormat, EveryEditDescriptorRow) {
  for (const char* file : {"/edit-descriptors.tsv", "/edit-descriptors-extra.tsv"})
    for (const auto& row : load_table(ICTVCF_TEST_DATA + std::string(file))) {
      SCOPED_TRACE(std::string(file) + " line " + std::to_string(row.line) + ": " +
                   row["descriptor"] + " " + row["input_decimal"] + " " + row["note"]);
      EXPECT_EQ(edit(row), barred_records(row["output"]).at(0));
    }
}

// Every row of list-directed-write.tsv, its items decoded from list-directed-items.tsv ("t:text",
// "p200:text" blank-padded to 200, "i4:", "i8:", "d:"/"f:" hexadecimal reals, "l:T",
// "z:"/"c:" complex pairs, "|" between items).
TEST(FortranFormat, EveryListDirectedRow) {
  const auto items = load_table(ICTVCF_TEST_DATA "/list-directed-items.tsv");
  const auto rows = load_table(ICTVCF_TEST_DATA "/list-directed-write.tsv");
  ASSERT_EQ(items.size(), rows.size());
  for (std::size_t k = 0; k < rows.size(); ++k) {
    SCOPED_TRACE("list-directed-write.tsv line " + std::to_string(rows[k].line));
    const std::vector<std::string> codes =
        items[k]["items"].empty() ? std::vector<std::string>{} : split(items[k]["items"], '|');
    std::vector<std::string> texts;  // kept alive: LdItem views its text
    texts.reserve(codes.size());
    std::vector<LdItem> list;
    for (const std::string& code : codes) {
      const std::string kind = code.substr(0, code.find(':')), v = code.substr(kind.size() + 1);
      const std::size_t comma = v.find(',');
      if (kind == "t" || kind == "p200") {
        texts.push_back(v);
        if (kind == "p200") texts.back().resize(200, ' ');
        list.emplace_back(std::string_view(texts.back()));
      } else if (kind == "i4") {
        list.emplace_back(static_cast<std::int32_t>(std::stoll(v)));
      } else if (kind == "i8") {
        list.emplace_back(static_cast<std::int64_t>(std::stoll(v)));
      } else if (kind == "d" || kind == "f") {
        list.push_back(kind == "d" ? LdItem(from_hex(v)) : LdItem(static_cast<float>(from_hex(v))));
      } else if (kind == "l") {
        list.emplace_back(v == "T");
      } else {
        const double re = from_hex(v.substr(0, comma)), im = from_hex(v.substr(comma + 1));
        list.push_back(kind == "z" ? LdItem(std::complex<double>(re, im))
                                   : LdItem(std::complex<float>(static_cast<float>(re),
                                                                static_cast<float>(im))));
      }
    }
    EXPECT_EQ(ld_record(list), barred_records(rows[k]["output_records"]).at(0));
  }
}

}  // namespace
}  // namespace ictvcf
