#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "algo/algo.h"

namespace {

// A linker that drops an algorithm's object file drops it from here too.
TEST(Registry, HoldsExactlyTheAlgorithmsThatWork) {
  std::vector<std::string> names;
  for (const auto& [name, builder] : AlgoBuilder::registry()) {
    names.push_back(name);
    EXPECT_EQ(builder->tag, name);
    EXPECT_TRUE(builder->visible());
  }
  EXPECT_THAT(names, testing::ElementsAre("AlignmentStat", "ApplyVarCal", "Dedup", "GVCFtyper", "Genotyper",
                                          "Haplotyper", "LocusCollector", "QualCal", "ReadWriter",
                                          "TNhaplotyper", "VarCal"));
}

}  // namespace
