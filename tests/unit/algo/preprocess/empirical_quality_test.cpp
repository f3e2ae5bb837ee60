#include "algo/preprocess/empirical_quality.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

RecalCounts counts(uint64_t observations, double errors) {
  return {observations, std::lrint(errors * 16777216)};
}

}  // namespace

// Worked by hand: with 2 trials and 1 error the likelihoods of neighbours differ by about 0.1, the prior at
// distance 1 costs 0.87.
TEST(EmpiricalQuality, StaysAtThePriorWithoutObservations) {
  for (int q = 1; q <= 60; q++) EXPECT_EQ(empiricalQuality({}, q), q);
  EXPECT_EQ(empiricalQuality({}, 93), 60);
}

TEST(EmpiricalQuality, FollowsTheCountsWhenThereAreMany) {
  for (int q = 2; q <= 40; q++)
    for (double prior : {2.0, 25.3, 60.0})
      EXPECT_EQ(empiricalQuality(counts(1000000000, 1e9 * std::pow(10, -0.1 * q)), prior), q) << prior;
}

// By hand, in log10: of 1000 bases with 10 errors the likelihood is -26.3 at 20, -31.5 at 28, -32.4 at 29 and -33.4 at
// 30; the prior of 30 adds -86.9, -3.5, -0.9 and 0.
TEST(EmpiricalQuality, MovesBetweenPriorAndCounts) {
  EXPECT_EQ(empiricalQuality(counts(1000, 10), 30), 29);
  EXPECT_EQ(empiricalQuality(counts(1000, 10), 20.9), 20);  // cut, not rounded, towards the prior
}

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
