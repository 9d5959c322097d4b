// The square root's branch on a coarse grid: the determinant term of a large, strongly mixed
// molecule turns by many radians between steps of 20 au; followed with midpoints, the exact
// correlation function is the same at those steps as on a grid four times finer.
#include <gtest/gtest.h>

#include "engine/engine.h"
#include "rate/integral.h"
#include "support/synthetic.h"

namespace ictvcf {
namespace {

TEST(Branch, CoarseGridAgreesWithAFineOne) {
  const EngineInputs in = testing::random_system(150, 3, 1.2, 300.0);
  EngineContext ctx(in);
  std::vector<std::string> warnings;
  const auto coarse = exact_correlation(ctx, 20.0, 25, warnings);
  const auto fine = exact_correlation(ctx, 5.0, 100, warnings);
  EXPECT_TRUE(warnings.empty());
  for (std::size_t k = 1; k < coarse.size(); ++k)
    EXPECT_LT(std::abs(coarse[k] - fine[4 * k]), 1e-9 * std::abs(fine[4 * k])) << "t = " << 20 * k;
}

}  // namespace
}  // namespace ictvcf
