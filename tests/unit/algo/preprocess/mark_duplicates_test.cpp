// Which reads are marked is judged anew, for a whole file, in the e2e tests of Dedup.
#include "algo/preprocess/mark_duplicates.h"

#include <gtest/gtest.h>

#include "read_builder.h"

namespace {

TEST(OpticalDuplicates, AreJoinedInStepsOfTheDistance) {
  const auto count = [](std::initializer_list<const char*> names) {
    OpticalDuplicates optical(100);
    for (const char* name : names) optical.add(0, name);
    return optical.count();
  };
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:1:100:100"}), 1);
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:1:101:0"}), 0);
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:1:0:101"}), 0);
  EXPECT_EQ(count({"A:B:1:0:0", "A:B:2:0:0"}), 0);
  EXPECT_EQ(count({"A:B:1:5:5", "A:B:1:5:5", "A:B:1:90:5", "A:B:1:5:5", "A:B:2:5:5"}), 3);
  EXPECT_EQ(count({"A:1:2:3", "A:1:2:3"}), 0);  // a colon too few
  EXPECT_EQ(count({"A:B:1:x:0", "A:B:-1:0:0", "A:B:40000:0:0", "A:B:40000:0:0", ""}), 0);
  EXPECT_EQ(count({"A:B:C:1:0:0", "A:B:C:1:2147483647:5", "A:B:C:1:2147483600:5/1"}), 1);
  // A chain, of which two clusters become one by the last that is looked at; and one apart.
  EXPECT_EQ(
      count({"A:B:1:0:0", "A:B:1:10:200", "A:B:1:20:400", "A:B:1:60:100", "A:B:1:61:300", "A:B:1:62:600"}),
      4);
}

}  // namespace
