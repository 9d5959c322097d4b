// Where a run keeps its temporary files: an input named with a directory part keeps them beside
// it and touches nothing else; runs started together in one directory do not mix them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

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
std::string table_of(const std::string& arg, const fs::path& from) {
  const fs::path back = fs::current_path();
  fs::current_path(from);
  const testing::Result r = run_exe(arg);
  EXPECT_EQ(r.status, 0) << arg << ": " << r.err;
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
  fs::current_path("sub");
  EXPECT_EQ(testing::dot_files(), (std::vector<std::string>{".ic.inp", ".ic.inp_tmp"}));
  fs::current_path(dir.path());
  expect_sentinels("p");
}

TEST(WorkFiles, RunsStartedTogetherInOneDirectoryKeepTheirOwnNames) {
  ScratchDir dir;
  testing::write_molecule("");
  for (int i = 1; i <= 4; ++i) {  // four inputs that differ in temperature and output names
    const std::string n = std::to_string(i), temp = std::to_string(100 * (i + 1));
    write_file("in" + n + ".inp", "&ic_tvcf\n dsfile = d.dat\n coulfile = c.dat\n ftfile = ft" + n +
                                      ".dat\n logfile = log" + n + "\n n3all = .true.\n temp = " +
                                      temp + "\n dt = 10\n tmax = 400\n/\n");
  }
  std::string alone[5];
  for (int i = 1; i <= 4; ++i) {
    const std::string n = std::to_string(i);
    ASSERT_EQ(run_exe("in" + n + ".inp").status, 0);
    alone[i] = read_file("ft" + n + ".dat");
    fs::remove("ft" + n + ".dat");
  }
  for (int round = 0; round < 3; ++round) {
    const std::string cmd = std::string("for i in 1 2 3 4; do ( '") + ICTVCF_EXE +
                            "' in$i.inp >out$i 2>err$i; echo $? >rc$i ) & done; wait";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    for (int i = 1; i <= 4; ++i) {
      const std::string n = std::to_string(i);
      EXPECT_EQ(read_file("rc" + n), "0\n") << read_file("err" + n);
      EXPECT_EQ(read_file("out" + n), "");
      EXPECT_EQ(read_file("ft" + n + ".dat"), alone[i]) << "run " << n;
      const std::string log = read_file("log" + n);
      EXPECT_NE(log.find("  ftfile                         = ft" + n + ".dat\n"),
                std::string::npos);
      EXPECT_EQ(log.find("temp = " + std::to_string(100 * (i + 1))), log.rfind("temp = "));
      EXPECT_EQ(log.substr(log.size() - 9), " ft" + n + ".dat\n");
    }
    EXPECT_TRUE(testing::dot_files().empty());
  }
}

// While another process holds the lock, a run waits, says so, and has touched nothing.
TEST(WorkFiles, ARunWaitsForTheLockAndSaysSo) {
  ScratchDir dir;
  testing::write_molecule(" dt = 10\n tmax = 50\n");
  const int fd = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX), 0);
  const std::string cmd =
      std::string("( '") + ICTVCF_EXE + "' ic.inp >out 2>err; echo $? >rc.part; mv rc.part rc ) &";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  auto wait_for = [](const char* file, const char* text) {
    for (int k = 0; k < 600 && read_file(file).find(text) == std::string::npos; ++k)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return read_file(file);
  };
  EXPECT_NE(wait_for("err", "waiting").find("ictvcf: warning: another run is using the work files"),
            std::string::npos);
  EXPECT_FALSE(exists("ic.log"));
  EXPECT_TRUE(testing::dot_files().empty());
  flock(fd, LOCK_UN);
  ::close(fd);
  EXPECT_EQ(wait_for("rc", "\n"), "0\n");
  EXPECT_TRUE(exists("ft.dat"));
  const std::string err = read_file("err");
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
}

}  // namespace
}  // namespace ictvcf
