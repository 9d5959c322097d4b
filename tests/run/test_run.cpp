#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstring>

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

TEST(Table, TextLayoutAndMirror) {
  ScratchDir dir;
  Vector<cplx> sqrtdone(3);
  std::vector<cplx> usqrt{{4.0, 0.0}, {0.0, 1.0}, {-1.0, 0.0}};
  std::vector<cplx> ft{{1.0, 0.0}, {2.0, 0.0}, {1.23456789e-6, 0.0}};
  std::vector<cplx> h = assemble(2, usqrt, ft, sqrtdone);
  ASSERT_EQ(h.size(), 5u);
  EXPECT_EQ(h[2], cplx(2.0, 0.0));  // sqrt(4) * 1
  EXPECT_NEAR(h[3].real(), std::sqrt(0.5) * 2.0, 1e-15);
  EXPECT_EQ(h[1], std::conj(h[3]));
  EXPECT_EQ(h[0], std::conj(h[4]));
  write_table("t.dat", false, 2, 20.0, h);
  const std::string text = read_file("t.dat");
  EXPECT_EQ(text.substr(0, text.find('\n') + 1),
            "     #time(fs)          IC_ft_Re(au)      IC_ft_Im(au)\n");
  EXPECT_NE(text.find("\n      -0.48378       0.141421356E+01  -0.141421356E+01\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n       0.00000       0.200000000E+01   0.000000000E+00\n"),
            std::string::npos);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6);
  EXPECT_FALSE(testing::exists("t.dat.part"));
}

TEST(Table, SingleTimePointAndThreeDigitExponents) {
  ScratchDir dir;
  Vector<cplx> sqrtdone(1);
  std::vector<cplx> h = assemble(0, {{1.0, 0.0}}, {{-1.5e-120, 0.0}}, sqrtdone);
  write_table("t.dat", false, 0, 20.0, h);
  EXPECT_EQ(read_file("t.dat"),
            "     #time(fs)          IC_ft_Re(au)      IC_ft_Im(au)\n"
            "       0.00000      -0.150000000-119   0.000000000E+00\n");
}

TEST(Table, BinaryRecords) {
  ScratchDir dir;
  std::vector<cplx> h{{1.0, -2.0}, {3.0, 0.0}, {1.0, 2.0}};
  write_table("t.bin", true, 1, 41.25, h);
  const std::string b = read_file("t.bin");
  ASSERT_EQ(b.size(), 2 * 16u + 3 * 24u);
  auto i32 = [&](std::size_t at) {
    std::int32_t v;
    std::memcpy(&v, b.data() + at, 4);
    return v;
  };
  auto f64 = [&](std::size_t at) {
    double v;
    std::memcpy(&v, b.data() + at, 8);
    return v;
  };
  EXPECT_EQ(i32(0), 8);
  std::int64_t nt;
  std::memcpy(&nt, b.data() + 4, 8);
  EXPECT_EQ(nt, 1);
  EXPECT_EQ(i32(12), 8);
  EXPECT_EQ(f64(20), 41.25);
  EXPECT_EQ(i32(32), 16);
  EXPECT_EQ(f64(36), 1.0);
  EXPECT_EQ(f64(44), -2.0);
  EXPECT_EQ(i32(52), 16);
  EXPECT_EQ(f64(b.size() - 12), 2.0);
}

TEST(Table, UnwritableDirectoryIsInputError) {
  ScratchDir dir;
  EXPECT_THROW(write_table("no/such/dir/t.dat", false, 0, 1.0, {{1.0, 0.0}}), IoError);
}

TEST(StampLine, Layout) {
  const std::string s = stamp_line("Begin:");
  ASSERT_EQ(s.size(), 31u);
  EXPECT_EQ(s.substr(0, 8), "Begin:  ");
  EXPECT_EQ(s[12], '-');
  EXPECT_EQ(s[18], ' ');
  EXPECT_EQ(s[27], '.');
  EXPECT_EQ(stamp_line("End:  ").substr(0, 8), "End:    ");
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
}

TEST(Run, NegativeTimeGridEndsBeforeAnyTable) {
  ScratchDir dir;
  testing::write_molecule(" dt = 10\n tmin = 100\n tmax = 50\n");
  testing::Result r = testing::run_exe("ic.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("nt = -5"), std::string::npos);
  EXPECT_FALSE(testing::exists("ft.dat"));
}

TEST(Run, ExitFlagStopsAfterReading) {
  ScratchDir dir;
  testing::write_molecule(" dt = 10\n tmax = 50\n");
  write_file("c.dat",
             " N 5\n Derivative Coupling x\n No Mode irrep\n -\n 1 1 A 1 0.0\n"
             " 2 2 A 1 0.04\n");
  testing::Result r = testing::run_exe("ic.inp");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "For n3all = .true. case, number of modes in nacme.out should be equal to n3\nExit!\n");
  EXPECT_FALSE(testing::exists("ft.dat"));
  const std::string log = read_file("ic.log");
  EXPECT_EQ(log.substr(log.size() - 23), "ELETYP is     GAUSSIAN\n");
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

TEST(Run, MissingCouplingFileIsInputError) {
  ScratchDir dir;
  testing::write_molecule(" dt = 10\n tmax = 20\n");
  std::filesystem::remove("c.dat");
  testing::Result r = testing::run_exe("ic.inp");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err.rfind("ictvcf: c.dat: ", 0), 0u) << r.err;
  EXPECT_FALSE(testing::exists("ft.dat"));
}

}  // namespace
}  // namespace ictvcf
