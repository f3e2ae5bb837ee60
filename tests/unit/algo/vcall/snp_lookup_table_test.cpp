#include "algo/vcall/snp_lookup_table.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

#include "algo/vcall/model/genotype_index.h"

namespace {

// The probability of the observed bases when a true base was copied and the copy read, summed over all copies.
double direct(const GenotypeIndex& g, std::vector<std::pair<int, int>> reads) {
  const double pcr = g.ploidy == 2 ? 1e-4 : 0;
  double sum = 0;
  for (int truth = 0; truth < 4; ++truth)
    for (int copy = 0; copy < 4; ++copy) {
      double p = g.counts[size_t(truth)] * (copy == truth ? 1 - pcr : pcr / 3);
      for (const auto& [qual, base] : reads) {
        const double error = std::pow(10, -0.1 * qual);
        if (qual > 0 || reads.size() == 1) p *= base == copy ? 1 - error : error / 3;
      }
      sum += p;
    }
  return std::log10(sum / g.ploidy);
}

TEST(SNPLookupTable, RowsAreTheirFormula) {
  std::mt19937 rng(1);
  for (uint32_t ploidy = 1; ploidy <= 4; ++ploidy) {
    const SNPLookupTable table(ploidy, 3, ploidy == 2);
    EXPECT_EQ(table.stride() % 2, 0u);
    EXPECT_EQ(table.stride(), (table.genotypes() + 1) / 2 * 2);
    for (int trial = 0; trial < 300; ++trial) {
      const int q1 = int(3 + rng() % 80), b1 = int(rng() % 4), b2 = int(rng() % 4);
      const int q2 = trial % 10 == 0 ? 0 : int(3 + rng() % 80);
      const double* row = table.row(uint8_t(q1), uint8_t(b1));
      ASSERT_EQ(reinterpret_cast<uintptr_t>(row) % 16, 0u);
      for (GenotypeIndex g(ploidy, 4); !g.exhausted(); g.next()) {
        ASSERT_NEAR(row[g.index], direct(g, {{q1, b1}}), 1e-9) << q1 << ' ' << b1;
        if (ploidy != 2) continue;
        const double* pair = table.pairRow(uint8_t(q1), uint8_t(q2), uint8_t(b1), uint8_t(b2));
        ASSERT_NEAR(pair[g.index], direct(g, {{q1, b1}, {q2, b2}}), 1e-9) << q1 << ' ' << q2;
        ASSERT_EQ(pair[g.index], table.pairRow(uint8_t(q2), uint8_t(q1), uint8_t(b2), uint8_t(b1))[g.index]);
      }
    }
  }
}

TEST(SNPLookupTable, WhatIsNotCounted) {
  const SNPLookupTable table(2, 17, true);
  EXPECT_EQ(table.row(16, 0), nullptr);
  EXPECT_NE(table.row(17, 0), nullptr);
  for (char letter : {'N', 'a', '=', 'R', '\0'})
    EXPECT_EQ(table.row(40, baseIndex(letter)), nullptr) << letter;
  for (int g = 0; g < 10; ++g) EXPECT_EQ(table.pairRow(0, 0, 1, 2)[g], 0);
  EXPECT_EQ(SNPLookupTable(0, 17, false).stride(), 2u);
}

}  // namespace
