// The square root's branch on a coarse grid: the determinant term of a large, strongly mixed
// molecule turns by many radians between steps of 20 au; followed with midpoints, the exact
// correlation function is the same at those steps as on a grid four times finer.
#include <gtest/gtest.h>

#include "engine/branch.h"
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
  // Forty modes 30 % softer in the initial state: the zero-point phases turn the determinant's
  // argument by sum (we - wg) t, far more than pi/3 a step; with that drift taken out, hardly a
  // step needs a midpoint.
  std::vector<double> w1, w2, zero;
  for (int j = 0; j < 40; ++j) {
    w1.push_back(1000.0 + 50.0 * j);
    w2.push_back(0.7 * w1.back());
    zero.push_back(0.0);
  }
  const EngineInputs soft = testing::modes(w1, w2, zero, std::vector<double>(40, 0.01), 300.0);
  EngineContext sc(soft);
  std::vector<std::complex<double>> t(26);
  for (std::size_t k = 0; k < t.size(); ++k) t[k] = k == 0 ? 2e-4 : 20.0 * static_cast<double>(k);
  std::vector<PointValue> v(t.size());
  evaluate(sc, t, v, PointRequest{true, nullptr});
  BranchFollower f{sc};
  for (std::size_t k = 1; k < t.size(); ++k)
    follow_argument(f, t[k - 1], v[k - 1].det, t[k], v[k].det);
  EXPECT_EQ(f.failures, 0);
  EXPECT_LE(f.evaluations, 5) << f.evaluations;  // 155 with the drift the wrong way round
}

}  // namespace
}  // namespace ictvcf
