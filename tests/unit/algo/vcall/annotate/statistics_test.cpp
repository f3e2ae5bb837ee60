// statistics_test.cpp - the tests behind annotations, against enumeration and the values of other implementations.
#include <algorithm>
#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <vector>

#include "algo/vcall/annotate/hardy_weinberg.h"
#include "algo/vcall/annotate/rank_sum_test.h"
#include "algo/vcall/annotate/strand_table.h"

TEST(FisherTest, AgreesWithScipy) {
  struct Case {
    StrandTable table;
    double p;  // scipy.stats.fisher_exact([[a, b], [c, d]])[1], scipy 1.10.1
  };
  for (const auto& [t, p] : {Case{{10, 2, 3, 15}, 0.0005367241191434357},
                             {{8, 0, 0, 8}, 0.0001554001554001554},
                             {{0, 5, 0, 7}, 1},
                             {{1, 1, 1, 1}, 1},
                             {{0, 0, 0, 0}, 1},
                             {{100, 100, 50, 150}, 3.4920512601039007e-07},
                             {{200, 0, 100, 100}, 8.077999966565502e-38},
                             // above 400 reads: the value of the table that each comment gives
                             {{300, 100, 100, 300}, 1.454608823478521e-12},  // 75, 25, 25, 75
                             {{201, 100, 100, 1}, 1.53799643171787e-07},     // 100, 49, 49, 0
                             {{7500, 2500, 2500, 7500}, 1.454608823478521e-12}})
    EXPECT_NEAR(fisherP(t) / p, 1, 1e-9) << t.refForward << ' ' << t.refReverse;
}

TEST(StrandOddsRatioTest, IsSymmetricAndSafeAtZeros) {
  EXPECT_DOUBLE_EQ(strandOddsRatio({}), std::log(2));
  // With 1 added 11 1 / 6 6: r = 11, ratios 1 / 11 and 1.
  EXPECT_NEAR(strandOddsRatio({10, 0, 5, 5}), std::log((11 + 1 / 11.0) / 11), 1e-12);
  EXPECT_NEAR(strandOddsRatio({5, 5, 10, 0}), std::log((11 + 1 / 11.0) * 11), 1e-12);
  EXPECT_NEAR(strandOddsRatio({40, 3, 7, 9}), strandOddsRatio({3, 40, 9, 7}), 1e-12);
}

// Every way to give `rare` of the 2 * samples chromosomes the rare allele is equally likely.
TEST(ExcessHetTest, AgreesWithEnumeration) {
  for (int samples = 1; samples <= 8; ++samples) {
    std::map<int, std::map<int, int>> ways;  // by rare copies, then heterozygotes
    for (uint32_t set = 0; set < 1u << (2 * samples); ++set) {
      const uint32_t pairs = 0x5555;
      ++ways[std::popcount(set)][std::popcount((set ^ set >> 1) & pairs & ((1u << (2 * samples)) - 1))];
    }
    for (const auto& [alts, hets] : ways) {
      double total = 0, tail = 0;
      for (const auto& [het, count] : hets) total += count;
      for (auto i = hets.rbegin(); i != hets.rend(); ++i) {
        tail += i->second;
        const int alt_homs = (alts - i->first) / 2;
        EXPECT_NEAR(excessHetP({samples - i->first - alt_homs, i->first, alt_homs}), tail / total, 1e-12)
            << samples << ' ' << alts << ' ' << i->first;
      }
    }
  }
}

TEST(ExcessHetTest, StaysExactInLargeCohorts) {
  struct Case {
    GenotypeClassCounts counts;
    double phred;  // from whole numbers of any size
  };
  for (const auto& [counts, phred] : {Case{{57, 34, 9}, 0.32212020},
                                      {{100, 120, 30}, 5.04541987},
                                      {{1000, 2700, 1300}, 87.46311185},
                                      {{1200, 2650, 1150}, 49.05756049},
                                      {{4000, 1000, 0}, 241.51788160},
                                      {{2500, 0, 2500}, 0}})
    EXPECT_NEAR(-10 * std::log10(excessHetP(counts)), phred, 1e-7) << counts.het;
  EXPECT_EQ(excessHetP({0, 0, 0}), 1);
  EXPECT_EQ(excessHetP({0, 5000, 0}), 0);  // about 1e-1504
}

TEST(RankSumTest, AgreesWithScipy) {
  struct Case {
    std::vector<int32_t> values, others;
    double z;  // norm.isf(mannwhitneyu(values, others, False, "greater", method="asymptotic").pvalue)
  };
  for (auto& [values, others, z] : std::vector<Case>{{{32, 30, 31}, {20, 23, 21, 22}, 2.1213203436},
                                                     {{20, 10, 30, 20}, {20, 40, 20, 30, 40}, -1.4200938936},
                                                     {{5, 1, 1, 1}, {1, 1, 2, 1, 1}, 0.3354101966},
                                                     {{60}, {60, 0, 60}, 0.5773502692},
                                                     {{7, 7}, {7, 7, 7}, 0},
                                                     {{}, {1}, 0}})
    EXPECT_NEAR(rankSumZ(values, others), z, 1e-9);
}

// Over all choices of three among seven values with ties, Z is U brought to its own mean and variance.
TEST(RankSumTest, IsStandardUnderTheNullWithTies) {
  const std::vector<int32_t> pool = {1, 1, 2, 3, 3, 3, 5};
  std::vector<double> us, zs;
  for (uint32_t set = 0; set < 1u << pool.size(); ++set) {
    if (std::popcount(set) != 3) continue;
    std::vector<int32_t> values, others;
    for (size_t i = 0; i < pool.size(); ++i) (set >> i & 1 ? values : others).push_back(pool[i]);
    double u = 0;
    for (int32_t x : values)
      for (int32_t y : others) u += x > y ? 1 : x == y ? 0.5 : 0;
    us.push_back(u);
    zs.push_back(rankSumZ(values, others));
  }
  double mean = 0, variance = 0;
  for (double u : us) mean += u / double(us.size());
  for (double u : us) variance += (u - mean) * (u - mean) / double(us.size());
  for (size_t i = 0; i < us.size(); ++i) EXPECT_NEAR(zs[i], (us[i] - mean) / std::sqrt(variance), 1e-12);
}

TEST(RankSumTest, HoldsAtGreatDepth) {
  std::vector<int32_t> low(50000), high(50000);
  for (int32_t i = 0; i < 50000; ++i) low[size_t(i)] = i, high[size_t(i)] = 50000 + i;
  const double n = 50000;
  EXPECT_NEAR(rankSumZ(high, low), n * n / 2 / std::sqrt(n * n * (2 * n + 1) / 12), 1e-9);
  EXPECT_NEAR(rankSumZ(low, high), -n * n / 2 / std::sqrt(n * n * (2 * n + 1) / 12), 1e-9);
}
