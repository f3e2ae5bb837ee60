#include "algo/vcall/phasing.h"

#include <deque>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

struct PhasingTest : testing::Test {
  std::vector<RegionRecord> records;

  // A record of the site's first alternates, whose last `cut` bases are gone.
  void add(uint32_t position, const std::string& ref, const std::vector<std::string>& alts,
           const std::vector<std::vector<size_t>>& carriers, const char* genotype, size_t cut = 0) {
    EventSite site{position, ref, alts, {{}}};
    site.carriers.insert(site.carriers.end(), carriers.begin(), carriers.end());
    records.emplace_back();
    RegionRecord& made = records.back();
    made.site = std::make_unique<const EventSite>(std::move(site));
    made.record.start = position;
    made.record.end = position + uint32_t(ref.size() - cut);
    made.record.ref = made.site->ref.data();
    made.record.refLength = int32_t(ref.size() - cut);
    for (const std::string& alt : made.site->alts)
      made.record.alleles.push_back({alt.data(), int32_t(alt.size() - cut), 0, false});
    made.record.alleles.push_back(parseAllele("<NON_REF>", 9));
    made.record.addGenotype("s", "GT", "%s", genotype);
  }
  void het(uint32_t position, const std::vector<size_t>& carriers) {
    add(position, "A", {"C"}, {carriers}, "0/1");
  }
  // PGT and PID per record, "-" without.
  std::vector<std::string> phases(size_t haplotypes, std::span<const ReadClip> reads = {},
                                  std::span<const double> rows = {}, bool twoChromosomes = true) {
    phaseRecords(records, haplotypes, "s", reads, rows, twoChromosomes);
    std::vector<std::string> texts;
    for (const RegionRecord& record : records) {
      const auto &phase = record.record.getGenotype("s", "PGT"), &id = record.record.getGenotype("s", "PID");
      EXPECT_EQ(phase.size(), id.size());
      texts.push_back(phase.empty() ? "-" : phase[0] + " " + id[0]);
    }
    return texts;
  }
};

TEST_F(PhasingTest, SameAndOppositeHaplotypesAreOneGroup) {
  het(9, {1, 2});
  het(20, {3});
  het(30, {1, 2});
  EXPECT_THAT(phases(5), ElementsAre("0|1 10_A_C", "1|0 10_A_C", "0|1 10_A_C"));
}

TEST_F(PhasingTest, OfMoreThanTwoChromosomesNoneIsTheOppositeByItsHaplotypes) {
  het(9, {1, 2});
  het(20, {3});
  het(30, {1, 2});
  EXPECT_THAT(phases(5, {}, {}, false), ElementsAre("0|1 10_A_C", "-", "0|1 10_A_C"));
}

TEST_F(PhasingTest, UnrelatedHaplotypesAreNot) {
  het(9, {1, 2});
  het(20, {2, 3});
  het(30, {1, 3});
  EXPECT_THAT(phases(5), ElementsAre("-", "-", "-"));
  het(40, {1});  // the rest of the second
  het(50, {2, 3});
  EXPECT_THAT(phases(5), ElementsAre("-", "0|1 21_A_C", "-", "1|0 21_A_C", "0|1 21_A_C"));
}

// All four combinations of two SNPs were assembled.
TEST_F(PhasingTest, ReadsThatReachBothDecideAmongAllHaplotypes) {
  const auto phasesBy = [&](const std::vector<std::pair<size_t, ReadClip>>& best) {
    std::vector<ReadClip> reads;
    std::vector<double> rows;
    for (const auto& [haplotype, clip] : best) {
      reads.push_back(clip);
      for (size_t h = 0; h < 4; ++h) rows.push_back(h == haplotype ? -1 : -4);
    }
    records.clear();
    het(9, {1, 3});
    het(20, {2, 3});
    return phases(4, reads, rows);
  };
  const ReadClip both{.refStart = 9, .refEnd = 21}, left{.refStart = 0, .refEnd = 20},
      right{.refStart = 10, .refEnd = 30};
  const auto none = ElementsAre("-", "-");
  const auto cis = ElementsAre("0|1 10_A_C", "0|1 10_A_C"), trans = ElementsAre("0|1 10_A_C", "1|0 10_A_C");
  EXPECT_THAT(phasesBy({{0, both}, {0, both}, {3, both}, {3, both}}), cis);
  EXPECT_THAT(phasesBy({{1, both}, {1, both}, {2, both}, {2, both}, {0, left}, {0, left}, {3, right}}),
              trans);
  EXPECT_THAT(phasesBy({{0, both}, {0, both}, {3, both}, {3, left}, {3, right}}), none);
  EXPECT_THAT(phasesBy({{0, both}, {0, both}, {3, both}, {3, both}, {1, both}}), none);
  std::vector<std::pair<size_t, ReadClip>> many(10, {0, both});
  many.insert(many.end(), {{3, both}, {3, both}, {1, both}});
  EXPECT_THAT(phasesBy(many), cis);  // one in ten may stray
  many.push_back({2, both});
  EXPECT_THAT(phasesBy(many), none);
}

TEST_F(PhasingTest, HomozygousRecordsJoinTheirNeighbours) {
  add(5, "G", {"T"}, {{1, 2}}, "1/1");
  het(9, {1});
  add(15, "G", {"T"}, {{1, 2}}, "1/1");
  het(20, {2});
  add(25, "G", {"T"}, {{1}}, "1/1");  // not on all
  EXPECT_THAT(phases(3), ElementsAre("1|1 6_G_T", "0|1 6_G_T", "1|1 6_G_T", "1|0 6_G_T", "-"));
  records.clear();
  add(5, "G", {"T"}, {{1}}, "1/1");
  add(15, "G", {"T"}, {{1}}, "1/1");
  EXPECT_THAT(phases(3), ElementsAre("1|1 6_G_T", "1|1 6_G_T"));
}

TEST_F(PhasingTest, TheAlternateOfTheGenotypeCounts) {
  add(9, "ACC", {"A", "AGCC", "GCC"}, {{1}, {2}, {3}}, "0/2", 2);  // as A, AG, G after the cut
  records[0].record.alleles[0].length = 0;                         // cannot be cut so
  add(20, "A", {"C", "T"}, {{3}, {1}}, "1/2");
  add(30, "A", {"C"}, {{3}}, "0/2");  // <NON_REF>
  add(35, "A", {"C"}, {{3}}, "./.");
  add(40, "A", {"C"}, {{3}}, "0/9");
  add(45, "A", {"C"}, {{3}}, "0/0");
  add(46, "A", {"C"}, {{3}}, "0/1/1");
  het(50, {2});
  EXPECT_THAT(phases(4), ElementsAre("0|1 10_A_AG", "-", "-", "-", "-", "-", "-", "0|1 10_A_AG"));
}

}  // namespace
