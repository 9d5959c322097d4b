#include <gtest/gtest.h>

#include "test_support.h"
#include "util/errors.h"
#include "util/files.h"
#include "util/memory.h"

namespace ictvcf {
namespace {

using testing::read_file;
using testing::ScratchDir;
using testing::write_file;

TEST(Units, FirstFreeUnitFrom100AndReuseAfterClose) {
  Units u;
  auto a = std::make_unique<UnitLease>(u);
  UnitLease b(u);
  UnitLease c(u);
  EXPECT_EQ(a->unit, 100);
  EXPECT_EQ(b.unit, 101);
  EXPECT_EQ(c.unit, 102);
  a.reset();
  EXPECT_EQ(get_free_fid(u), 100);
  UnitLease fixed(u, 45);  // the fixed units below 100 never shift the helpers' numbering
  EXPECT_EQ(get_free_fid(u), 100);
}

TEST(FileCopy, CopiesBytesAndCreatesTargetEvenWithoutSource) {
  ScratchDir dir;
  Units u;
  write_file("src", std::string("a\0b\r\nlast", 9));
  write_file("dst", "old content that is longer");
  file_copy(u, "src", "dst");
  EXPECT_EQ(read_file("dst"), std::string("a\0b\r\nlast", 9));
  write_file("empty", "");
  file_copy(u, "empty", "dst");
  EXPECT_EQ(read_file("dst"), "");
  file_copy(u, "missing", "dst2");
  EXPECT_TRUE(testing::exists("dst2"));
  EXPECT_EQ(read_file("dst2"), "");
  EXPECT_TRUE(u.open.empty());
}

TEST(FileDelete, RemovesFileAndIgnoresMissingOrDirectory) {
  ScratchDir dir;
  Units u;
  write_file("x", "1");
  file_delete(u, "x   ");  // trailing blanks are not part of the name
  EXPECT_FALSE(testing::exists("x"));
  file_delete(u, "x");
  std::filesystem::create_directory("d");
  file_delete(u, "d");
  EXPECT_TRUE(testing::exists("d"));
}

TEST(SearchWord, MatchesExactColumnsOnly) {
  TextFile f = text_file_from("f", {"    30  num of modes", "  BEGIN_OUTPUT_1", "BEGIN_OUTPUT_1"});
  std::string line;
  ASSERT_TRUE(search_word(f, 9, 20, "num of modes", line));  // found on the very first line
  EXPECT_EQ(f.next, 1u);
  EXPECT_EQ(line.size(), 200u);
  ASSERT_TRUE(search_word(f, 3, 16, "BEGIN_OUTPUT_1", line));
  EXPECT_EQ(f.next, 2u);
  // Only at other columns: not found, and the file is at its end.
  EXPECT_FALSE(search_word(f, 3, 16, "BEGIN_OUTPUT_1", line));
  EXPECT_TRUE(f.at_end());
  // A search that starts at the end of the file is an input/output error.
  EXPECT_THROW(search_word(f, 3, 16, "BEGIN_OUTPUT_1", line), IoError);
}

TEST(SearchWord, ShorterSideIsBlankPaddedAndCaseMatters) {
  TextFile f = text_file_from("f", {" derivative coupling", " Derivative Coupling   between"});
  std::string line;
  ASSERT_TRUE(search_word(f, 2, 20, "Derivative Coupling", line));
  EXPECT_EQ(f.next, 2u);
  TextFile g = text_file_from("g", {" Derivative Couplings"});
  EXPECT_TRUE(search_word(g, 2, 20, "Derivative Coupling", line));  // column 21 is outside
  TextFile h = text_file_from("h", {"Derivative Coupling"});        // starts in column 1
  EXPECT_FALSE(search_word(h, 2, 20, "Derivative Coupling", line));
}

TEST(Memory, OverflowAndLimit) {
  EXPECT_NO_THROW(check_allocation({{1000, 16}, {-5, 8}}));
  try {
    check_allocation({{1LL << 62, 16}});
    FAIL();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.status, 2);
    EXPECT_STREQ(e.what(), "Integer overflow when calculating the amount of memory to allocate");
  }
  try {
    check_allocation({{1LL << 40, 1024}});
    FAIL();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.status, 1);
    EXPECT_STREQ(e.what(), "Allocation would exceed memory limit");
  }
}

}  // namespace
}  // namespace ictvcf
