#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "support/io_tables.h"
#include "util/list_read.h"
#include "util/text_file.h"

namespace ictvcf {
namespace {

using testing::barred_records;
using testing::hex_double;
using testing::iostat;
using testing::load_table;
using testing::rtrim;
using testing::split;
using testing::without_decimals;

const std::string kData = ICTVCF_TEST_DATA;

// list-directed-read.tsv and -extra.tsv: the records are read by one or more READs ("i,d;l" is two
// READs), each item into a variable holding a known value first, so that "unchanged" can be told.
// Logicals have no spare value: the case runs twice, starting from F and from T.
struct Outcome {
  std::vector<std::vector<std::string>> shown;  // per READ, per item
  LdStatus status = LdStatus::ok;
  std::string message;
};

Outcome read_case(const testing::TableRow& row, bool logical_start) {
  TextFile f = text_file_from("case.dat", barred_records(row["records"]));
  Outcome out;
  for (const std::string& read : split(row["items"], ';')) {
    ListReader rd(f);
    out.shown.emplace_back();
    for (const std::string& it : split(read, ',')) {
      LdStatus s;
      std::int64_t i = -999;
      double d = -999;
      bool l = logical_start;
      std::string text = "UNSET", &shown = out.shown.back().emplace_back();
      if (it == "i") {
        std::int32_t v = -999;
        s = rd.read(v);
        i = v;
      } else if (it == "i8") {
        s = rd.read(i);
      } else if (it == "d") {
        s = rd.read(d);
      } else if (it == "l") {
        s = rd.read(l);
      } else {
        text.resize(std::stoul(it.substr(1)), ' ');
        s = rd.read_text(text, text.size());
      }
      if (it[0] == 'i')
        shown = i == -999 ? "unchanged" : std::to_string(i);
      else if (it == "d")
        shown = std::bit_cast<std::uint64_t>(d) == std::bit_cast<std::uint64_t>(-999.0)
                    ? "unchanged"
                    : hex_double(d);
      else if (it == "l")
        shown.assign(1, l ? 'T' : 'F');
      else
        shown = rtrim(text) == "UNSET" ? "unchanged" : std::string("|").append(rtrim(text)) + "|";
      // Once an item fails, every later item of the READ reports the same failure.
      if (out.status != LdStatus::ok) {
        EXPECT_EQ(s, out.status) << "item " << it;
      }
      if (out.status == LdStatus::ok) out.status = s;
    }
    out.message = rd.message();
    if (out.status != LdStatus::ok) break;
  }
  return out;
}

TEST(ListDirectedRead, EveryRowOfTheTables) {
  for (const char* file : {"/list-directed-read.tsv", "/list-directed-read-extra.tsv"})
    for (const auto& row : load_table(kData + file)) {
      SCOPED_TRACE(std::string(file) + " line " + std::to_string(row.line) + ": " + row["items"] +
                   " " + row["records"] + " (" + row["note"] + ")");
      const Outcome from_f = read_case(row, false), from_t = read_case(row, true);
      std::string shown;
      for (std::size_t r = 0; r < from_f.shown.size(); ++r)
        for (std::size_t k = 0; k < from_f.shown[r].size(); ++k) {
          std::string a = from_f.shown[r][k];
          const std::string& b = from_t.shown[r][k];
          if (a != b) a = (a == "F" && b == "T") ? "unchanged" : "(differs)";
          shown.append(k > 0 ? ", " : r > 0 ? "; " : "").append(a);
        }
      EXPECT_EQ(shown, without_decimals(row["values_read"]));
      EXPECT_EQ(iostat(from_f.status), std::stoi(row["iostat"]));
      if (from_f.status != LdStatus::ok) {
        EXPECT_EQ(from_f.message, row["iomsg"]);
      }
    }
}

// formatted-read.tsv: one record through Fw.d; a short record is padded with blanks, a long one
// gives its first w characters.

TEST(FormattedRead, EveryRowOfTheTable) {
  const auto rows = load_table(kData + "/formatted-read.tsv");
  ASSERT_GE(rows.size(), 15u);
  for (const auto& row : rows) {
    SCOPED_TRACE("formatted-read.tsv line " + std::to_string(row.line) + ": " + row["descriptor"] +
                 " " + row["record"] + " (" + row["note"] + ")");
    const std::string& desc = row["descriptor"];
    ASSERT_EQ(desc[0], 'F');
    const std::size_t dot = desc.find('.');
    const std::size_t w = std::stoul(desc.substr(1, dot - 1));
    const int d = std::stoi(desc.substr(dot + 1));
    std::string field = barred_records(row["record"]).at(0).substr(0, w);
    field.resize(w, ' ');

    double v = -999;
    const LdStatus s = read_f(field, d, v);
    const std::string shown =
        std::bit_cast<std::uint64_t>(v) == std::bit_cast<std::uint64_t>(-999.0) ? "unchanged"
                                                                                : hex_double(v);
    EXPECT_EQ(shown, without_decimals(row["value_read"]));
    EXPECT_EQ(iostat(s), std::stoi(row["iostat"]));
  }
}

// What the tables cannot show: where the next READ starts, and the line it reports.

TEST(ListRead, EachReadTakesWholeRecordsAndReportsItsLine) {
  TextFile f = text_file_from("in.dat", {"1 2 3", "", "  ", "4", "5 x", "6"});
  std::int32_t a = 0, b = 0;
  {
    ListReader rd(f);  // one item: the rest of "1 2 3" is discarded when the READ ends
    EXPECT_EQ(rd.read(a), LdStatus::ok);
  }
  EXPECT_EQ(f.next, 1u);
  {
    ListReader rd(f);  // skips the empty and blank records, then fails on line 5
    EXPECT_EQ(rd.read(a), LdStatus::ok);
    EXPECT_EQ(rd.read(b), LdStatus::ok);
    EXPECT_EQ(rd.read(b), LdStatus::bad_value);
    EXPECT_EQ(rd.message(), "Bad integer for item 3 in list input");
    EXPECT_EQ(rd.line(), 5);
  }
  EXPECT_EQ(a, 4);
  EXPECT_EQ(b, 5);
  EXPECT_EQ(f.line_of_last(), 5);
  {
    ListReader rd(f);  // a READ of no items still takes one record
  }
  EXPECT_EQ(f.next, 6u);
  ListReader rd(f);
  EXPECT_EQ(rd.read(a), LdStatus::end_of_file);
  EXPECT_EQ(rd.message(), "End of file");
  rd.finish();
  EXPECT_EQ(f.next, 6u);
}

}  // namespace
}  // namespace ictvcf
