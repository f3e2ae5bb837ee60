#include "algo/preprocess/empirical_quality.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

RecalCounts counts(uint64_t observations, double errors) {
  return {observations, std::lrint(errors * 16777216)};
}

}  // namespace

TEST(EmpiricalQuality, ScalesCountsThatPassTheLimit) {
  const double n = 1e12;
  EXPECT_EQ(empiricalQuality(counts(uint64_t(n), n * 1e-3 / 4), 30), 36);
  EXPECT_EQ(empiricalQuality({UINT64_MAX, INT64_MAX}, 40), 60);
}

TEST(EmpiricalQuality, GivesZeroForMoreErrorsThanBases) {
  EXPECT_EQ(empiricalQuality(counts(10, 1000), 30), 0);
}

TEST(ObservedQuality, IsThatOfTheRate) {
  EXPECT_NEAR(observedQuality(counts(9998, 9)), 30, 1e-9);
  EXPECT_NEAR(observedQuality({}), 3.0103, 1e-4);
}
