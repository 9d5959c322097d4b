#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "test_support.h"
#include "util/errors.h"
#include "vibronic/read_dush.h"

namespace ictvcf {
namespace {

using testing::ScratchDir;
using testing::write_file;

const double kCm = 219474.6307;

// A block-layout file for n3 = 8 (two modes once the six translations and rotations are
// dropped); `modes` holds the two mode records, `matrix` replaces the two matrix blocks.
std::string layout1(const std::string& modes, const std::string& matrix = "") {
  std::string s = "title\n     8  num of modes\n  BEGIN_OUTPUT_1\n";
  for (int k = 0; k < 9; ++k) s += " skipped\n";
  s += modes;
  if (!matrix.empty()) return s + matrix;
  for (int b = 1; b <= 2; ++b) {
    s += "  BEGIN_DUSH_DATA_" + std::to_string(b) + "\n heading\n";
    for (int i = 1; i <= 8; ++i) {
      s += " row\n";
      for (int j = 1; j <= 8; ++j) {
        double v = i == j ? 1.0 : 0.0;
        if (i == 7 && j == 8) v = b == 1 ? 0.1 : 0.2;
        s += ' ';
        s += std::to_string(v);
      }
      s += "\n";
    }
  }
  return s;
}

const std::string kModes =
    " 1 m A 500.0 10.0 | 0.1 1.0 | -480.0 9.0 | 0.2 2.0 8 8\n"
    " 2 m A 1000.0 -12.0 | 0.1 1.0 | 990.0 -11.0 | 0.2 2.0 7 7\n";

ParameterSet params() {
  ParameterSet p;
  p.dsfile = pad("dush.dat", 200);
  return p;
}

std::string run_reader(const ParameterSet& p, DushinData& v) {
  std::ostringstream log;
  readdushinout(p, v, log);
  return log.str();
}

TEST(ReadDush, Layout1ModesAndMatrices) {
  ScratchDir dir;
  write_file("dush.dat", layout1(kModes));
  DushinData v;
  run_reader(params(), v);
  ASSERT_EQ(v.n3, 8);
  ASSERT_EQ(v.nmode, 2);
  EXPECT_DOUBLE_EQ(v.omegae(1), 480.0 / kCm);  // a negative frequency counts as real
  EXPECT_EQ(v.order(1, 1), 8);
  EXPECT_EQ(v.order(2, 1), 7);
  EXPECT_EQ(v.s1(1, 2), 0.1);  // rows and columns 7, 8 of the file
  EXPECT_EQ(v.s2(1, 2), 0.2);
  EXPECT_EQ(v.s(1, 2), 0.2);  // dush12 = 2 by default
  EXPECT_EQ(v.d(2), -11.0);   // d12 = 2 by default
  EXPECT_DOUBLE_EQ(v.hr(1, 1), 0.5 * (500.0 / kCm) * 100.0);
  EXPECT_TRUE(v.iscal(1, 2) && v.iscal(2, 1));
}

TEST(ReadDush, DushinFalseLeavesIdentityAndNoMatrixNeeded) {
  ScratchDir dir;
  write_file("dush.dat", layout1(kModes, "no matrices here\n"));
  ParameterSet p = params();
  p.dushin = false;
  p.mode = 2;
  DushinData v;
  run_reader(p, v);
  EXPECT_EQ(v.s(1, 1), 1.0);
  EXPECT_EQ(v.s(1, 2), 0.0);
  EXPECT_FALSE(v.iscal(1, 1));
  EXPECT_TRUE(v.iscal(2, 2));
}

// How reading the file ends: "" when it is read, a described stop's message, or the line and
// what was expected of an input/output error.
std::string outcome(const std::string& file, const ParameterSet& p) {
  ScratchDir dir;
  write_file("dush.dat", file);
  DushinData v;
  try {
    run_reader(p, v);
  } catch (const StopRun& e) {
    return std::to_string(e.status) + ": " + e.out;
  } catch (const IoError& e) {
    return "line " + std::to_string(e.line) + ": " + e.what();
  }
  return "";
}

TEST(ReadDush, MissingMarkersShortFilesAndBadValues) {
  const std::string full = layout1(kModes);
  ParameterSet mode_low = params(), mode_high = params(), missing = params();
  mode_low.mode = -1;
  mode_high.mode = 3;
  missing.dsfile = pad("missing.dat", 200);
  const std::tuple<std::string, ParameterSet, std::string> cases[] = {
      // The count must sit in columns 1-8, the markers from column 3.
      {"title\n8 num of modes\n", params(), "0: Can not find 'num of modes' in dushin file!\n"},
      {"     8  num of modes\nBEGIN_OUTPUT_1\n", params(),
       "0: Can not find 'BEGIN_OUTPUT_1' in dushin file!\n"},
      {layout1(kModes, "END\n"), params(), "0: Can not find 'BEGIN_DUSH_DATA_1' in dushin file!\n"},
      {full.substr(0, full.find("  BEGIN_DUSH_DATA_2")) + "  END\n", params(),
       "0: Can not find 'BEGIN_DUSH_DATA_2' in dushin file!\n"},
      {full, mode_low, "0: mode should be 0,1,...,3n-6 ! Stop!\n"},
      {full, mode_high, "0: mode should be 0,1,...,3n-6 ! Stop!\n"},
      {"", params(), "line 1: end of file while searching for 'num of modes'"},
      {"     6  num of modes\n", params(),
       "line 1: expected a molecule with at least one vibrational mode, but 'num of modes' gives "
       "6"},
      {"     8  num of modes\n  BEGIN_OUTPUT_1\n h\n", params(),
       "line 4: expected the header lines after BEGIN_OUTPUT_1 (end of file)"},
      {layout1(" 1 m A 500.0 ten | 0.1 1.0 | 480.0 9.0 | 0.2 2.0 8 8\n"), params(),
       "line 13: expected the record of mode 1: the state-1 displacement (Bad real number in item "
       "5"},
      {full.substr(0, full.find(" row\n") + 5), params(),
       "line 17: expected value 1 of 8 in row 1 of the first Duschinsky matrix (end of file)"},
      {"", missing, "line 0: cannot open the file"},
  };
  for (const auto& [file, p, expected] : cases)
    EXPECT_EQ(outcome(file, p).substr(0, expected.size()), expected);
}

// The adjustments of the modes as read (first mode: 500 and 480 cm-1, D 10 and 9): samefreq and
// samed copy one state's value to the other (samemode 1: state 1's, 2: state 2's, 0: the mean),
// freqscale and dscale multiply both states'.
TEST(ReadDush, ModeAdjustments) {
  struct Row {
    bool samefreq, samed;
    int samemode;
    double freqscale, dscale, w1, w2, d1, d2;
  };
  const Row rows[] = {
      {true, false, 1, 1.0, 1.0, 500.0, 500.0, 10.0, 9.0},
      {true, false, 2, 1.0, 1.0, 480.0, 480.0, 10.0, 9.0},
      {true, false, 0, 1.0, 1.0, 490.0, 490.0, 10.0, 9.0},
      {false, true, 1, 1.0, 1.0, 500.0, 480.0, 10.0, 10.0},
      {false, true, 2, 1.0, 1.0, 500.0, 480.0, 9.0, 9.0},
      {false, true, 0, 1.0, 1.0, 500.0, 480.0, 9.5, 9.5},
      {false, false, 0, 0.9, 2.0, 450.0, 432.0, 20.0, 18.0},
  };
  for (const Row& r : rows) {
    ScratchDir dir;
    write_file("dush.dat", layout1(kModes));
    ParameterSet p = params();
    p.samefreq = r.samefreq;
    p.samed = r.samed;
    p.samemode = r.samemode;
    p.freqscale = r.freqscale;
    p.dscale = r.dscale;
    DushinData v;
    run_reader(p, v);
    SCOPED_TRACE(::testing::Message() << "samefreq " << r.samefreq << " samed " << r.samed
                                      << " samemode " << r.samemode);
    EXPECT_NEAR(v.omegag(1) * kCm, r.w1, 1e-9);
    EXPECT_NEAR(v.omegae(1) * kCm, r.w2, 1e-9);
    EXPECT_NEAR(v.d1(1), r.d1, 1e-12);
    EXPECT_NEAR(v.d2(1), r.d2, 1e-12);
  }
}

}  // namespace
}  // namespace ictvcf
