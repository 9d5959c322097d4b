#include <gtest/gtest.h>

#include <sstream>

#include "coupling/getrlk.h"
#include "test_support.h"
#include "util/errors.h"

namespace ictvcf {
namespace {

// Three modes (n3 = 9) whose source numbers are 8, 9, 7: mode 1 of the store is mode 2 of the
// source list (after the six translations and rotations), and so on.
DushinData three_modes(bool n3all = false) {
  DushinData v;
  v.n3 = n3all ? 3 : 9;
  v.nmode = 3;
  allocatedushindata(v, 0);
  const int base = n3all ? 0 : 6;
  v.order(1, 1) = base + 2;
  v.order(2, 1) = base + 3;
  v.order(3, 1) = base + 1;
  return v;
}

std::string run(ParameterSet& p, DushinData& v, const std::vector<std::string>& lines) {
  TextFile f = text_file_from("nacme.dat", lines);
  std::ostringstream log;
  getrlk(p, v, f, 0, log);
  return log.str();
}

TEST(Getrlk, NewLayoutGathersThroughOrderAndFormsProducts) {
  ParameterSet p;
  DushinData v = three_modes();
  std::string log = run(p, v,
                        {"nacme 3", " Derivative Coupling vector", " mode sym irrep", " ----",
                         " 1 A x y 0.01", " 2 A x y -0.02", " 3 A x y 0.03"});
  EXPECT_EQ(log, "ELETYP is     GAUSSIAN\n");
  EXPECT_EQ(v.rif(1), -0.02);
  EXPECT_EQ(v.rif(2), 0.03);
  EXPECT_EQ(v.rif(3), 0.01);
  EXPECT_EQ(v.r(1, 2), -0.02 * 0.03);
  EXPECT_EQ(v.r(2, 1), v.r(1, 2));
  EXPECT_EQ(p.is_exit, 0);
}

TEST(Getrlk, NewLayoutWithAllCoordinatesSkipsSix) {
  ParameterSet p;
  p.electyp = pad("a_long_electyp_name", 200);
  DushinData v = three_modes();
  std::vector<std::string> lines{"NMODE 9 coordinates", " Derivative Coupling vector", " a b irrep",
                                 " ---"};
  for (int k = 1; k <= 6; ++k) lines.push_back(" t t t t 99.0");
  for (const char* c : {" m m m m 0.1", " m m m m 0.2", " m m m m 0.3"}) lines.push_back(c);
  std::string log = run(p, v, lines);
  EXPECT_EQ(log, "ELETYP is a_long_elect\n");
  EXPECT_DOUBLE_EQ(v.rif(1), 0.2);
  EXPECT_DOUBLE_EQ(v.rif(3), 0.1);
}

TEST(Getrlk, N3allCountMismatchSetsExitAfterReading) {
  ParameterSet p;
  p.n3all = true;
  DushinData v = three_modes(true);
  ::testing::internal::CaptureStdout();
  run(p, v,
      {"x 5", " Derivative Coupling x", " a b irrep", "-", " 1 A x y 1", " 2 A x y 2",
       " 3 A x y 3"});
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "For n3all = .true. case, number of modes in nacme.out should be equal to n3\nExit!\n");
  EXPECT_EQ(p.is_exit, 1);
  EXPECT_EQ(v.rif(1), 2.0);
}

TEST(Getrlk, OldLayoutConvertsAndKeywordInColumnOneIsOld) {
  ParameterSet p;
  p.evert = 1.0;
  DushinData v = three_modes();
  run(p, v, {"m7 42.69529868732622", " m8 85.39059737465244", " m9 0.0"});
  EXPECT_DOUBLE_EQ(v.rif(3), 1.0);  // source mode 1 is store mode 3
  EXPECT_DOUBLE_EQ(v.rif(1), 2.0);
  EXPECT_EQ(v.rif(2), 0.0);
  // The keyword starting in column 1 does not make the new layout: the first line is then read
  // as an old-layout value line, and "Coupling" is not a number.
  DushinData u = three_modes();
  try {
    run(p, u, {"Derivative Coupling 1.0", " a b irrep", "-", " 1 A x y 0.1"});
    FAIL();
  } catch (const IoError& e) {
    EXPECT_NE(std::string(e.what()).find("coupling of mode 1 of 3"), std::string::npos);
  }

  p.n3all = true;
  DushinData w = three_modes(true);
  try {
    run(p, w, {" m 1", " m 2", " m 3"});
    FAIL();
  } catch (const StopRun& e) {
    EXPECT_EQ(e.status, 0);
    EXPECT_EQ(e.out, "n3all=.true. is not implemented for old elecoupling file!\nExit!\n");
  }
}

TEST(Getrlk, BadValueStopsButEndOfFileIsInputError) {
  ParameterSet p;
  DushinData v = three_modes();
  const std::vector<std::string> head{"n 3", " Derivative Coupling x", " a b irrep", "-"};
  std::vector<std::string> bad = head;
  bad.insert(bad.end(), {" 1 A x y 0.1", " 2 A x y abc", " 3 A x y 0.3"});
  try {
    run(p, v, bad);
    FAIL();
  } catch (const StopRun& e) {
    EXPECT_EQ(e.out, "Error in reading coupling file, stop!\n");
    EXPECT_EQ(e.status, 0);
  }
  std::vector<std::string> short_file = head;
  short_file.push_back(" 1 A x y 0.1");
  for (const auto& lines : {short_file, {"n 3", " Derivative Coupling", " no marker here"}, {}}) {
    DushinData w = three_modes();
    EXPECT_THROW(run(p, w, lines), IoError);
  }
}

TEST(Getrlk, ModeNumberOutsideTheListIsAClearError) {
  ParameterSet p;
  DushinData v = three_modes();
  v.order(2, 1) = 12;
  try {
    run(p, v,
        {"n 3", " Derivative Coupling x", " a b irrep", "-", " 1 A x y 0.1", " 2 A x y 0.2",
         " 3 A x y 0.3"});
    FAIL();
  } catch (const IoError& e) {
    EXPECT_NE(std::string(e.what()).find("numbered 12"), std::string::npos);
  }
}

}  // namespace
}  // namespace ictvcf
