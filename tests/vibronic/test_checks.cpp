// The warnings about the vibronic data that the small molecule of data/mistakes.tsv cannot show.
#include <gtest/gtest.h>

#include <cmath>

#include "vibronic/checks.h"

namespace ictvcf {
namespace {

TEST(Orthogonality, RotoreflectionScalingAndSingularMatrix) {
  Matrix<double> s(3, 3);
  const double c = std::cos(0.3), sn = std::sin(0.3);
  s(1, 1) = c, s(1, 2) = -sn, s(2, 1) = sn, s(2, 2) = c, s(3, 3) = -1.0;
  Orthogonality o = orthogonality(s);
  EXPECT_LT(o.deviation, 1e-15);
  EXPECT_NEAR(o.abs_det, 1.0, 1e-15);
  s(3, 3) = -0.5;
  o = orthogonality(s);
  EXPECT_NEAR(o.deviation, 0.75, 1e-15);
  EXPECT_NEAR(o.abs_det, 0.5, 1e-15);
  s(3, 3) = 0.0;
  EXPECT_EQ(orthogonality(s).abs_det, 0.0);
}

// The column layout holds only the first matrix: selecting the second uses the identity.
TEST(VibronicChecks, ColumnLayoutWithTheSecondMatrixSelected) {
  ParameterSet p;
  DushinData v;
  v.nmode = 2;
  allocatedushindata(v, 0);
  v.s(1, 1) = v.s(2, 2) = 1.0;
  p.dsfile = pad("dushin.dat", 200);
  p.dushtype = 2;
  for (int dush12 : {2, 1}) {
    p.dush12 = dush12;
    ::testing::internal::CaptureStderr();
    check_vibronic_data(p, v);
    const std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.find("the matrix read is not used (set dush12 = 1)") != std::string::npos,
              dush12 == 2)
        << err;
  }
}

}  // namespace
}  // namespace ictvcf
