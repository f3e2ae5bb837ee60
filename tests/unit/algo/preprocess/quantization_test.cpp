#include "algo/preprocess/quantization.h"

#include <gtest/gtest.h>
#include <set>

TEST(StaticQuantization, TakesTheNearerLevelByProbability) {
  for (const auto& levels : {std::vector<int>{10, 20}, {20, 10}}) {
    const auto up = staticQuantization(levels, false), down = staticQuantization(levels, true);
    // Rates at 6 and 10 are 0.251 and 0.1, their middle 0.1756 lies between 7 (0.1995) and 8 (0.158).
    const std::pair<int, int> expected[] = {{5, 5},   {6, 6},   {7, 6},   {8, 10},
                                            {10, 10}, {12, 10}, {14, 20}, {93, 20}};
    for (auto [q, level] : expected) EXPECT_EQ(up[q], level) << q;
    const std::pair<int, int> lower[] = {{9, 6}, {12, 10}, {14, 10}, {19, 10}, {20, 20}};
    for (auto [q, level] : lower) EXPECT_EQ(down[q], level) << q;
  }
}

TEST(Quantize, KeepsQualitiesThatFitTheLevels) {
  QualityCounts counts{};
  counts[12] = counts[23] = counts[37] = 1000000;
  const auto map = quantize(counts, 16);
  for (int q : {0, 1, 2, 5, 12, 23, 37}) EXPECT_EQ(map[q], q);
  EXPECT_EQ(std::set<int>(map.begin(), map.end()).size(), 16u);
  const auto identity = quantize(counts, 0);
  for (int q = 0; q < kRecalQualities; q++) EXPECT_EQ(identity[q], q);
}

TEST(Quantize, JoinsWhereLeastIsLost) {
  QualityCounts counts{};
  counts[30] = 1000000, counts[31] = 10, counts[40] = 1000000;
  const auto map = quantize(counts, 9);  // 0 to 5 and three more
  EXPECT_EQ(map[30], 30);
  EXPECT_EQ(map[31], 30);  // the few take the level of the many
  EXPECT_EQ(map[40], 40);
  for (int q = 1; q < kRecalQualities; q++) EXPECT_LE(map[q - 1], map[q]);
}
