#include "algo/vcall/joint/genotype_merge.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>

#include "algo/vcall/model/genotype_index.h"
#include "gvcf_events.h"

namespace {
constexpr uint32_t kMaxPloidy = 4;

std::string joined(const std::vector<int32_t>& values) {
  std::string text;
  for (const int32_t value : values) text += (text.empty() ? "" : ",") + std::to_string(value);
  return text;
}

std::string genotypeText(uint32_t ploidy) {
  std::string text = "0";
  for (uint32_t i = 1; i < ploidy; ++i) text += "/0";
  return text;
}

// One sample, of one event after the other.
JointSamples merged(const std::vector<Event>& events, size_t alleles) {
  GenotypeMerge merge(kMaxPloidy);
  JointSamples samples;
  samples.clear({2});
  for (const Event& event : events) merge.add(event, {0}, alleles, samples);
  return samples;
}

std::vector<int> phred(const std::vector<double>& gl) {
  std::vector<int> values;
  for (const double value : gl) values.push_back(static_cast<int>(std::lround(-10 * value)));
  return values;
}

TEST(GenotypeMerge, RemapsAsCountingDoes) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    const uint32_t ploidy = 1 + random() % kMaxPloidy;
    const size_t own = 1 + random() % 4,
                 alleles = 1 + own + random() % 3;  // alternates; the union's with REF
    std::vector<int32_t> pl(GenotypeIndex::count(ploidy, own + 2));
    for (int32_t& value : pl) value = static_cast<int32_t>(random() % 1000);
    MadeEvents made;
    const std::vector<std::string> texts = {"C", "G", "T", "AC"};
    std::string alt;
    for (size_t i = 0; i < own; ++i) alt += texts[i] + ",";
    Event& event =
        made.add(0, 1, "A", alt + "<NON_REF>", ".", "GT:PL", genotypeText(ploidy) + ":" + joined(pl));
    std::vector<int32_t> places(alleles - 1);
    for (size_t i = 0; i < places.size(); ++i) places[i] = static_cast<int32_t>(i) + 1;
    std::shuffle(places.begin(), places.end(), random);
    std::vector<size_t> map(alleles, own + 1);
    map[0] = 0;
    for (size_t i = 0; i < own; ++i) {
      if (random() % 5 == 0) continue;  // dropped
      event.alts[i].index = places[i];
      map[static_cast<size_t>(places[i])] = i + 1;
    }
    const JointSamples samples = merged(made.events, alleles);
    ASSERT_EQ(samples.likelihoods[0].ploidy, ploidy);
    std::vector<int> expected;
    for (GenotypeIndex out(ploidy, alleles); !out.exhausted(); out.next()) {
      GenotypeIndex in(ploidy, own + 2);
      std::fill(in.counts.begin(), in.counts.end(), 0);
      for (size_t a = 0; a < alleles; ++a) in.counts[map[a]] += out.counts[a];
      in.recalc();
      expected.push_back(pl[static_cast<size_t>(in.index)]);
    }
    ASSERT_EQ(phred(samples.likelihoods[0].gl), expected) << "round " << round;
  }
}

TEST(GenotypeMerge, ABlockSpreadsOverAllAlleles) {
  MadeEvents made;
  made.add(4, 1, "A", "<NON_REF>", "END=9", "GT:DP:GQ:MIN_DP:PL", "0/0:30:20:25:0,20,200");
  const JointSamples samples = merged(made.events, 3);
  EXPECT_EQ(phred(samples.likelihoods[0].gl), (std::vector<int>{0, 20, 200, 20, 200, 200}));
  EXPECT_EQ(samples.counts[0].depth, 25);
  EXPECT_TRUE(samples.counts[0].ad.empty());
  EXPECT_TRUE(samples.attrs[0].empty());
}

TEST(GenotypeMerge, WithoutNonRefAnUnknownAlleleIsUnlikely) {
  MadeEvents made;
  Event& event = made.add(0, 1, "A", "C", ".", "GT:PL", "0/1:30,0,50");
  event.alts[0].index = 2;
  EXPECT_EQ(phred(merged(made.events, 3).likelihoods[0].gl), (std::vector<int>{30, 50, 50, 0, 50, 50}));
  MadeEvents reference;
  reference.add(0, 1, "A", ".", ".", "GT:PL", "0/0:0");
  EXPECT_TRUE(merged(reference.events, 2).likelihoods[0].gl.empty());
  EXPECT_EQ(merged(reference.events, 1).likelihoods[0].gl.size(), 1u);
}

TEST(GenotypeMerge, TheLikeliestOfTwoDeletionsIsTheStar) {
  for (const auto& [pl, expected] : {std::pair{"50,40,30,45,35,20,99,99,99,99", std::vector<int>{50, 45, 20}},
                                     {"50,40,20,45,35,20,99,99,99,99", {50, 40, 20}}}) {
    MadeEvents made;
    Event& event = made.add(1, 1, "ACG", "A,AC,<NON_REF>", ".", "GT:PL", "0/1:" + std::string(pl));
    event.alts[0].index = event.alts[1].index = 1;
    EXPECT_EQ(phred(merged(made.events, 2).likelihoods[0].gl), expected);
  }
}

TEST(GenotypeMerge, RecordsOfOneSampleAddUp) {
  MadeEvents made;
  made.add(0, 1, "A", "C,<NON_REF>", ".", "GT:AD:DP:PL:SB:PID:PGT",
           "0/1:3,4,1:9:20,0,30,40,50,60:1,2,3,4:1_A_C:0|1")
      .alts[0]
      .index = 2;
  made.add(0, 1, "A", "<NON_REF>", "END=7", "GT:AD:DP:PL:SB:PID", "0/0:9,9:5:0,1,2:9,9,9,9:x");
  made.add(0, 1, "A", "C,<NON_REF>", ".", "GT:AD:DP:PL:SB:FT", "0:3,.,1:.:20,0,30:1,1,1,1:.").alts[0].index =
      2;
  const JointSamples samples = merged(made.events, 3);
  EXPECT_EQ(phred(samples.likelihoods[0].gl),
            (std::vector<int>{20, 41, 62, 1, 52, 32}));  // the third has other ploidy
  EXPECT_EQ(samples.counts[0].ad, (std::vector<int32_t>{6, 0, 4}));
  EXPECT_EQ(samples.counts[0].depth, 14);
  EXPECT_EQ(samples.strands[0], (StrandCounts{2, 3, 4, 5}));
  EXPECT_EQ(samples.attrs[0], (std::vector<SampleAttr>{{"PID", "1_A_C"}, {"PGT", "0|1"}}));
}

TEST(GenotypeMerge, ColumnsFollowTheirMap) {
  MadeEvents made;
  made.add(0, 1, "A", "<NON_REF>", "END=7", "GT:PL", "0/0:0,3,9\t0:0,5\t./.\t.:0,1,2\t0/0\t0/0:.,.,.");
  GenotypeMerge merge(kMaxPloidy);
  JointSamples samples;
  samples.clear({2, 2, 2, 2, 2, 3});
  merge.add(made.events[0], {1, 0, -1, 2, 3, 4, 5}, 2, samples);
  std::vector<size_t> sizes;
  for (const GenotypeLikelihoods& likelihoods : samples.likelihoods) sizes.push_back(likelihoods.gl.size());
  EXPECT_EQ(sizes, (std::vector<size_t>{2, 3, 0, 0, 0, 0}));
  EXPECT_EQ(samples.likelihoods[0].ploidy, 1u);
  EXPECT_EQ(samples.likelihoods[5].ploidy, 3u);
}

TEST(GenotypeMerge, TellsWhereValuesAreWrong) {
  for (const auto& [sample, text] :
       {std::pair{"0/1:1,2:3:0,1,2", "PL of sample 1 has 3 values, not the 6"},
        {"0/1:1,2:3:0,1,2,3,4,x", "PL of sample 1 has an element 'x'"},
        {"0/1:1,2:3:0,1,2,3,4,-5", "element '-5'"},
        {"0/1:1,2:3:0,1,2,3,4,99999999999", "element '99999999999'"},
        {"0/1:1,2:3:0,1,2,3,4,5", "AD has 2 values"},
        {"0/1:1,2,3:many", "DP of sample 1 has an element 'many'"},
        {"0/0/0/0/0:1,2,3:3:0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20", "ploidy 5"}}) {
    MadeEvents made;
    made.add(41, 42, "A", "C,<NON_REF>", ".", "GT:AD:DP:PL", sample);
    try {
      merged(made.events, 2);
      ADD_FAILURE() << sample;
    } catch (const std::runtime_error& failure) {
      EXPECT_THAT(failure.what(), testing::HasSubstr(text));
      EXPECT_THAT(failure.what(), testing::HasSubstr("chr1:42"));
    }
  }
}
}  // namespace
