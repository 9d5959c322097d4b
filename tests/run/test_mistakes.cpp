// Natural mistakes and bad input, one row each of tests/data/mistakes.tsv: the molecule of
// support/small_molecule.h with lines added to its block and edits to its files. Each row's
// standard output and status are the described ones; a warning or an error naming the mistake
// appears on standard error, and nothing of it reaches standard output or the log.
#include <gtest/gtest.h>

#include "support/io_tables.h"
#include "support/small_molecule.h"
#include "test_support.h"

namespace ictvcf {
namespace {

using testing::read_file;

// "\n" in a field is a line end; "-" is an empty field.
std::string unescape(const std::string& s) {
  std::string r;
  for (std::size_t k = 0; s != "-" && k < s.size(); ++k)
    r += s.compare(k, 2, "\\n") == 0 ? (++k, '\n') : s[k];
  return r;
}

// "file:from=>to" edits joined by " && ": every `from` replaced; an empty `from` writes the file
// anew.
void apply_edits(std::string edits) {
  for (bool more = edits != "-"; more;) {
    const std::size_t next = edits.find(" && ");
    const std::string e = edits.substr(0, next);
    more = next != std::string::npos;
    if (more) edits.erase(0, next + 4);
    const std::size_t colon = e.find(':'), arrow = e.find("=>");
    const std::string file = e.substr(0, colon), to = unescape(e.substr(arrow + 2));
    const std::string from = unescape(e.substr(colon + 1, arrow - colon - 1));
    std::string text = from.empty() ? to : read_file(file);
    for (std::size_t k = 0; !from.empty() && (k = text.find(from, k)) != std::string::npos;
         k += to.size())
      text.replace(k, from.size(), to);
    testing::write_file(file, text);
  }
}

TEST(Mistakes, EachIsNamedOnStandardErrorAndNowhereElse) {
  for (const testing::TableRow& row : testing::load_table(ICTVCF_TEST_DATA "/mistakes.tsv")) {
    SCOPED_TRACE("mistakes.tsv line " + std::to_string(row.line) + ": " + row["mistake"]);
    testing::ScratchDir dir;
    testing::write_molecule(" dt = 10\n tmax = 50\n" + unescape(row["block"]) + "\n");
    apply_edits(row["edits"]);
    const testing::Result r = testing::run_exe("ic.inp");
    EXPECT_EQ(r.status, std::stoi(row["status"])) << r.err;
    const std::string out = unescape(row["stdout"]);
    EXPECT_EQ(r.out.substr(0, out.empty() ? std::string::npos : out.size()), out);
    if (row["stderr"] == "(none)")  // the other side of a warning's threshold
      EXPECT_EQ(r.err, "");
    else
      EXPECT_NE(r.err.find(row["stderr"]), std::string::npos) << r.err;
    // Every message is one line of its own, and none reaches the log; a failed run writes no
    // table, and a table with values that are not finite is announced.
    for (const std::string& line :
         testing::split(r.err.empty() ? "ictvcf: " : r.err.substr(0, r.err.size() - 1), '\n'))
      EXPECT_TRUE(line.rfind("ictvcf: ", 0) == 0 || line == "Allocation would exceed memory limit")
          << line;
    EXPECT_EQ(read_file("ic.log").find("warning"), std::string::npos);
    const std::string table = read_file("ft.dat");
    EXPECT_TRUE(r.status == 0 || table.empty());
    if (table.find("NaN") != std::string::npos || table.find("Infinity") != std::string::npos) {
      EXPECT_NE(r.err.find("not finite"), std::string::npos) << r.err;
    }
  }
}

// `ictvcf rate` reads the block and the data files the same way, with the same warnings.
TEST(Mistakes, TheRateCommandWarnsToo) {
  testing::ScratchDir dir;
  testing::write_molecule(
      " dt = 10\n tmax = 50\n ead = 1 eV\n isgauss = .true.\n fwhm = 1000 cm-1\n temp = 27 C\n");
  testing::Result r = testing::run_exe("rate ic.inp");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err.rfind("ictvcf: warning: ic.inp, line 12: temp = 27 C: unknown unit 'C'", 0), 0u)
      << r.err;
  testing::write_molecule(" dt = 10\n tmax = 50\n mode = 3\n");
  r = testing::run_exe("rate ic.inp");
  EXPECT_EQ(r.out, "mode should be 0,1,...,3n-6 ! Stop!\n");
  EXPECT_NE(r.err.find("nothing was computed or written"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace ictvcf
