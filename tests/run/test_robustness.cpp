// Inputs that must end in a described message or a clear error, never in a crash, a hang or a
// table that looks complete but is not.
#include <gtest/gtest.h>

#include "support/small_molecule.h"
#include "test_support.h"

namespace ictvcf {
namespace {

using testing::run_exe;
using testing::ScratchDir;
using testing::write_molecule;

bool table_written() { return testing::exists("ft.dat"); }

TEST(Robustness, TimeGridTooLargeForMemoryStopsBeforeAnyTable) {
  ScratchDir dir;
  write_molecule(" dt = 1\n tmax = 2000000000\n");
  testing::Result r = run_exe("ic.inp");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Allocation would exceed memory limit\n");
  EXPECT_FALSE(table_written());
}

TEST(Robustness, AbsurdModeCountsAreAllocationOrInputErrors) {
  ScratchDir dir;
  write_molecule(" dt = 10\n tmax = 20\n");
  std::string d = testing::read_file("d.dat");
  testing::write_file("d.dat", " 999999 " + d.substr(8));
  testing::Result r = run_exe("ic.inp");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Allocation would exceed memory limit\n");
  testing::write_file("d.dat", "     -5 " + d.substr(8));
  r = run_exe("ic.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("d.dat, line 1"), std::string::npos) << r.err;
  testing::write_file("d.dat", "      9 " + d.substr(8));  // more modes than the file lists
  r = run_exe("ic.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("d.dat"), std::string::npos) << r.err;
  EXPECT_FALSE(table_written());
}

// Values that overflow or are not numbers: the run ends normally, with warnings, and the table
// shows what the arithmetic gives.
void expect_non_finite_warning(const std::string& block, const std::string& freq1,
                               const std::string& row1) {
  ScratchDir dir;
  write_molecule(" dt = 10\n tmax = 100\n" + block, freq1, row1);
  testing::Result r = run_exe("ic.inp");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("values of the table are not finite"), std::string::npos) << r.err;
  EXPECT_TRUE(table_written());
}

// The zero-temperature limit and temperatures near it give a finite table.
TEST(Robustness, TemperatureZeroAndNearZero) {
  for (const char* temp : {" temp = 0\n", " temp = 1e-300\n", " temp = 1 K\n"}) {
    ScratchDir dir;
    write_molecule(std::string(" dt = 10\n tmax = 100\n") + temp);
    testing::Result r = run_exe("ic.inp");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err.find("not finite"), std::string::npos) << temp << r.err;
    const std::string table = testing::read_file("ft.dat");
    EXPECT_EQ(table.find("NaN"), std::string::npos) << temp;
    EXPECT_EQ(table.find("Infinity"), std::string::npos) << temp;
  }
}
TEST(Robustness, AbsurdFrequency) { expect_non_finite_warning("", "1e300", "1 0"); }
TEST(Robustness, NotANumberInTheDuschinskyMatrix) {
  expect_non_finite_warning("", "1500.0", "NaN 0");
}

TEST(Robustness, JunkInputFilesEndWithAClearError) {
  ScratchDir dir;
  std::string junk(3000, '\0');
  for (std::size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>((i * 7919) % 256);
  testing::write_file("junk.inp", junk);
  testing::Result r = run_exe("junk.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("junk.inp"), std::string::npos);
  testing::write_file("empty.inp", "");
  r = run_exe("empty.inp");  // no block: defaults, then the unnamed data file cannot be opened
  EXPECT_EQ(r.status, 2);
  testing::write_file("long.inp", "&ic_tvcf\n temp = " + std::string(100000, '3') + "\n/\n");
  r = run_exe("long.inp");
  EXPECT_NE(r.status, 0);
}

TEST(Robustness, FailedRunKeepsThePreviousTable) {
  ScratchDir dir;
  write_molecule(" dt = 10\n tmax = 100\n");
  ASSERT_EQ(run_exe("ic.inp").status, 0);
  const std::string before = testing::read_file("ft.dat");
  std::filesystem::create_directory("ft.dat.part");  // the temporary name cannot be created
  testing::Result r = run_exe("ic.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(testing::read_file("ft.dat"), before);
}

}  // namespace
}  // namespace ictvcf
