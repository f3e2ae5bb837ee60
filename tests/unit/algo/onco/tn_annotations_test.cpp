#include "algo/onco/tn_annotations.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "locus_maker.h"

namespace {

TEST(TandemRepeat, ByHand) {
  const struct {
    const char *bases, *ref, *alt;  // the event begins at offset 2 of the window
    const char* unit;               // empty: no repeat
    std::vector<int> repeats;
    bool contraction;
  } cases[] = {
      {"GTCAAAAG", "CA", "C", "A", {4, 3}, true},
      {"GTCAAAAG", "C", "CAA", "A", {4, 6}, false},
      {"GTCAAG", "CA", "C", "A", {2, 1}, false},          // leaves one
      {"GTCAG", "CA", "C", "", {}, false},                // leaves none
      {"GTCAG", "C", "CA", "A", {1, 2}, false},           // doubles
      {"GTCGTA", "C", "CA", "", {}, false},               // inserts something new
      {"GTCACACACT", "CACAC", "C", "AC", {3, 1}, false},  // two units
      {"GTCACACACT", "CAC", "C", "AC", {3, 2}, true},
      {"GTCACACAACACAT", "CACACA", "C", "ACACA", {2, 1}, false},
      {"GTCAAAAAG", "CAA", "CA", "A", {5, 4}, true},  // REF and ALT share more than the anchor
      {"AACACTG", "CAC", "C", "AC", {2, 1}, false},   // a copy lies before the event
      {"GTCACGTTGACGTTGA", "CACGTTG", "C", "ACGTTG", {2, 1}, false},
      {"GTCACGTTGCACGTTGC", "CACGTTGC", "C", "", {}, false},  // a unit of 7
      {"GTCAAAAG", "C", "T", "", {}, false},
      {"GTCAAAAG", "CA", "TT", "", {}, false},
      {"GTACACACT", "ACAC", "T", "", {}, false},   // not that alone
      {"GTCAAA", "CAA", "C", "A", {3, 1}, false},  // to the end of the window
  };
  for (const auto& c : cases) {
    const TandemRepeat found = TandemRepeat::find({c.bases, 1000}, 1002, c.ref, c.alt);
    SCOPED_TRACE(std::string(c.bases) + " " + c.ref + ">" + c.alt);
    EXPECT_EQ(found.isRepeat, *c.unit != 0);
    EXPECT_EQ(found.unit, c.unit);
    EXPECT_EQ(found.repeats, c.repeats);
    EXPECT_EQ(found.isContraction(), c.contraction);
  }
}

TEST(AlleleEvidence, CountsAndOrientation) {
  constexpr int kF1 = FLAG_PAIRED | FLAG_FIRST, kF2 = FLAG_PAIRED | FLAG_SECOND;
  LocusMaker maker;
  maker.of(3, kTumor, 1, kF1).of(1, kTumor, 1, kF2 | FLAG_REVERSE);                   // F1R2
  maker.of(1, kTumor, 1, kF2).of(1, kTumor, 1, kF1 | FLAG_REVERSE).of(2, kTumor, 1);  // F2R1, none
  maker.of(5, kTumor, 0, kF2).of(1, kTumor, 0, kF1).of(9, kNormal, 1, kF1);
  maker.add(kTumor, "unsure", {-1, -1}, kF1);
  LocusReads reads = maker.build();
  reads.reads()[0].status = kReadOverlapped;
  const AlleleEvidence sum = evidenceOf(reads, kTumor, 1);
  EXPECT_EQ((std::vector<int64_t>{sum.altCount, sum.refCount, sum.altQualSum, sum.refQualSum}),
            (std::vector<int64_t>{7, 6, 7 * 30, 6 * 30}));
  EXPECT_EQ((std::vector{sum.altF1R2, sum.altF2R1, sum.refF1R2, sum.refF2R1}), (std::vector{3, 2, 1, 5}));
  EXPECT_DOUBLE_EQ(sum.altFraction(), 7.0 / 13);
  EXPECT_DOUBLE_EQ(foxog(sum, 'C', 'A'), 0.4);
  EXPECT_DOUBLE_EQ(foxog(sum, 'G', 'T'), 0.6);
  EXPECT_TRUE(std::isnan(foxog(sum, 'A', 'C')));
  EXPECT_TRUE(std::isnan(foxog(sum, 'C', 'C')));
  EXPECT_TRUE(std::isnan(foxog({}, 'C', 'A')));
}

TEST(AnnotateSample, Column) {
  LocusMaker maker;
  const auto add = [&](ReadBuilder read, int qual, const std::vector<double>& row) {
    maker.add(kTumor, read.flag(FLAG_PAIRED).qual(qual), row);
  };
  const ReadBuilder ref = readBuilder("r").at(0, 90).cigar("20M").flag(FLAG_FIRST);
  const ReadBuilder alt = readBuilder("a").at(0, 98).cigar("2S18M").mapq(40).flag(FLAG_SECOND);
  for (const int qual : {30, 31, 32}) add(ref, qual, {-1, -4});
  for (const int qual : {20, 21, 22}) add(alt, qual, {-4, -1});
  add(alt, 5, {-4, -1});  // counted, but its base is none to compare
  VariantContext record;
  annotateSample(maker.build(), kTumor, 1, 'C', 'A', "TUMOR", record);
  annotateSample(maker.build(), kNormal, 1, 'C', 'A', "NORMAL", record);
  std::string line;
  record.print(line, {"TUMOR", "NORMAL"});
  // Base qualities: ranks 1 to 3 of 6, -4.5 / sqrt(5.25); two groups of ties: -4.5 / sqrt(4.05). Neighbours: 10 of 31 in
  // each read of the reference, 9 of 21 in the others.
  EXPECT_THAT(line,
              testing::HasSubstr("\tAD:AF:ALT_F1R2:ALT_F2R1:BaseQRankSumPS:ClippingRankSumPS:FOXOG:"
                                 "MQRankSumPS:NBQPS:QSS:REF_F1R2:"
                                 "REF_F2R1:ReadPosEndDistPS:ReadPosRankSumPS"
                                 "\t3,4:0.571:0:4:-1.964:2.236:1.000:-2.236:26.263:93,68:3:0:4.000:-2.236"
                                 "\t0,0:0.000:0:0:.:.:.:.:.:0,0:0:0:.:."));
}

TEST(AnnotateSample, BasesWithoutQualityHaveThatOfTheMapping) {
  LocusMaker maker;
  const ReadBuilder bare = readBuilder("r").at(0, 90).cigar("20M").qual(255).mapq(41);
  maker.add(kTumor, bare, {-1, -4}).add(kTumor, bare, {-4, -1}).add(kTumor, bare, {-4, -1});
  VariantContext record;
  annotateSample(maker.build(), kTumor, 1, 'C', 'A', "TUMOR", record);
  std::string line;
  record.print(line, {"TUMOR"});
  EXPECT_THAT(line, testing::HasSubstr("41.000:41,82:"));  // NBQPS:QSS
}

}  // namespace
