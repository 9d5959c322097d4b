// Where a run keeps its temporary files: an input named with a directory part keeps them beside
// it and touches nothing else; runs started together in one directory do not mix them.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/small_molecule.h"
#include "test_support.h"

namespace ictvcf {
namespace {

namespace fs = std::filesystem;
using testing::exists;
using testing::read_file;
using testing::run_exe;
using testing::ScratchDir;
using testing::write_file;

// The files a run in the parent directory must leave as they are: the names a run of "ic.inp"
// would use there.
const char* const kSentinels[] = {"ic.inp", ".ic.inp", "ic.inp_tmp", ".ic.inp_tmp"};

void write_sentinels(const fs::path& dir) {
  for (const char* n : kSentinels) write_file((dir / n).string(), std::string("keep ") + n);
}

void expect_sentinels(const fs::path& dir) {
  for (const char* n : kSentinels)
    EXPECT_EQ(read_file((dir / n).string()), std::string("keep ") + n) << dir / n;
}

// Runs the molecule in p/sub as `arg` from the directory `from` and returns the table.
std::string table_of(const std::string& arg, const fs::path& from, int status = 0) {
  const fs::path back = fs::current_path();
  fs::current_path(from);
  const testing::Result r = run_exe(arg);
  EXPECT_EQ(r.status, status) << arg << ": " << r.err;
  std::string table = exists("ft.dat") ? read_file("ft.dat") : "";
  fs::remove("ft.dat");
  fs::current_path(back);
  return table;
}

TEST(WorkFiles, InputWithADirectoryPartKeepsItsTemporaryFilesBesideIt) {
  ScratchDir dir;
  fs::create_directories("p/sub");
  fs::current_path("p/sub");
  testing::write_molecule(" dt = 10\n tmax = 50\n");
  fs::current_path(dir.path());
  write_sentinels("p");

  const std::string plain = table_of("ic.inp", "p/sub");
  ASSERT_FALSE(plain.empty());
  const std::string log = read_file("p/sub/ic.log");
  EXPECT_EQ(table_of("./ic.inp", "p/sub"), plain);
  EXPECT_EQ(read_file("p/sub/ic.log"), log);
  EXPECT_EQ(table_of((dir.path() / "p/sub/ic.inp").string(), "p/sub"), plain);
  EXPECT_EQ(table_of("../sub/ic.inp", "p/sub"), plain);
  fs::current_path("p/sub");
  EXPECT_TRUE(testing::dot_files().empty());
  fs::current_path(dir.path());
  expect_sentinels("p");

  // From the parent directory, with the data files named from there.
  std::string input = read_file("p/sub/ic.inp");
  for (const char* f : {"d.dat", "c.dat"}) input.replace(input.find(f), 0, "sub/");
  write_file("p/sub/ic.inp", input);
  EXPECT_EQ(table_of("sub/ic.inp", "p"), plain);
  expect_sentinels("p");
  fs::current_path("p");
  EXPECT_EQ(testing::dot_files(), (std::vector<std::string>{".ic.inp", ".ic.inp_tmp"}));
  fs::current_path(dir.path());
}

TEST(WorkFiles, BadParameterLeavesTheBlockFilesBesideTheInput) {
  ScratchDir dir;
  fs::create_directories("p/sub");
  write_file("p/sub/ic.inp", "&ic_tvcf\n temp = 300 K\n tmaxx = 10\n/\n");
  write_sentinels("p");
  fs::current_path("p");
  const testing::Result r = run_exe("sub/ic.inp");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "  Error for input parameter:\n\n &input\n  tmaxx = 10\n /\n");
  // The echo stays in the working directory, as for a plain name; the sentinels are untouched.
  EXPECT_EQ(testing::dot_files(),
            (std::vector<std::string>{".ic.inp", ".ic.inp_tmp", ".input.convert"}));
  fs::current_path(dir.path());
  expect_sentinels("p");
  EXPECT_TRUE(exists("p/sub/.ic.inp"));
  EXPECT_TRUE(exists("p/sub/.ic.inp_tmp"));
  EXPECT_FALSE(exists("p/sub/.input.convert"));
}

}  // namespace
}  // namespace ictvcf
