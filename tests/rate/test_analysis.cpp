// The decomposition of the rate over modes: the shares add up to the rate, a mode's own pair is
// the rate with that mode alone coupled, and the temperature lists.
#include <gtest/gtest.h>

#include "engine/engine.h"
#include "rate/analysis.h"
#include "rate/command.h"
#include "rate/contour.h"
#include "support/synthetic.h"
#include "util/constants.h"
#include "util/errors.h"

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

TEST(Modes, TemperatureLists) {
  EXPECT_EQ(parse_temperature_list("77,150,300"), (std::vector<double>{77, 150, 300}));
  EXPECT_EQ(parse_temperature_list("100:500:50").size(), 9u);
  EXPECT_EQ(parse_temperature_list("0:10:5"), (std::vector<double>{0, 5, 10}));
  for (const char* bad : {"", "77,", "a", "-5", "300:100:10", "1:2", "1:5:0", "nan"})
    EXPECT_THROW(parse_temperature_list(bad), FatalError) << bad;
}

}  // namespace
}  // namespace ictvcf
