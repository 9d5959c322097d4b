#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "run/prepare_data.h"

namespace ictvcf {
namespace {

TEST(PrepareData, TimeStepsRoundHalfAwayFromZeroIn32Bits) {
  ParameterSet p;
  p.tmax = 25.0;
  p.dt = 10.0;
  prepare_data(p);
  EXPECT_EQ(p.nt, 3);  // 2.5 -> 3
  p.tmax = -25.0;
  prepare_data(p);
  EXPECT_EQ(p.nt, -3);
  p.tmin = 100.0;
  p.tmax = 1000.0;
  p.dt = 20.0;
  prepare_data(p);
  EXPECT_EQ(p.nt, 45);
  p.tmin = p.tmax = p.dt = 0.0;  // 0/0: not a number
  prepare_data(p);
  EXPECT_EQ(p.nt, 0);
  EXPECT_EQ(round_to_int32(4294967296.0 + 5.0), 5);  // only the low 32 bits are kept
  EXPECT_EQ(round_to_int32(2147483648.0), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(round_to_int32(std::numeric_limits<double>::infinity()), 0);
}

TEST(PrepareData, VerticalGapDefaultsToAdiabatic) {
  ParameterSet p;
  p.ead = 0.1;
  prepare_data(p);
  EXPECT_EQ(p.evert, 0.1);
  p.evert = 0.2;
  prepare_data(p);
  EXPECT_EQ(p.evert, 0.2);
}

TEST(PrepareData, BroadeningUntouchedWithoutIsgauss) {
  ParameterSet p;
  p.fwhm = 0.01;
  prepare_data(p);
  EXPECT_EQ(p.degauss, -1.0);
  EXPECT_EQ(p.fwhm_w_max, 0.0);
}

TEST(PrepareData, GaussianFromFwhm) {
  ParameterSet p;
  p.isgauss = true;
  p.fwhm = 0.01;
  prepare_data(p);
  const double s = std::sqrt(1.3862943611198906);
  EXPECT_EQ(p.degauss, 0.01 / 2.0 / s);
  EXPECT_EQ(p.lifetime, 1.4142135623730951 / p.degauss);
  EXPECT_EQ(p.fwhm_w, 0.01);
  EXPECT_EQ(p.fwhm_t, (s + s) / p.degauss);
  EXPECT_EQ(p.fwhmt, p.fwhm_t);
  EXPECT_EQ(p.fwhm_w_max, 0.1);
  EXPECT_EQ(p.fwhm_t_max, p.fwhm_t * 10.0);
}

TEST(PrepareData, LorentzianPrecedenceEarlierSourceWins) {
  ParameterSet p;
  p.isgauss = true;
  p.broadentype = pad("lorentzian", 10);
  p.fwhm = 0.02;
  p.lifetime = 5.0;  // later in the precedence: recomputed from fwhm
  prepare_data(p);
  EXPECT_EQ(p.degauss, 0.01);
  EXPECT_EQ(p.lifetime, 100.0);
  EXPECT_EQ(p.fwhm_t, 1.3862943611198906 / 0.01);
}

TEST(PrepareData, LorentzianFromLifetimeAndTimeWidths) {
  ParameterSet p;
  p.isgauss = true;
  p.broadentype = pad("lorentzian", 10);
  p.lifetime = 50.0;
  prepare_data(p);
  EXPECT_EQ(p.degauss, 1.0 / 50.0);
  EXPECT_EQ(p.fwhm_w, p.degauss + p.degauss);
  EXPECT_EQ(p.fwhm, p.fwhm_w);

  ParameterSet q;
  q.isgauss = true;
  q.fwhmt = 400.0;
  prepare_data(q);
  EXPECT_EQ(q.fwhm_t, 400.0);
  EXPECT_EQ(q.degauss, 2.0 * std::sqrt(1.3862943611198906) / 400.0);
}

TEST(PrepareData, UnknownShapeOnlyRecomputesExtents) {
  ParameterSet p;
  p.isgauss = true;
  p.broadentype = pad("Lorentzian", 10);  // capital letter: matches neither name
  p.fwhm = 0.02;
  prepare_data(p);
  EXPECT_EQ(p.degauss, -1.0);
  EXPECT_EQ(p.fwhm_w_max, -10.0);
  EXPECT_EQ(p.fwhm_t_max, -10.0);
}

}  // namespace
}  // namespace ictvcf

namespace ictvcf {
namespace {

// Every source width, both shapes, against the derivation written out row by row.
TEST(PrepareData, EverySourceWidthBothShapes) {
  const double c = 1.3862943611198906, s = std::sqrt(c), r = 1.4142135623730951;
  for (bool lorentz : {true, false}) {
    for (int src = 0; src < 6; ++src) {
      ParameterSet p;
      p.isgauss = true;
      p.broadentype = pad(lorentz ? "lorentzian" : "gaussian", 10);
      double* fields[] = {&p.degauss, &p.fwhm, &p.fwhm_w, &p.fwhm_t, &p.fwhmt, &p.lifetime};
      const double given = src < 3 ? 0.004 : 700.0;
      *fields[src] = given;
      prepare_data(p);
      double deg = given;
      if (src == 1 || src == 2) deg = lorentz ? given / 2.0 : given / 2.0 / s;
      if (src == 3 || src == 4) deg = lorentz ? c / given : (s + s) / given;
      if (src == 5) deg = lorentz ? 1.0 / given : r / given;
      const double w = src == 1 || src == 2 ? given : (lorentz ? deg + deg : deg * (s + s));
      const double t = src == 3 || src == 4 ? given : (lorentz ? c / deg : (s + s) / deg);
      const double life = src == 5 ? given : (lorentz ? 1.0 / deg : r / deg);
      SCOPED_TRACE(std::to_string(src) + (lorentz ? " lorentzian" : " gaussian"));
      EXPECT_EQ(p.degauss, deg);
      EXPECT_EQ(p.fwhm, w);
      EXPECT_EQ(p.fwhm_w, w);
      EXPECT_EQ(p.fwhm_t, t);
      EXPECT_EQ(p.fwhmt, t);
      EXPECT_EQ(p.lifetime, life);
    }
  }
}

}  // namespace
}  // namespace ictvcf
