// The fast engine against the straightforward one, and its independence of the thread count.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "engine/dosqrt.h"
#include "engine/engine.h"
#include "engine/engine_support.h"
#include "rate/integral.h"
#include "run/table.h"
#include "support/synthetic.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;

std::vector<cplx> table(const EngineInputs& in, double dt, std::int64_t nt, bool fast) {
  std::vector<cplx> usqrt(nt + 1), ft(nt + 1);
  if (fast)
    compute_correlation(in, dt, 0, nt, usqrt.data(), ft.data());
  else
    getintegratedata(in, dt, 0, nt, usqrt.data(), ft.data());
  Vector<cplx> sqrtdone(nt + 1);
  return assemble(nt, usqrt, ft, sqrtdone);
}

// The two engines' tables agree within 1e-10 of the largest value, and within 1e-5 on the t = 0
// row, whose evaluation at dt * 1e-5 cancels terms of order 1/t^2.
void expect_same_table(const EngineInputs& in, double dt, std::int64_t nt,
                       const std::string& what) {
  const std::vector<cplx> a = table(in, dt, nt, false), b = table(in, dt, nt, true);
  double scale = 0.0;
  for (const cplx& c : a) scale = std::max({scale, std::fabs(c.real()), std::fabs(c.imag())});
  for (std::size_t i = 0; i < a.size(); ++i)
    EXPECT_LE(std::max(std::fabs(a[i].real() - b[i].real()), std::fabs(a[i].imag() - b[i].imag())),
              (i == a.size() / 2 ? 1e-5 : 1e-10) * scale)
        << what << " row " << i;
}

TEST(FastEngine, MatchesReferenceOnRandomSystems) {
  struct Case {
    int n;
    unsigned seed;
    double mixing, temp;
    int mode;
  };
  for (const Case& c :
       {Case{6, 1, 0.0, 300.0, 0}, Case{12, 2, 0.4, 300.0, 0}, Case{20, 3, 0.8, 77.0, 0},
        Case{20, 4, 0.8, 1000.0, 0}, Case{16, 5, 0.5, 300.0, 7}, Case{30, 6, 0.3, 10.0, 0}}) {
    auto in = testing::random_system(c.n, c.seed, c.mixing, c.temp, c.mode);
    expect_same_table(in, 25.0, 60, "n=" + std::to_string(c.n) + " seed=" + std::to_string(c.seed));
  }
}

TEST(FastEngine, MatchesReferenceOnBundledMolecules) {
  for (const char* name : {"med-dcoupl", "med-n3all", "small-col", "six-modes"}) {
    const std::string dir = std::string(ICTVCF_TEST_CASES) + "/" + name;
    std::string input = testing::read_file(dir + "/cmd");
    input = input.substr(0, input.find_first_of("\n "));
    testing::Loaded l = testing::load_case(dir, input);
    expect_same_table(l.in, l.p.dt, l.p.nt, name);
  }
}

// A coupling matrix that is not an outer product, and a mask of several pairs, take the general
// path (inverses and the pair sum over the lower triangle).
TEST(FastEngine, GeneralMaskAndCouplingMatrix) {
  auto v = testing::random_system(14, 21, 0.7, 300.0);
  for (int k = 1; k <= v.nmode; ++k)
    for (int j = 1; j <= v.nmode; ++j) {
      v.r(j, k) = 1e-4 * std::cos(j + 2.0 * k);
      v.iscal(j, k) = (j + k) % 3 != 0;
    }
  expect_same_table(v, 25.0, 40, "general mask");
  for (char& c : v.iscal.data) c = 0;
  std::vector<cplx> u(41), f(41);
  compute_correlation(v, 25.0, 0, 40, u.data(), f.data(), false);
  for (const cplx& c : f) EXPECT_EQ(c, cplx(0.0, 0.0));
}

// Near t = 2 * 2 pi / omega of the softer final-state mode both g = -omega tan(omega t / 2) are
// small against the off-diagonal of b - a, and the symmetric factorisation of b - a takes a 2x2
// block for t = 11870 ... 12000 au (found by scanning the factorisation's pivots). Its determinant
// enters the determinant term: the fast engine there against the reference engine, which
// factorises with row interchanges instead.
TEST(FastEngine, TwoByTwoBlockOfTheSymmetricFactorisation) {
  const double c = std::cos(0.7), s = std::sin(0.7);
  const EngineInputs v = testing::modes({698.4, 228.9}, {606.2, 188.8}, {9.0, -14.0}, {0.02, -0.01},
                                        1000.0, {{c, -s}, {s, c}});
  const std::int64_t from = 1180, to = 1205;
  std::vector<cplx> u_fast(to - from + 1), f_fast(u_fast.size()), u_ref(u_fast.size()),
      f_ref(u_fast.size());
  compute_correlation(v, 10.0, from, to, u_fast.data(), f_fast.data(), true);
  getintegratedata(v, 10.0, from, to, u_ref.data(), f_ref.data(), true);
  double largest = 0.0;
  for (const cplx& f : f_ref) largest = std::max(largest, std::abs(f));
  for (std::size_t m = 0; m < u_fast.size(); ++m) {
    EXPECT_LT(std::abs(u_fast[m] - u_ref[m]), 1e-9 * std::abs(u_ref[m])) << "step " << from + m;
    EXPECT_LT(std::abs(f_fast[m] - f_ref[m]), 1e-9 * largest) << "step " << from + m;
  }
}

// The exact function of the rate command on a grid too coarse for the determinant term's argument
// (it turns by 5 rad in the first step) equals the same times of a fine grid: the square root's
// branch is followed through midpoints.
TEST(FastEngine, BranchFollowedOnACoarseGrid) {
  const EngineInputs v = testing::random_system(40, 11, 0.7, 300.0);
  EngineContext ctx(v);
  std::vector<std::string> warnings;
  const std::vector<cplx> fine = exact_correlation(ctx, 2.0, 150, warnings);
  const std::vector<cplx> coarse = exact_correlation(ctx, 100.0, 3, warnings);
  EXPECT_TRUE(warnings.empty());
  double largest = 0.0;
  for (const cplx& c : fine) largest = std::max(largest, std::abs(c));
  for (std::size_t k = 0; k < coarse.size(); ++k)
    EXPECT_LT(std::abs(coarse[k] - fine[50 * k]), 1e-10 * largest) << "t = " << 100.0 * k;

  // A second path to the same complex C(t): the run's integrand with its imaginary part kept,
  // times the continuous square root of its determinant term (the table's path), against the
  // rate's C from each point's mantissa and power of two; on points where that power is odd.
  std::vector<cplx> usqrt(151), f(151), root(151);
  compute_correlation(v, 2.0, 0, 150, usqrt.data(), f.data(), true);
  dosqrt(151, usqrt.data(), root.data());
  std::vector<cplx> t(150);
  for (std::size_t k = 0; k < t.size(); ++k) t[k] = 2.0 * static_cast<double>(k + 1);
  std::vector<PointValue> p(t.size());
  evaluate(ctx, t, p);
  int odd = 0;
  for (std::size_t k = 1; k <= 150; ++k) {
    odd += static_cast<int>(p[k - 1].exp2) % 2 != 0;
    EXPECT_LT(std::abs(root[k] * f[k] - fine[k]), 1e-10 * largest) << "t = " << 2.0 * k;
  }
  EXPECT_GT(odd, 10);
}

TEST(FastEngine, SameBitsForAnyThreadCount) {
  auto v = testing::random_system(24, 11, 0.7, 300.0);
  const std::int64_t nt = 37;
  std::vector<std::vector<cplx>> runs;
  for (int threads : {1, 2, 3, 8}) {
    std::vector<cplx> usqrt(nt + 1), ft(nt + 1);
    compute_correlation(v, 20.0, 0, nt, usqrt.data(), ft.data(), false, threads);
    usqrt.insert(usqrt.end(), ft.begin(), ft.end());
    runs.push_back(usqrt);
  }
  for (std::size_t i = 1; i < runs.size(); ++i)
    EXPECT_EQ(std::memcmp(runs[0].data(), runs[i].data(), runs[0].size() * sizeof(cplx)), 0);
}

}  // namespace
}  // namespace ictvcf
