#include "algo/preprocess/dedup_metrics.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

TEST(LibrarySize, IsThatOfPicard) {
  EXPECT_EQ(estimateLibrarySize(6090, 78, 38), 455814);
  EXPECT_NEAR(double(estimateLibrarySize(20636, 4446, 462)), 44105, 1);
  EXPECT_EQ(estimateLibrarySize(100, 10, 10), 0);
  EXPECT_EQ(estimateLibrarySize(100, 100, 0), 0);
}

}  // namespace
