#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

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

TEST(Getrlk, OldLayoutDividesBySqrtAmuAndEvert) {
  ParameterSet p;
  p.evert = 0.5;
  DushinData v = three_modes();
  run(p, v, {"m7 42.69529868732622", " m8 85.39059737465244", " m9 0.0"});
  EXPECT_DOUBLE_EQ(v.rif(3), 2.0);  // source mode 1 is store mode 3
  EXPECT_DOUBLE_EQ(v.rif(1), 4.0);
  EXPECT_EQ(v.rif(2), 0.0);
}

// How reading ends: a described stop (status and message) or an input/output error (line and
// what was expected).
std::string outcome(bool n3all, const std::vector<std::string>& lines, int order2 = 0) {
  ParameterSet p;
  p.n3all = n3all;
  DushinData v = three_modes(n3all);
  if (order2) v.order(2, 1) = order2;
  try {
    run(p, v, lines);
  } catch (const StopRun& e) {
    return std::to_string(e.status) + ": " + e.out;
  } catch (const IoError& e) {
    return "line " + std::to_string(e.line) + ": " + e.what();
  }
  return "read";
}

TEST(Getrlk, StopsAndInputErrors) {
  const std::vector<std::string> head{"n 3", " Derivative Coupling x", " a b irrep", "-"};
  auto with = [&](std::vector<std::string> tail) {
    tail.insert(tail.begin(), head.begin(), head.end());
    return tail;
  };
  const std::tuple<bool, std::vector<std::string>, int, std::string> cases[] = {
      {false, with({" 1 A x y 0.1", " 2 A x y abc", " 3 A x y 0.3"}), 0,
       "0: Error in reading coupling file, stop!\n"},
      {false, with({" 1 A x y 0.1"}), 0,
       "line 5: expected the coupling of mode 2 of 3 (four words and a number) (end of file)"},
      {false,
       {"n 3", " Derivative Coupling", " no marker here"},
       0,
       "line 3: expected a heading line whose third word is 'irrep' (end of file)"},
      {false, {}, 0, "line 1: end of file while searching for 'Derivative Coupling'"},
      // The keyword from column 1 does not make the new layout: "Derivative" is then a word
      // before the old layout's first value, and "Coupling" is not a number.
      {false,
       {"Derivative Coupling 1.0", " a b irrep", "-", " 1 A x y 0.1"},
       0,
       "line 1: expected the coupling of mode 1 of 3 (Bad real number in item 2 of list input)"},
      {true,
       {" m 1", " m 2", " m 3"},
       0,
       "0: n3all=.true. is not implemented for old elecoupling file!\nExit!\n"},
      {false, with({" 1 A x y 0.1", " 2 A x y 0.2", " 3 A x y 0.3"}), 12,
       "line 0: expected mode numbers 7 to 9 in the mode list, but mode 2 is numbered 12, outside "
       "the coupling list"},
  };
  for (const auto& [n3all, lines, order2, expected] : cases)
    EXPECT_EQ(outcome(n3all, lines, order2), expected);
}

}  // namespace
}  // namespace ictvcf
