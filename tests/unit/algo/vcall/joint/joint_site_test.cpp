#include "algo/vcall/joint/joint_site.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>

#include "gvcf_events.h"

namespace {
constexpr char kReference[] = "ACGTACGTAC";

using Indexes = std::vector<int32_t>;

std::vector<std::string> textsOf(const AlleleUnion& alleles) {
  std::vector<std::string> texts;
  for (const Allele& alt : alleles.alts()) texts.emplace_back(alt.bases, alt.length);
  return texts;
}

Indexes indexesOf(const Event& event) {
  Indexes indexes;
  for (const EventAllele& alt : event.alts) indexes.push_back(alt.index);
  return indexes;
}

// ---- records ----

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

TEST(Event, CutsAlternates) {
  MadeEvents made;
  const Event event = made.add(1, 2, "CG", "C,<NON_REF>,*,<*:DEL>,<DUP>,]chr2:5]C,,cgA", "DP=3");
  EXPECT_TRUE(event.starts);
  EXPECT_FALSE(event.isBlock);
  EXPECT_EQ(event.nonRef, 1);
  std::vector<int32_t> lengths;
  for (const EventAllele& alt : event.alts) lengths.push_back(alt.allele.length);
  EXPECT_EQ(lengths, (std::vector<int32_t>{1, 1, 1, 1, 1, 0, 0, 3}));

  const Event& block = made.add(5, 2, "C", "<NON_REF>", "DP=1;END=9");
  EXPECT_TRUE(block.isBlock);
  EXPECT_FALSE(block.starts);
  EXPECT_TRUE(made.add(5, 2, "C", ".").alts.empty());

  for (const char* alt : {"A", "<NON_REF>,A", "*,<DEL>,a"})
    EXPECT_TRUE(hasBaseAlternate(*made.add(1, 2, "C", alt).line));
  for (const char* alt : {".", "<NON_REF>", "*,<NON_REF>", "<*:DEL>,,"})
    EXPECT_FALSE(hasBaseAlternate(*made.add(1, 2, "C", alt).line));
}

// ---- union ----

TEST(AlleleUnion, PadsShorterAllelesAndJoinsEqualOnes) {
  MadeEvents made;
  made.add(0, 1, "A", "C,<NON_REF>");
  made.add(0, 1, "ACG", "A,CCG,<NON_REF>");
  made.add(0, 1, "AC", "CC,A,AC,<NON_REF>");
  made.add(0, 1, "A", "<NON_REF>", "END=9");
  made.events.emplace_back().assign(nullptr, 0);
  AlleleUnion alleles;
  alleles.build(made.events, kReference, 3);
  EXPECT_EQ(textsOf(alleles), (std::vector<std::string>{"CCG", "A", "AG"}));
  EXPECT_EQ(indexesOf(made.events[0]), (Indexes{1, -1}));
  EXPECT_EQ(indexesOf(made.events[1]), (Indexes{2, 1, -1}));
  EXPECT_EQ(indexesOf(made.events[2]), (Indexes{1, 3, 0, -1}));
  EXPECT_EQ(indexesOf(made.events[3]), Indexes{-1});
}

TEST(AlleleUnion, DeletedPositionsHaveAStar) {
  MadeEvents made;
  made.add(2, 1, "ACGT", "A,ACG,ACGTT,ACGA,<*:DEL>,<NON_REF>");  // from further up
  made.add(2, 3, "G", "<*:DEL>,T,<DUP>,<NON_REF>");
  made.add(2, 3, "G", "*,T");
  made.add(2, 1, "A", "<NON_REF>", "END=9");
  AlleleUnion alleles;
  alleles.build(made.events, kReference + 2, 1);
  EXPECT_EQ(textsOf(alleles), (std::vector<std::string>{"T", "*"}));
  EXPECT_EQ(indexesOf(made.events[0]), (Indexes{2, 2, -1, -1, 2, -1}));
  EXPECT_EQ(indexesOf(made.events[1]), (Indexes{2, 1, -1, -1}));
  EXPECT_EQ(indexesOf(made.events[2]), (Indexes{2, 1}));
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

// ---- too many ----

TEST(AlleleUnion, KeepsTheBestAndOfEqualsTheFirst) {
  const auto keptOf = [](std::vector<double> scores, size_t limit) {
    MadeEvents made;
    made.add(0, 1, "A", "C,G,T,AC,<NON_REF>");
    AlleleUnion alleles;
    alleles.build(made.events, kReference, 1);
    scores.insert(scores.begin(), 0);
    alleles.keepBest(made.events, scores, limit);
    std::vector<std::string> expected;
    for (const EventAllele& alt : made.events[0].alts)
      if (alt.index > 0) expected.emplace_back(alt.allele.bases, alt.allele.length);
    EXPECT_EQ(textsOf(alleles), expected);
    return indexesOf(made.events[0]);
  };
  EXPECT_EQ(keptOf({-5, -9, -9, -1}, 1), (Indexes{-1, 1, -1, -1, -1}));
  EXPECT_EQ(keptOf({-5, -9, -9, -1}, 3), (Indexes{1, 2, 3, -1, -1}));
  EXPECT_EQ(keptOf({-5, -5, -9, -5}, 2), (Indexes{1, -1, 2, -1, -1}));
  EXPECT_EQ(keptOf({-1, -2, -3, -4}, 4), (Indexes{1, 2, 3, 4, -1}));
  EXPECT_EQ(keptOf({-1, -2, -3, -4}, 0), (Indexes{-1, -1, -1, -1, -1}));
}

TEST(SumLikelihoods, TakesTheBestGenotypeWithAListedAlternate) {
  MadeEvents made;
  // 0/0 0/1 1/1 0/2 1/2 2/2, allele 3 is <NON_REF>
  made.add(0, 1, "A", "C,G,<NON_REF>", ".", "GT:PL",
           "1/2:90,60,50,40,0,70,95,95,95,95\t"  // C and G
           "0/1:50,0,60,55,65,75,95,95,95,95\t"  // C
           "0/0:0,30,60,30,60,75,95,95,95,95\t"  // none
           "0/0:9,9,9,9,9,9,0,9,9,9\t"           // <NON_REF> is not listed
           "./.:.\t1:80,40,70,90\t0|1:9,1,9,9,9,9,9,9,9,9");
  AlleleUnion alleles;
  alleles.build(made.events, kReference, 1);
  std::vector<double> scores(3, 0.0);
  sumLikelihoods(made.events[0], {0, 1, 2, 3, 4, 5, -1}, 4, scores);
  EXPECT_EQ(scores, (std::vector<double>{0, -90 - 50 - 40, -90}));

  MadeEvents deleted;  // "*" is the first of its alleles alone
  deleted.add(1, 1, "ACG", "A,AC,<NON_REF>", ".", "GT:PL", "1:50,30,0,90");
  alleles.build(deleted.events, kReference + 1, 1);
  scores.assign(2, 0.0);
  sumLikelihoods(deleted.events[0], {0}, 4, scores);
  EXPECT_EQ(scores[1], -20);

  MadeEvents wrong;
  wrong.add(0, 1, "A", "C,<NON_REF>", ".", "GT:PL", "0/1:1,2,3");
  alleles.build(wrong.events, kReference, 1);
  EXPECT_THROW(sumLikelihoods(wrong.events[0], {0}, 4, scores), std::runtime_error);

  MadeEvents many;  // genotypes that would take too long to walk through
  many.add(0, 1, "A", "C", ".", "GT:PL", "0/0/0/0/1:9,8,7,6,5,4");
  alleles.build(many.events, kReference, 1);
  EXPECT_THROW(sumLikelihoods(many.events[0], {0}, 4, scores), std::runtime_error);
}
}  // namespace
