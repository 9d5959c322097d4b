// The sort behind the log's mode tables: the order of equal keys is part of what the log shows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "vibronic/indexx.h"

namespace ictvcf {
namespace {

std::vector<std::int32_t> sorted(const std::vector<double>& a) {
  std::vector<std::int32_t> idx(a.size());
  indexx(static_cast<int>(a.size()), a.data(), idx.data());
  return idx;
}

// Insertion alone (n <= 7) keeps equal keys in order; beyond it the partitioning decides, here
// worked through by hand (median of three, then insertion of both halves).
TEST(Indexx, OrderOfEqualKeys) {
  EXPECT_EQ(sorted({}), std::vector<std::int32_t>{});
  EXPECT_EQ(sorted({2.0, 1.0, 2.0, 1.0, 0.5}), (std::vector<std::int32_t>{5, 2, 4, 1, 3}));
  EXPECT_EQ(sorted({1, 1, 1, 1, 1, 1, 1, 1, 1}),
            (std::vector<std::int32_t>{1, 6, 8, 7, 5, 2, 4, 3, 9}));
}

TEST(Indexx, NotANumberKeysTerminate) {
  std::vector<double> a(40, 1.0);
  for (int i = 0; i < 40; i += 3) a[i] = std::nan("");
  std::vector<std::int32_t> idx = sorted(a);
  std::sort(idx.begin(), idx.end());
  for (int k = 0; k < 40; ++k) EXPECT_EQ(idx[k], k + 1);
}

}  // namespace
}  // namespace ictvcf
