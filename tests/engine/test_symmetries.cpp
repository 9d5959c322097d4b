// Exact symmetries of the correlation function, on the table the engine produces and on the
// exact function: changes of sign and labels of the normal modes leave it unchanged, the
// coupling enters quadratically, and a single coupled mode equals zeroing the other couplings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "engine/engine.h"
#include "run/table.h"
#include "support/synthetic.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;
using testing::couple;

std::vector<cplx> correlation(const EngineInputs& s, bool exact) {
  const std::int64_t nt = 150;
  std::vector<cplx> usqrt(nt + 1), ft(nt + 1);
  compute_correlation(s, 15.0, 0, nt, usqrt.data(), ft.data(), exact);
  Vector<cplx> sqrtdone(nt + 1);
  return assemble(nt, usqrt, ft, sqrtdone);
}

struct Change {
  const char* what;
  double factor;  // the correlation function is multiplied by it
  std::function<void(EngineInputs&)> apply;
};

class Symmetry : public ::testing::TestWithParam<bool> {};

TEST_P(Symmetry, LeavesTheCorrelationFunctionAsItIs) {
  // Five modes, strongly rotated, frequency changes and displacements in both directions.
  const EngineInputs base = testing::random_system(5, 7, 1.2, 400.0);
  const int perm1[] = {3, 1, 5, 2, 4}, perm2[] = {2, 5, 4, 1, 3};
  const Change changes[] = {
      {"column 2 of S and rif(2)", 1.0,
       [](EngineInputs& s) {
         for (int j = 1; j <= 5; ++j) s.s(j, 2) = -s.s(j, 2);
         s.rif[1] = -s.rif[1];
       }},
      {"row 4 of S and d(4)", 1.0,
       [](EngineInputs& s) {
         for (int k = 1; k <= 5; ++k) s.s(4, k) = -s.s(4, k);
         s.d[3] = -s.d[3];
       }},
      {"d -> -d", 1.0,
       [](EngineInputs& s) {
         for (double& x : s.d) x = -x;
       }},
      // New label m of the final-state mode perm1[m] and of the initial-state mode perm2[m].
      {"relabelled modes", 1.0,
       [&](EngineInputs& s) {
         for (int m = 1; m <= 5; ++m) {
           s.omegag[m - 1] = base.omegag[perm1[m - 1] - 1];
           s.rif[m - 1] = base.rif[perm1[m - 1] - 1];
           s.omegae[m - 1] = base.omegae[perm2[m - 1] - 1];
           s.d[m - 1] = base.d[perm2[m - 1] - 1];
           for (int l = 1; l <= 5; ++l) s.s(m, l) = base.s(perm2[m - 1], perm1[l - 1]);
         }
       }},
      {"rif -> 3 rif", 9.0,
       [](EngineInputs& s) {
         for (double& x : s.rif) x *= 3.0;
       }},
  };
  const std::vector<cplx> reference = correlation(base, GetParam());
  double largest = 0.0;
  for (const cplx& x : reference) largest = std::max(largest, std::abs(x));
  ASSERT_GT(largest, 0.0);
  // Equal up to rounding: 1e-10 of the largest value, but 1e-8 on the t = 0 row (the middle one),
  // whose evaluation at dt * 1e-5 cancels terms of order 1/t^2.
  auto expect_same = [&](const std::vector<cplx>& got, const std::vector<cplx>& want, double f,
                         const char* what) {
    for (std::size_t k = 0; k < want.size(); ++k)
      ASSERT_LT(std::abs(got[k] - f * want[k]), (k == want.size() / 2 ? 1e-8 : 1e-10) * f * largest)
          << what << " row " << k;
  };
  for (const Change& c : changes) {
    EngineInputs s = base;
    c.apply(s);
    couple(s);
    expect_same(correlation(s, GetParam()), reference, c.factor, c.what);
  }
  EngineInputs only = base, zeroed = base;
  couple(only, 3);
  for (int j = 1; j <= 5; ++j)
    if (j != 3) zeroed.rif[j - 1] = 0.0;
  couple(zeroed);
  expect_same(correlation(only, GetParam()), correlation(zeroed, GetParam()), 1.0, "mode = 3");
}

INSTANTIATE_TEST_SUITE_P(TableAndExact, Symmetry, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Exact" : "Table"; });

}  // namespace
}  // namespace ictvcf
