#include "algo/vcall/joint/joint_site.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>

#include "gvcf_events.h"

namespace {
constexpr char kReference[] = "ACGTACGTAC";

TEST(RecordCursor, AgreesWithAWalkOverAllRecords) {
  std::mt19937 random(5);
  for (int round = 0; round < 50; ++round) {
    std::vector<VCFLine> records(60);
    int32_t pos = -1;
    for (VCFLine& record : records) {
      record.pos = pos += static_cast<int32_t>(random() % 4);
      record.end = pos + 1 + static_cast<int32_t>(random() % (random() % 5 == 0 ? 80 : 5));
    }
    RecordCursor cursor;
    cursor.restart(records);
    for (int32_t position = 0; position < pos + 20; position += 1 + static_cast<int32_t>(random() % 3)) {
      const VCFLine* expected = nullptr;
      for (const VCFLine& record : records) {
        if (record.pos > position || record.end <= position) continue;
        if (!expected || (record.pos == position && expected->pos != position)) expected = &record;
      }
      ASSERT_EQ(cursor.at(position), expected) << "at " << position << " of round " << round;
    }
  }
}

TEST(AlleleUnion, RefusesMoreBasesThanMemoryShouldHold) {
  std::string many = "AC";
  for (int i = 0; i < 1500; ++i) many += ",AC" + std::string(static_cast<size_t>(i % 50) + 1, 'T');
  const std::string longest(60000, 'A');
  MadeEvents made;
  made.add(0, 1, longest, "A");
  made.add(0, 1, "A", many);
  AlleleUnion alleles;
  EXPECT_THROW(alleles.build(made.events, longest.data(), 60000), std::runtime_error);
}

TEST(SumLikelihoods, RefusesWrongCountsAndWhatWouldTakeTooLong) {
  AlleleUnion alleles;
  std::vector<double> scores(2, 0.0);
  for (const auto& [alts, column] : {std::pair("C,<NON_REF>", "0/1:1,2,3"), {"C", "0/0/0/0/1:9,8,7,6,5,4"}}) {
    MadeEvents made;
    made.add(0, 1, "A", alts, ".", "GT:PL", column);
    alleles.build(made.events, kReference, 1);
    EXPECT_THROW(sumLikelihoods(made.events[0], {0}, 4, scores), std::runtime_error) << column;
  }
}
}  // namespace
