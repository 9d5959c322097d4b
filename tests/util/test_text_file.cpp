#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "util/errors.h"
#include "util/text_file.h"

namespace ictvcf {
namespace {

namespace fs = std::filesystem;

class TextFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ =
        fs::temp_directory_path() /
        ("ictvcf_text_file_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
         "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::vector<std::string> records_of(const std::string& bytes) {
    const std::string path = (dir_ / "f.dat").string();
    std::ofstream(path, std::ios::binary) << bytes;
    return open_text_file(path).records;
  }

  fs::path dir_;
};

using Records = std::vector<std::string>;

TEST_F(TextFileTest, SplitsIntoRecords) {
  EXPECT_EQ(records_of(""), Records{});
  EXPECT_EQ(records_of("\n"), Records{""});
  EXPECT_EQ(records_of("a\nb\n"), (Records{"a", "b"}));
  EXPECT_EQ(records_of("a\n\nb"), (Records{"a", "", "b"}));  // last line without a newline
  EXPECT_EQ(records_of("a\r\nb\r\n\r\n"), (Records{"a", "b", ""}));
  // Only the CR of a CR LF line end goes; others are data.
  EXPECT_EQ(records_of("a\r\r\nb\rc\r"), (Records{"a\r", "b\rc\r"}));
  EXPECT_EQ(records_of(std::string("x\0y\n", 4)), Records{std::string("x\0y", 3)});
}

TEST_F(TextFileTest, MissingFileOrDirectoryIsAnIoError) {
  for (const std::string& name : {(dir_ / "none.dat").string(), dir_.string()}) {
    try {
      open_text_file(name);
      ADD_FAILURE() << "no error for " << name;
    } catch (const IoError& e) {
      EXPECT_EQ(e.file, name);
      EXPECT_EQ(e.line, 0);
      EXPECT_STREQ(e.what(), "cannot open the file (expected an existing, readable file)");
    }
  }
}

TEST(TextFile, ReadRecordCutsPadsAndStopsAtTheEnd) {
  TextFile f = text_file_from("mem", {"abcdef", "xy"});
  std::string line = "keep";
  EXPECT_TRUE(read_record(f, line, 4));
  EXPECT_EQ(line, "abcd");
  EXPECT_EQ(f.line_of_last(), 1);
  EXPECT_TRUE(read_record(f, line, 4));
  EXPECT_EQ(line, "xy  ");
  EXPECT_FALSE(read_record(f, line, 4));
  EXPECT_EQ(line, "xy  ");
  f.rewind();
  EXPECT_TRUE(read_record(f, line, 0));
  EXPECT_EQ(line, "");
}

}  // namespace
}  // namespace ictvcf
