#include "algo/vcall/joint/attribute_merge.h"

#include <gtest/gtest.h>
#include <stdexcept>

#include "gvcf_events.h"

namespace {
VariantAttr merged(const MadeEvents& made) {
  AttributeMerge merge;
  for (const Event& event : made.events) merge.add(event);
  VariantContext record;
  merge.annotateAttributes(record);
  return record.info;
}

using Values = std::vector<std::string>;

TEST(AttributeMerge, SumsAndMedians) {
  MadeEvents made;
  made.add(5, 6, "A", "C",
           "DP=10;RAW_MQ=36000.5;MQ=7;Rank=-1.5;N=4;AC=1;QD=3;END=6;DB;List=1,2;Word=x;Big=1e5;Odd=nan");
  made.add(5, 6, "A", "C", "DP=5;Rank=2;N=10;RAW_MQ=0x10");
  made.add(5, 6, "A", "C", "N=6;N2=-3;Wide=99999999999");
  made.add(5, 4, "ACGT", "A", "DP=7;N=1000;RAW_MQ=1");
  made.events.emplace_back().assign(nullptr, 5);
  VariantAttr info = merged(made);
  EXPECT_EQ(info["DP"], Values{"22"});
  EXPECT_EQ(info["RAW_MQ"], Values{"36016.50"});
  EXPECT_EQ(info["MQ"], Values{"49.00"});  // of the two records that have both
  EXPECT_EQ(info["Rank"], Values{"2.00"});
  EXPECT_EQ(info["N"], Values{"6"});
  EXPECT_EQ(info["N2"], Values{"-3.00"});
  EXPECT_EQ(info["Big"], Values{"100000.00"});
  EXPECT_EQ(info["Wide"], Values{"2147483647"});
  EXPECT_EQ(info.size(), 8u);
}

TEST(AttributeMerge, DepthIsAnInteger) {
  MadeEvents made;
  AttributeMerge merge;
  merge.add(made.add(5, 6, "A", "C", "MQ=3"));
  EXPECT_FALSE(merge.hasDepth());
  merge.add(made.add(5, 6, "A", "C", "DP=0"));
  EXPECT_TRUE(merge.hasDepth());
  merge.clear();
  EXPECT_FALSE(merge.hasDepth());
  EXPECT_THROW(merge.add(made.add(5, 6, "A", "C", "DP=1.5")), std::runtime_error);
}
}  // namespace
