// The decomposition of the rate over modes: the shares add up to the rate, a mode's own pair is
// the rate with that mode alone coupled, and the temperature lists.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine/engine.h"
#include "rate/analysis.h"
#include "rate/command.h"
#include "rate/contour.h"
#include "support/synthetic.h"
#include "util/constants.h"
#include "util/errors.h"
#include "util/strings.h"

namespace ictvcf {
namespace {

TEST(Modes, SharesAddUpAndOwnPairsAreTheSingleModeRates) {
  EngineInputs in = testing::random_system(12, 5, 0.8, 300.0);
  const double sigma = 150.0 / au2cm, gap = 1.0 * 0.0367;
  EngineContext ctx(in);
  const ContourResult all =
      contour_rates(ctx, {sigma, 1e-9}, std::span<const double>(&gap, 1), true);
  const Decomposition d = decompose(in, all.pairs);
  EXPECT_NEAR(d.total / all.rates[0].rate, 1.0, 1e-9);
  ASSERT_EQ(d.pairs.size(), 12u * 11u / 2u);
  for (std::size_t i = 0; i < 3; ++i) {
    EngineInputs one = in;
    testing::couple(one, d.modes[i].mode);
    EngineContext single(one);
    const double alone =
        contour_rates(single, {sigma, 1e-9}, std::span<const double>(&gap, 1)).rates[0].rate;
    EXPECT_NEAR(d.modes[i].diagonal / alone, 1.0, 1e-7) << "mode " << d.modes[i].mode;
  }
  const std::string text = modes_text(d, all.rates[0].rate, all.rates[0].error);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4 + 12);
}

// Three modes with couplings 1, 2, 3 and pair integrals K(j,k) = j + 10 k (lower triangle): the
// own pairs r(j,j) K(j,j), the cross pairs 2 r(j,k) K(j,k), each shared half and half.
TEST(Modes, SharesAndPairsOfAGivenQuadraticForm) {
  EngineInputs in = testing::modes({100.0, 200.0, 300.0}, {110.0, 220.0, 330.0}, {0.0, 0.0, 0.0},
                                   {1.0, 2.0, 3.0}, 300.0);
  PairIntegrals k{Matrix<double>(3, 3), Matrix<double>(3, 3)};
  for (int col = 1; col <= 3; ++col)
    for (int row = col; row <= 3; ++row) k.k(row, col) = row + 10.0 * col;
  const Decomposition d = decompose(in, k);
  // Own pairs 11, 4*22 = 88, 9*33 = 297; cross pairs (2,1) 2*2*12 = 48, (3,1) 2*3*13 = 78,
  // (3,2) 2*6*23 = 276.
  ASSERT_EQ(d.modes.size(), 3u);
  EXPECT_EQ(d.modes[0].mode, 3);
  EXPECT_EQ(d.modes[0].diagonal, 297.0);
  EXPECT_EQ(d.modes[0].share, 297.0 + 39.0 + 138.0);
  EXPECT_EQ(d.modes[1].share, 88.0 + 24.0 + 138.0);
  EXPECT_EQ(d.modes[2].share, 11.0 + 24.0 + 39.0);
  EXPECT_EQ(d.total, 11.0 + 88.0 + 297.0 + 48.0 + 78.0 + 276.0);
  ASSERT_EQ(d.pairs.size(), 3u);
  EXPECT_EQ(d.pairs[0].j, 3);
  EXPECT_EQ(d.pairs[0].k, 2);
  EXPECT_EQ(d.pairs[0].value, 276.0);
  EXPECT_EQ(d.pairs[2].value, 48.0);
  // The file: the final state's frequency, and the share of k_IC in the last column.
  const std::string text = modes_text(d, d.total, 0.0);
  const std::string row = text.substr(text.find("\n     3 "));
  EXPECT_NE(row.find(" 3.00000000e+02 "), std::string::npos) << row;
  EXPECT_NE(row.find(printed(" %.4e\n", 474.0 / 798.0)), std::string::npos) << row;
  const std::string two = pairs_text(d, 2);
  EXPECT_EQ(std::count(two.begin(), two.end(), '\n'), 2 + 2);
}

TEST(Modes, TemperatureLists) {
  EXPECT_EQ(parse_temperature_list("77,150,300"), (std::vector<double>{77, 150, 300}));
  EXPECT_EQ(parse_temperature_list("100:500:50").size(), 9u);
  EXPECT_EQ(parse_temperature_list("0:10:5"), (std::vector<double>{0, 5, 10}));
  for (const char* bad : {"", "77,", "a", "-5", "300:100:10", "1:2", "1:5:0", "nan"})
    EXPECT_THROW(parse_temperature_list(bad), FatalError) << bad;
}

}  // namespace
}  // namespace ictvcf
