#include "algo/vcall/model/genotype_index.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {
// All genotypes as ascending allele lists, ordered by their highest allele, then the second highest and so on.
std::vector<std::vector<size_t>> enumerate(uint32_t ploidy, size_t alleles) {
  std::vector<std::vector<size_t>> all;
  size_t words = 1;
  for (uint32_t i = 0; i < ploidy; ++i) words *= alleles;
  for (size_t w = 0; w < words; ++w) {
    std::vector<size_t> g;
    for (size_t i = 0, rest = w; i < ploidy; ++i, rest /= alleles) g.push_back(rest % alleles);
    if (std::is_sorted(g.begin(), g.end())) all.push_back(g);
  }
  std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
    return std::lexicographical_compare(a.rbegin(), a.rend(), b.rbegin(), b.rend());
  });
  return all;
}

TEST(GenotypeIndex, WalksInVcfOrderAndFindsItsPlace) {
  for (uint32_t ploidy = 1; ploidy <= 6; ++ploidy)
    for (size_t alleles = 1; alleles <= 5; ++alleles) {
      SCOPED_TRACE(testing::Message() << ploidy << " chromosomes, " << alleles << " alleles");
      auto expected = enumerate(ploidy, alleles);
      ASSERT_EQ(GenotypeIndex::count(ploidy, alleles), expected.size());
      GenotypeIndex g(ploidy, alleles), placed(ploidy, alleles);
      for (size_t i = 0; i < expected.size(); ++i, g.next()) {
        ASSERT_EQ(g.index, int32_t(i));
        for (size_t a = 0; a < alleles; ++a) {
          ASSERT_EQ(g.counts[a], std::count(expected[i].begin(), expected[i].end(), a));
          placed.set(a, g.counts[a]);
        }
        placed.recalc();
        ASSERT_EQ(placed.index, int32_t(i));
      }
      ASSERT_TRUE(g.exhausted());
      ASSERT_EQ(g.counts, std::vector<int32_t>(alleles));
      g.next();
      ASSERT_TRUE(g.exhausted());
    }
}

TEST(GenotypeIndex, Limits) {
  EXPECT_TRUE(GenotypeIndex(0, 3).exhausted());
  EXPECT_TRUE(GenotypeIndex(2, 0).exhausted());
  EXPECT_EQ(GenotypeIndex::count(0, 3), 1u);
  EXPECT_EQ(GenotypeIndex::count(4000000000u, 2), 2147483647u);
  EXPECT_EQ(GenotypeIndex::count(100, 100), 2147483647u);
}
}  // namespace
