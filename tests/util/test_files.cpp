// Text files as records, the end-of-file errors and their line numbers, and the memory check
// before large allocations.
#include <gtest/gtest.h>

#include "test_support.h"
#include "util/errors.h"
#include "util/files.h"
#include "util/memory.h"
#include "util/read_checks.h"

namespace ictvcf {
namespace {

using Records = std::vector<std::string>;

TEST(TextFile, SplitsIntoRecordsDroppingOnlyTheCrOfCrLf) {
  auto records = [](const std::string& bytes) { return text_file_from_bytes("f", bytes).records; };
  EXPECT_EQ(records(""), Records{});
  EXPECT_EQ(records("a\n\nb"), (Records{"a", "", "b"}));  // last line without a newline
  EXPECT_EQ(records("a\r\nb\r\n\r\n"), (Records{"a", "b", ""}));
  EXPECT_EQ(records("a\r\r\nb\rc\r"), (Records{"a\r", "b\rc\r"}));
  EXPECT_EQ(records(std::string("x\0y\n", 4)), Records{std::string("x\0y", 3)});
  testing::ScratchDir dir;
  testing::write_file("f.dat", "a\r\nb");
  EXPECT_EQ(open_text_file("f.dat").records, (Records{"a", "b"}));
  for (const char* name : {"none.dat", "."})
    EXPECT_THROW_MSG(open_text_file(name), IoError,
                     std::string("ictvcf: ") + name +
                         ": cannot open the file (expected an existing, readable file)");
}

// A file that ends where a record is required names the line that is missing: one past the last.
TEST(EndOfFile, ErrorsNameTheMissingLine) {
  TextFile f = text_file_from("d.dat", {"one", "two"});
  f.next = 2;
  try {
    require_record(f, "the label line");
    FAIL();
  } catch (const IoError& e) {
    EXPECT_EQ(describe(e), "ictvcf: d.dat, line 3: expected the label line (end of file)");
  }
  std::string line;
  try {
    search_word(f, 1, 3, "one", line);
    FAIL();
  } catch (const IoError& e) {
    EXPECT_EQ(describe(e), "ictvcf: d.dat, line 3: end of file while searching for 'one'");
  }
}

// A size that overflows is refused with status 2 (the memory limit, status 1, is a row of
// data/mistakes.tsv).
TEST(Memory, SizeThatOverflowsIsRefused) {
  EXPECT_NO_THROW(check_allocation({{1000, 16}, {-5, 8}}));
  try {
    check_allocation({{1LL << 62, 16}});
    FAIL();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.status, 2);
    EXPECT_STREQ(e.what(), "Integer overflow when calculating the amount of memory to allocate");
  }
}

}  // namespace
}  // namespace ictvcf
