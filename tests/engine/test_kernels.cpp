#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "engine/dosqrt.h"
#include "util/scaled_product.h"

namespace ictvcf {
namespace {

using cplx = std::complex<double>;
const double kInf = std::numeric_limits<double>::infinity();

TEST(Rdetm, WorkedExamples) {
  double det[2];
  std::vector<double> a{2.0, 5.0, 0.3};
  rdetm(a.data(), 3, det);
  EXPECT_DOUBLE_EQ(det[0], 3.0);
  EXPECT_EQ(det[1], 0.0);

  a = {1e-200, 7.0};  // below 1e-127: zeroed in place, and the product stops there
  rdetm(a.data(), 2, det);
  EXPECT_EQ(det[0], 0.0);
  EXPECT_EQ(det[1], 0.0);
  EXPECT_EQ(a[0], 0.0);
  EXPECT_EQ(a[1], 7.0);

  a = {0.5};
  rdetm(a.data(), 1, det);
  EXPECT_EQ(det[0], 5.0);
  EXPECT_EQ(det[1], -1.0);

  a = {1e-120};  // kept: the threshold is 1e-127
  rdetm(a.data(), 1, det);
  EXPECT_NEAR(det[0], 1.0, 1e-12);
  EXPECT_EQ(det[1], -120.0);

  rdetm(nullptr, 0, det);
  EXPECT_EQ(det[0], 1.0);
  EXPECT_EQ(det[1], 0.0);
}

TEST(Rdetm, ExponentsBeyondTheDoubleRange) {
  std::vector<double> a(300, 1e200);
  double det[2];
  rdetm(a.data(), 300, det);
  EXPECT_NEAR(det[0], 1.0, 1e-9);
  EXPECT_EQ(det[1], 60000.0);
}

TEST(Rdetm, NonFiniteFactorEndsNormalisation) {
  double det[2];
  std::vector<double> a{2.0, kInf, 3.0};
  rdetm(a.data(), 3, det);  // must not loop forever
  EXPECT_TRUE(std::isinf(det[0]));
  a = {2.0, std::nan(""), 3.0};
  rdetm(a.data(), 3, det);
  EXPECT_TRUE(std::isnan(det[0]));
}

TEST(Zdetm, WorkedExamples) {
  cplx det[2];
  std::vector<cplx> a{{0.0, 1.0}, {0.0, 1.0}};
  zdetm(a.data(), 2, det);
  EXPECT_EQ(det[0], cplx(-1.0, 0.0));
  EXPECT_EQ(det[1], cplx(0.0, 0.0));
  a = {{30.0, 40.0}, {0.0, 0.0}, {5.0, 0.0}};  // |50| -> 5 * 10^1, then zero stops the product
  zdetm(a.data(), 3, det);
  EXPECT_EQ(det[0], cplx(0.0, 0.0));
  EXPECT_EQ(det[1], cplx(1.0, 0.0));
  a = {{kInf, 0.0}, {2.0, 0.0}};
  zdetm(a.data(), 2, det);
  EXPECT_FALSE(std::isfinite(std::abs(det[0])));
}

TEST(Theta, QuadrantsAndAxis) {
  EXPECT_EQ(theta({1.0, 0.0}), 0.0);
  EXPECT_DOUBLE_EQ(theta({-1.0, 0.0}), M_PI);
  EXPECT_DOUBLE_EQ(theta({0.0, -2.0}), -M_PI / 2);
  EXPECT_TRUE(std::isnan(theta({0.0, 0.0})));
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

TEST(Dosqrt, PrincipalInRightHalfPlane) {
  std::vector<cplx> z{{4.0, 0.0}, {3.0, 4.0}, {1.0, -1.0}};
  std::vector<cplx> w = roots(z);
  for (std::size_t i = 0; i < z.size(); ++i) EXPECT_LT(std::abs(w[i] - std::sqrt(z[i])), 1e-15);
}

TEST(Dosqrt, WindsOnceTwiceAndBack) {
  // Counter-clockwise through +pi once: the root continues past the principal branch.
  std::vector<cplx> w = roots(path({90, 170, 190, 270}));
  EXPECT_LT(std::abs(w[2] - std::polar(1.0, 95.0 * M_PI / 180.0)), 1e-12);
  EXPECT_LT(std::abs(w[3] - std::polar(1.0, 135.0 * M_PI / 180.0)), 1e-12);
  // Twice: the winding is 4 pi and the root is back on the principal sign.
  w = roots(path({170, 190, 300, 60, 170, 190}));
  EXPECT_LT(std::abs(w[5] - std::sqrt(std::polar(1.0, 190.0 * M_PI / 180.0))), 1e-12);
  // Clockwise back across: the winding returns to zero.
  w = roots(path({170, 190, 170}));
  EXPECT_LT(std::abs(w[2] - std::sqrt(std::polar(1.0, 170.0 * M_PI / 180.0))), 1e-12);
  EXPECT_LT(std::abs(w[1] + std::sqrt(std::polar(1.0, 190.0 * M_PI / 180.0))), 1e-12);
}

TEST(Dosqrt, PointOnNegativeAxisIsNotCountedAndTheSignJumps) {
  std::vector<cplx> w = roots({{-1.0, 0.1}, {-1.0, 0.0}, {-1.0, -0.1}});
  EXPECT_LT(std::abs(w[2] - std::sqrt(cplx(-1.0, -0.1))), 1e-15);  // principal: a sign jump
  // A step across the real axis in the right half-plane changes nothing.
  w = roots({{-1.0, -0.1}, {1.0, 0.1}});
  EXPECT_LT(std::abs(w[1] - std::sqrt(cplx(1.0, 0.1))), 1e-15);
  w = roots({{-1.0, 1.0}});
  EXPECT_LT(std::abs(w[0] - std::sqrt(cplx(-1.0, 1.0))), 1e-15);
}

}  // namespace
}  // namespace ictvcf
