#include "algo/vcall/debug_positions.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

TEST(DebugPositions, NamesOfContigsMayHoldTheSigns) {
  const DebugPositions positions("chr1:100,chr1:150#2,HLA-A*01:01#x:7#1");
  EXPECT_EQ(positions.levelIn("chr1", 99, 100), kDebugRegions);
  EXPECT_EQ(positions.levelIn("chr1", 100, 149), kNoDebug);
  EXPECT_EQ(positions.levelIn("chr1", 0, 150), kDebugGraphs);
  EXPECT_EQ(positions.levelIn("HLA-A*01:01#x", 6, 7), kDebugAssembly);
  EXPECT_EQ(positions.levelIn("chr2", 0, 1000), kNoDebug);
}

TEST(DebugPositions, OtherTextIsRefused) {
  for (const char* text : {"", ",", "chr1", ":5", "chr1:", "chr1:0", "chr1:-4", "chr1:5x", "chr1:4294967296",
                           "chr1:5#", "chr1:5#4", "chr1:5#-1", "chr1:5 ,chr1:6", "chr1:5,"})
    EXPECT_THROW((void)DebugPositions(text), std::invalid_argument) << text;
}

}  // namespace
