#include "base/log_math.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(LogMath, TablesHold200AtStartAndGrow) {
  EXPECT_GE(log10Table.size(), 201u);
  EXPECT_EQ(log10Of(0), -kInf);
  EXPECT_NEAR(log10Factorial(200), std::lgamma(201.0) / std::log(10.0), 1e-9);
  growLogTables(30001);
  growLogTables(10);
  EXPECT_EQ(log10Of(30000), std::log10(30000.0));
  EXPECT_NEAR(log10Choose(30000, 2), std::log10(30000.0 * 29999 / 2), 1e-8);
  EXPECT_DEATH(log10Of(30001), "log10Table");
  EXPECT_DEATH(log10Of(-1), "log10Table");
}

TEST(LogMath, FastSumStaysNearTheExactOne) {
  for (double a : {-300.0, -2.5, 0.0, 4.0})
    for (double ahead = 0; ahead < 9; ahead += 0.00317) {
      double pair[] = {a, a - ahead};
      ASSERT_NEAR(log10SumFast(a, a - ahead), log10SumExact(pair, pair + 2), 3e-5) << a << ' ' << ahead;
      ASSERT_EQ(log10SumFast(a, a - ahead), log10SumFast(a - ahead, a));
    }
  EXPECT_EQ(log10SumFast(-1, -9), -1);  // from 8 on the lower one is nothing
  EXPECT_GT(log10SumFast(-1, -8.9999), -1);
  EXPECT_EQ(log10SumFast(-kInf, -3), -3);
  EXPECT_EQ(log10SumFast(-kInf, -kInf), -kInf);
}

TEST(LogMath, ExactSumAndNormalisation) {
  double values[] = {-1000, -1000, -kInf, -1000 + std::log10(2.0)};
  EXPECT_NEAR(log10SumExact(values, values + 4), -1000 + std::log10(4.0), 1e-12);
  EXPECT_EQ(log10SumExact(values, values), -kInf);
  EXPECT_EQ(log10SumExact(values + 2, values + 3), -kInf);
  normalizeLog10(values, values + 4);
  EXPECT_NEAR(values[0], std::log10(0.25), 1e-12);
  EXPECT_NEAR(values[3], std::log10(0.5), 1e-12);
  EXPECT_EQ(values[2], -kInf);
  normalizeLog10(values + 2, values + 3);  // nothing to sum: as it was
  EXPECT_EQ(values[2], -kInf);
}
}  // namespace
