// Fixed-format and list-directed output against tables of the Fortran runtime's own output
// (tests/data/edit-descriptors.tsv, list-directed-write.tsv) and the corners of narrow fields,
// rounding and non-finite values (edit-descriptors-extra.tsv).
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
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

// ld_record of the first N items of a vector (it takes an initializer list).
template <std::size_t... I>
std::string record_of(const std::vector<LdItem>& v, std::index_sequence<I...>) {
  return ld_record({v[I]...});
}
template <std::size_t... N>
auto record_functions(std::index_sequence<N...>) {
  using Fn = std::string (*)(const std::vector<LdItem>&);
  return std::array<Fn, sizeof...(N)>{
      [](const std::vector<LdItem>& v) { return record_of(v, std::make_index_sequence<N>()); }...};
}

// The items of a WRITE(u,*) as list-directed-items.tsv gives them: "t:text", "p200:text"
// (blank-padded to 200), "i4:", "i8:", "d:" and "f:" (hexadecimal double, real(4)), "l:T",
// "z:re,im" and "c:re,im" (complex(8), complex(4)), separated by "|".
std::string write_items(const std::string& spec) {
  std::vector<std::string> texts = spec.empty() ? std::vector<std::string>{} : split(spec, '|');
  std::vector<LdItem> items;
  for (std::string& item : texts) {
    const std::string kind = item.substr(0, item.find(':')), v = item.substr(item.find(':') + 1);
    const double re = from_hex(v.substr(0, v.find(','))), im = from_hex(v.substr(v.find(',') + 1));
    if (kind == "t" || kind == "p200") {
      item = v;
      if (kind == "p200") item.resize(200, ' ');
      items.emplace_back(std::string_view(item));
    }
    if (kind == "i4") items.emplace_back(static_cast<std::int32_t>(std::stoll(v)));
    if (kind == "i8") items.emplace_back(static_cast<std::int64_t>(std::stoll(v)));
    if (kind == "d") items.emplace_back(re);
    if (kind == "f") items.emplace_back(static_cast<float>(re));
    if (kind == "l") items.emplace_back(v == "T");
    if (kind == "z") items.emplace_back(std::complex<double>(re, im));
    if (kind == "c") items.emplace_back(std::complex<float>(static_cast<float>(re), im));
  }
  static const auto records = record_functions(std::make_index_sequence<11>());
  return records.at(items.size())(items);
}

TEST(FortranFormat, EveryListDirectedWriteRow) {
  const auto items = load_table(ICTVCF_TEST_DATA "/list-directed-items.tsv");
  const auto rows = load_table(ICTVCF_TEST_DATA "/list-directed-write.tsv");
  ASSERT_EQ(items.size(), rows.size());
  for (std::size_t k = 0; k < rows.size(); ++k) {
    SCOPED_TRACE("list-directed-write.tsv line " + std::to_string(rows[k].line) + ": " +
                 rows[k]["statement"]);
    ASSERT_EQ(items[k]["statement"], rows[k]["statement"]);
    EXPECT_EQ(write_items(items[k]["items"]), barred_records(rows[k]["output_records"]).at(0));
  }
}

}  // namespace
}  // namespace ictvcf
