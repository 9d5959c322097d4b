#include <gtest/gtest.h>

#include "util/errors.h"
#include "vibronic/dushindata.h"

namespace ictvcf {
namespace {

TEST(Store, AllocatedOnceWithTheModeAndTimeCounts) {
  DushinData v;
  v.nmode = 3;
  allocatedushindata(v, 0);
  EXPECT_EQ(v.sqrtdone.size(), 1u);  // nt = 0: one time point
  EXPECT_EQ(v.s.rows, 3);
  EXPECT_EQ(v.order.cols, 2);
  try {
    allocatedushindata(v, 0);
    FAIL();
  } catch (const FatalError& e) {
    EXPECT_NE(std::string(e.what()).find("'order'"), std::string::npos);
  }
}

TEST(Store, NoModesAllocatesNothingAndNegativeTimeCountIsEmpty) {
  DushinData v;
  allocatedushindata(v, 10);
  EXPECT_FALSE(v.allocated);
  EXPECT_TRUE(v.sqrtdone.empty());
  DushinData w;
  w.nmode = 2;
  allocatedushindata(w, -3);
  EXPECT_TRUE(w.sqrtdone.empty());
}

}  // namespace
}  // namespace ictvcf
