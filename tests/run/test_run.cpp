#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <ctime>

#include "run/run.h"
#include "run/table.h"
#include "support/small_molecule.h"
#include "test_support.h"
#include "util/errors.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;
using testing::read_file;
using testing::ScratchDir;
using testing::write_file;

// The stamp is the time it was taken, to the millisecond, in the layout
// (label,2X,I4,"-",I2.2,"-",I2.2," ",I2.2,":",I2.2,":",I2.2,".",I3.3).
TEST(StampLine, TheTimeToTheMillisecond) {
  auto ms = [](const timeval& tv) { return tv.tv_sec * 1000LL + tv.tv_usec / 1000; };
  for (int k = 0; k < 5; ++k) {
    timeval before{}, after{};
    gettimeofday(&before, nullptr);
    const std::string s = stamp_line(k % 2 ? "End:  " : "Begin:");
    gettimeofday(&after, nullptr);
    ASSERT_EQ(s.size(), 31u);
    EXPECT_EQ(s.substr(0, 8), k % 2 ? "End:    " : "Begin:  ");
    std::tm tm{};
    ASSERT_NE(strptime(s.c_str() + 8, "%Y-%m-%d %H:%M:%S.", &tm), nullptr) << s;
    tm.tm_isdst = -1;
    const long long stamp = mktime(&tm) * 1000LL + std::stoi(s.substr(28));
    EXPECT_LE(ms(before), stamp) << s;
    EXPECT_LE(stamp, ms(after)) << s;
    usleep(3700);
  }
}

TEST(CommandLine, HelpVersionAndMissingArgument) {
  ScratchDir dir;
  testing::Result r = testing::run_exe("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("usage: ictvcf INPUT"), std::string::npos);
  EXPECT_NE(r.out.find("dsfile"), std::string::npos);
  r = testing::run_exe("--version");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "ictvcf " ICTVCF_VERSION "\n");
  r = testing::run_exe("");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("usage:"), std::string::npos);
  r = testing::run_exe("missing.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("missing.inp"), std::string::npos);
  r = testing::run_exe("rate");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err.rfind("usage:", 0), 0u) << r.err;
}

TEST(Run, DebugStampsAndTableName) {
  ScratchDir dir;
  testing::write_molecule(" dt = 10\n tmax = 20\n debug = .true.\n");
  testing::Result r = testing::run_exe("ic.inp");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string log = read_file("ic.log");
  const std::size_t begin = log.find("\nELETYP is     GAUSSIAN\n\nBegin:  ");
  ASSERT_NE(begin, std::string::npos);
  EXPECT_NE(log.find("\n\n  nt :                    2\n ft.dat\n\nEnd:    ", begin),
            std::string::npos);
  EXPECT_EQ(log.substr(log.size() - 2), "\n\n");
  EXPECT_TRUE(testing::dot_files().empty());
}

TEST(Run, JunkInputFilesEndWithAClearError) {
  ScratchDir dir;
  std::string junk(3000, '\0');
  for (std::size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>((i * 7919) % 256);
  testing::write_file("junk.inp", junk);
  testing::Result r = testing::run_exe("junk.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("junk.inp"), std::string::npos);
  testing::write_file("empty.inp", "");
  r = testing::run_exe(
      "empty.inp");  // no block: defaults, then the unnamed data file cannot be opened
  EXPECT_EQ(r.status, 2);
  testing::write_file("long.inp", "&ic_tvcf\n temp = " + std::string(100000, '3') + "\n/\n");
  r = testing::run_exe("long.inp");
  EXPECT_NE(r.status, 0);
}

TEST(Run, FailedRunKeepsThePreviousTable) {
  ScratchDir dir;
  testing::write_molecule(" dt = 10\n tmax = 100\n");
  ASSERT_EQ(testing::run_exe("ic.inp").status, 0);
  const std::string before = testing::read_file("ft.dat");
  std::filesystem::create_directory("ft.dat.part");  // the temporary name cannot be created
  testing::Result r = testing::run_exe("ic.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(testing::read_file("ft.dat"), before);
}

}  // namespace
}  // namespace ictvcf
