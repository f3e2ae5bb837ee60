// What contexts and cycles are is recomputed for random reads in the e2e tests of calibrated qualities.
#include "algo/preprocess/covariates.h"

#include <gtest/gtest.h>
#include <stdexcept>

TEST(Platforms, AreKnownInAnyCase) {
  EXPECT_EQ(platformIndex("Illumina"), 0);
  EXPECT_EQ(platformIndex("454"), 5);
  EXPECT_EQ(platformIndex("ONT"), -1);
  EXPECT_FALSE(isFlowPlatform(3));
  EXPECT_TRUE(isFlowPlatform(5));
  EXPECT_THROW(isFlowPlatform(4), std::runtime_error);
  EXPECT_THROW(isFlowPlatform(10), std::runtime_error);
}
