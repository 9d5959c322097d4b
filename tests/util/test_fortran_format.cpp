// Fixed-format and list-directed output against tables of the Fortran runtime's own output
// (tests/data/edit-descriptors.tsv, list-directed-write.tsv) and the corners of narrow fields,
// rounding and non-finite values (edit-descriptors-extra.tsv).
#include <gtest/gtest.h>

#include <algorithm>
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

// The run writes text items list-directed (the table's name in the log): the rows of
// list-directed-write.tsv whose items are text (list-directed-items.tsv: "t:text", "p200:text"
// blank-padded to 200, "|" between items).
TEST(FortranFormat, ListDirectedTextRows) {
  const auto items = load_table(ICTVCF_TEST_DATA "/list-directed-items.tsv");
  const auto rows = load_table(ICTVCF_TEST_DATA "/list-directed-write.tsv");
  ASSERT_EQ(items.size(), rows.size());
  int checked = 0;
  for (std::size_t k = 0; k < rows.size(); ++k) {
    SCOPED_TRACE("list-directed-write.tsv line " + std::to_string(rows[k].line));
    std::vector<std::string> texts = split(items[k]["items"], '|');
    if (std::any_of(texts.begin(), texts.end(), [](const std::string& t) {
          return t.rfind("t:", 0) != 0 && t.rfind("p200:", 0) != 0;
        }))
      continue;
    for (std::string& t : texts) {
      const bool padded = t[0] == 'p';
      t.erase(0, t.find(':') + 1);
      if (padded) t.resize(200, ' ');
    }
    const std::string record =
        texts.size() == 1 ? ld_record({texts[0]}) : ld_record({texts.at(0), texts.at(1)});
    EXPECT_EQ(record, barred_records(rows[k]["output_records"]).at(0));
    ++checked;
  }
  EXPECT_EQ(checked, 7);
}

}  // namespace
}  // namespace ictvcf
