#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "input/namelist.h"
#include "support/io_tables.h"
#include "util/text_file.h"

namespace ictvcf {
namespace {

using testing::barred_records;
using testing::hex_double;
using testing::iostat;
using testing::load_table;
using testing::rtrim;
using testing::without_decimals;

const std::string kData = ICTVCF_TEST_DATA;

// The group of the table: ival, temp, flag, dsfile (200 characters), tag (10 characters).
struct Group {
  std::int32_t ival = -999;
  double temp = -999;
  bool flag = false;
  std::string dsfile = padded("UNSET", 200);
  std::string tag = padded("UNSET", 10);

  static std::string padded(std::string s, std::size_t n) {
    s.resize(n, ' ');
    return s;
  }
  std::vector<NmlVar> vars() {
    return {{"ival", NmlVar::integer, &ival},
            {"temp", NmlVar::real, &temp},
            {"flag", NmlVar::logical, &flag},
            {"dsfile", NmlVar::text, &dsfile, 200},
            {"tag", NmlVar::text, &tag, 10}};
  }
};

// "<P200:text>" is the text blank-padded to 200 characters, "<Rn:c>" n copies of c.
std::string expand(const std::string& s) {
  std::string out;
  std::size_t i = 0;
  while (i < s.size()) {
    const std::size_t lt = s.find('<', i);
    if (lt == std::string::npos) {
      out += s.substr(i);
      break;
    }
    out += s.substr(i, lt - i);
    const std::size_t gt = s.find('>', lt);
    const std::size_t colon = s.find(':', lt);
    const std::string what = s.substr(lt + 1, colon - lt - 1);
    const std::string arg = s.substr(colon + 1, gt - colon - 1);
    if (what == "P200")
      out += Group::padded(arg, 200);
    else
      out += std::string(std::stoul(what.substr(1)), arg.at(0));
    i = gt + 1;
  }
  return out;
}

// namelist.tsv and namelist-extra.tsv, with the rows of namelist-own-rule.tsv in place of the
// runtime's where this program's rule for unquoted text differs from the runtime's.
TEST(Namelist, EveryRowOfTheTables) {
  std::map<std::string, testing::TableRow> own_rule;
  for (const auto& row : load_table(kData + "/namelist-own-rule.tsv"))
    own_rule[row["records"]] = row;
  std::set<std::string> own_rule_used;
  for (const char* file : {"/namelist.tsv", "/namelist-extra.tsv"})
    for (const auto& row : load_table(kData + file)) {
      SCOPED_TRACE(std::string(file) + " line " + std::to_string(row.line) + ": " + row["records"] +
                   " (" + row["note"] + ")");
      std::vector<std::string> records;
      const bool raw = row["note"].rfind("raw:", 0) == 0;
      if (!raw) records.push_back(" &input");
      for (const std::string& r : barred_records(row["records"])) records.push_back(expand(r));
      if (!raw) records.push_back(" /");

      const bool own = own_rule.count(row["records"]) > 0;
      if (own) own_rule_used.insert(row["records"]);
      const testing::TableRow& want = own ? own_rule.at(row["records"]) : row;

      // A logical has no spare value to tell "unchanged": run from F and from T.
      Group g[2];
      g[1].flag = true;
      NmlResult res[2];
      for (int k = 0; k < 2; ++k) {
        TextFile f = text_file_from("input.nml", records);
        auto vars = g[k].vars();
        res[k] = read_namelist(f, "input", vars);
      }
      EXPECT_EQ(g[0].dsfile.size(), 200u);
      EXPECT_EQ(g[0].tag.size(), 10u);
      std::string shown;
      if (g[0].ival != -999) shown += " ival=" + std::to_string(g[0].ival);
      if (std::bit_cast<std::uint64_t>(g[0].temp) != std::bit_cast<std::uint64_t>(-999.0))
        shown += " temp=" + hex_double(g[0].temp);
      if (g[0].flag == g[1].flag) shown += g[0].flag ? " flag=T" : " flag=F";
      if (rtrim(g[0].dsfile) != "UNSET") shown += " dsfile=|" + rtrim(g[0].dsfile) + "|";
      if (rtrim(g[0].tag) != "UNSET") shown += " tag=|" + g[0].tag + "|";
      shown = shown.empty() ? "nothing assigned" : shown.substr(1);

      EXPECT_EQ(shown, without_decimals(want["assigned"]));
      EXPECT_EQ(iostat(res[0].status), std::stoi(want["iostat"]));
      if (res[0].status != LdStatus::ok) {
        EXPECT_EQ(res[0].message, want["iomsg"]);
      }
    }
  EXPECT_EQ(own_rule_used.size(), own_rule.size()) << "a row of this program's rule is gone";
}

}  // namespace
}  // namespace ictvcf
