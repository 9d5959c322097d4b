// The thermal product of the run (a scaled product whose tiny factors are zeroed) and the
// continuous square root of the table's determinant terms.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "engine/dosqrt.h"
#include "util/scaled_product.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;

TEST(Rdetm, ScaledProductZeroesFactorsBelow1em127) {
  struct Row {
    std::vector<double> a;
    double mantissa, exponent;
  };
  const double inf = std::numeric_limits<double>::infinity();
  for (const Row& r : std::vector<Row>{{{2.0, 5.0, 0.3}, 3.0, 0.0},
                                       {{0.5}, 5.0, -1.0},
                                       {{1e-120}, 1.0, -120.0},  // kept: the threshold is 1e-127
                                       {{1e-200, 7.0}, 0.0, 0.0},
                                       {std::vector<double>(300, 1e200), 1.0, 60000.0},
                                       {{2.0, inf, 3.0}, inf, 0.0}}) {
    std::vector<double> a = r.a;
    double det[2];
    rdetm(a.data(), static_cast<int>(a.size()), det);
    EXPECT_TRUE(det[0] == r.mantissa || std::fabs(det[0] - r.mantissa) < 1e-9) << r.a[0];
    EXPECT_EQ(det[1], r.exponent) << r.a[0];
  }
  std::vector<double> a{2.0, std::nan(""), 3.0};  // must not loop forever
  double det[2];
  rdetm(a.data(), 3, det);
  EXPECT_TRUE(std::isnan(det[0]));
}

std::vector<cplx> roots(const std::vector<cplx>& z) {
  std::vector<cplx> w(z.size());
  dosqrt(static_cast<std::int64_t>(z.size()), z.data(), w.data());
  return w;
}

// Points on the unit circle at the given angles (degrees).
std::vector<cplx> path(std::initializer_list<double> degrees) {
  std::vector<cplx> z;
  for (double d : degrees) z.push_back(std::polar(1.0, d * M_PI / 180.0));
  return z;
}

cplx at(double degrees) { return std::polar(1.0, degrees * M_PI / 180.0); }

TEST(Dosqrt, WindsOnceTwiceAndBack) {
  // Counter-clockwise through +pi once: the root continues past the principal branch.
  std::vector<cplx> w = roots(path({90, 170, 190, 270}));
  EXPECT_LT(std::abs(w[2] - at(95)), 1e-12);
  EXPECT_LT(std::abs(w[3] - at(135)), 1e-12);
  // Twice: the winding is 4 pi and the root is back on the principal sign.
  w = roots(path({170, 190, 300, 60, 170, 190}));
  EXPECT_LT(std::abs(w[5] - std::sqrt(at(190))), 1e-12);
  // Clockwise back across: the winding returns to zero.
  w = roots(path({170, 190, 170}));
  EXPECT_LT(std::abs(w[1] + std::sqrt(at(190))), 1e-12);
  EXPECT_LT(std::abs(w[2] - std::sqrt(at(170))), 1e-12);
}

// A point exactly on the negative axis is not a crossing, neither into it nor out of it: its root
// is the principal one (argument pi/2), and the step beyond it is a plain sign jump.
TEST(Dosqrt, PointExactlyOnTheNegativeAxis) {
  const std::vector<cplx> w = roots({{-1.0, 0.1}, {-4.0, 0.0}, {-1.0, -0.1}, {-1.0, 0.0}});
  EXPECT_LT(std::abs(w[0] - std::sqrt(cplx(-1.0, 0.1))), 1e-15);
  EXPECT_LT(std::abs(w[1] - cplx(0.0, 2.0)), 1e-15);
  EXPECT_LT(std::abs(w[2] - std::sqrt(cplx(-1.0, -0.1))), 1e-15);
  EXPECT_LT(std::abs(w[3] - cplx(0.0, 1.0)), 1e-15);
  // A step across the real axis in the right half-plane changes nothing.
  EXPECT_LT(std::abs(roots({{-1.0, -0.1}, {1.0, 0.1}})[1] - std::sqrt(cplx(1.0, 0.1))), 1e-15);
}

}  // namespace
}  // namespace ictvcf
