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

TEST(LibrarySize, SolvesItsEquationFromFewCopiesToMany) {
  for (const int64_t pairs : {10LL, 1000LL, 1000000LL, 3000000000LL})
    for (const double rate : {0.0, 0.3, 0.999}) {
      const auto lost = std::max<int64_t>(1, std::llround(rate * double(pairs)));
      if (lost >= pairs) continue;
      const auto size = double(estimateLibrarySize(pairs, lost, 0));
      EXPECT_NEAR(-size * std::expm1(-double(pairs) / size), double(pairs - lost), 0.5)
          << pairs << " " << lost;
    }
}

TEST(Histogram, ValuesFallIntoBins) {
  LocusStat::Histogram a, b;
  for (double value : {0.0, 1.0, 1.5, 3.0}) a.add(value);
  b.add(5);
  a += b;
  EXPECT_EQ(a.bins, (std::vector<uint32_t>{2, 1, 1, 0, 1}));
  EXPECT_EQ(a.maximum, 5);
}

}  // namespace
