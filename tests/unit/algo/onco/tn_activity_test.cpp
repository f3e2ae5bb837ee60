#include "algo/onco/tn_activity.h"

#include <deque>
#include <gtest/gtest.h>

#include "read_builder.h"

namespace {

constexpr uint32_t kStart = 100, kEnd = 140;

// 20 reads of a sample from `kStart` on; the first `alts` of them with a C at 110, or with `cigar`.
struct Pileup {
  std::deque<BAMRead> owned;
  std::vector<Read*> reads;

  void add(int32_t group, int alts, const char* cigar = "30M", int flags = 0, int mapq = 60, int qual = 30) {
    for (int i = 0; i < 20; ++i) {
      std::string bases(30, 'A');
      if (i < alts && std::string(cigar) == "30M") bases[10] = 'C';
      ReadBuilder read = readBuilder("r").at(0, kStart).flag(flags).mapq(mapq).qual(qual).seq(bases);
      bam_record record = read.cigar(i < alts ? cigar : "30M").build();
      owned.emplace_back().attach(record);
      owned.back().read_group = group;
      reads.push_back(&owned.back());
    }
  }
  std::vector<uint32_t> active(bool checksNormal = true, TNActivity::Limits limits = {}) {
    limits.checksNormal = checksNormal;
    const DebugPositions none;
    TNActivity activity(limits, none);
    const ReferenceWindow reference{std::string(kEnd - kStart, 'A'), kStart};
    activity.build(reads, std::vector<int32_t>{kTumor, kNormal}, reference, kStart, kEnd);
    std::vector<uint32_t> found;
    activity.findActive("chr1", found);
    return found;
  }
};

TEST(TNActivity, NeedsTheTumorAndTheNormal) {
  for (const auto& [tumor, normal, with, without] :
       {std::tuple{3, 0, true, true}, {1, 0, false, false}, {3, 10, false, true}, {3, 20, false, true}}) {
    Pileup pileup;
    pileup.add(0, tumor);
    pileup.add(1, normal);
    EXPECT_EQ(pileup.active(), with ? std::vector<uint32_t>{110} : std::vector<uint32_t>{})
        << tumor << normal;
    EXPECT_EQ(pileup.active(false).size(), without ? 1u : 0u);
  }
}

TEST(TNActivity, GapsAndClipsMakeTheBasesBesideThemActive) {
  for (const auto& [cigar, places] : {std::pair{"10M3D20M", std::vector<uint32_t>{109, 113}},
                                      {"10M2I18M", {109, 110}},
                                      {"20M10S", {119}}}) {
    Pileup pileup;
    pileup.add(0, 8, cigar);
    pileup.add(1, 0);
    EXPECT_EQ(pileup.active(), places) << cigar;
  }
}

// Two of 20 reads are enough at a quality of 30, and not at 20.
TEST(TNActivity, QualitiesHaveTheCapOfTheSample) {
  TNActivity::Limits by_mapq, low;
  by_mapq.mapQualCap = {0, 0};
  low.mapQualCap = {20, 0};
  for (const auto& [mapq, qual, fixed, mapped] : {std::tuple{60, 30, true, true},
                                                  {20, 30, true, false},
                                                  {20, 255, false, false},
                                                  {30, 255, true, true}}) {
    Pileup pileup;
    pileup.add(0, 2, "30M", 0, mapq, qual);
    EXPECT_EQ(pileup.active(false).size(), fixed ? 1u : 0u) << mapq << ' ' << qual;
    EXPECT_EQ(pileup.active(false, by_mapq).size(), mapped ? 1u : 0u) << mapq << ' ' << qual;
    EXPECT_TRUE(pileup.active(false, low).empty());
  }
}

TEST(TNActivity, WithoutReadsOfTheNormalOrOfWeightNothingIs) {
  Pileup alone, supplementary;
  alone.add(0, 10);
  EXPECT_TRUE(alone.active().empty());
  supplementary.add(0, 10, "30M", FLAG_SUPPLEMENTARY);
  EXPECT_TRUE(supplementary.active(false).empty());
}

}  // namespace
