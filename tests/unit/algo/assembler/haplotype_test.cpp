#include "algo/assembler/haplotype.h"

#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "algo/assembler/assembly_result.h"

namespace {

struct Element {
  uint32_t length;
  CigarOp op;
};

std::string events(const std::string& bases, const std::vector<Element>& elements,
                   const std::string& reference, uint32_t offset = 0) {
  Cigar cigar;
  for (const Element& e : elements) cigar.push_back(e.length << 4 | e.op);
  EventMap map;
  map.build(bases, cigar, reference, 100, offset);
  std::string text;
  for (const auto& [position, event] : map) {
    EXPECT_EQ(position, event.position);
    text += std::to_string(position) + event.ref + "/" + event.alt + "SIDR"[event.type] + " ";
  }
  return text;
}

TEST(EventMap, KeepsNeighboursApartAndJoinsWhatSharesAPosition) {
  EXPECT_EQ(events("ACGT", {{4, CIGAR_M}}, "ACGT"), "");
  EXPECT_EQ(events("AGCT", {{4, CIGAR_M}}, "ACGT"), "101C/GS 102G/CS ");
  EXPECT_EQ(events("ACTTGT", {{2, CIGAR_M}, {2, CIGAR_I}, {2, CIGAR_M}}, "ACGT"), "101C/CTTI ");
  EXPECT_EQ(events("AT", {{1, CIGAR_M}, {2, CIGAR_D}, {1, CIGAR_M}}, "ACGT"), "100ACG/AD ");
  // SNPs one base before the anchor and on the first base behind.
  EXPECT_EQ(events("TCTTAT", {{2, CIGAR_M}, {2, CIGAR_I}, {2, CIGAR_M}}, "ACGT"),
            "100A/TS 101C/CTTI 102G/AS ");
  // SNPs on the anchor.
  EXPECT_EQ(events("AATTGT", {{2, CIGAR_M}, {2, CIGAR_I}, {2, CIGAR_M}}, "ACGT"), "101C/ATTI ");
  EXPECT_EQ(events("TT", {{1, CIGAR_M}, {2, CIGAR_D}, {1, CIGAR_M}}, "ACGT"), "100ACG/TD ");
  // Insertion and deletion side by side, in either order.
  EXPECT_EQ(events("ATT", {{1, CIGAR_M}, {1, CIGAR_I}, {2, CIGAR_D}, {1, CIGAR_M}}, "ACGT"), "100ACG/ATD ");
  EXPECT_EQ(events("ATTAT", {{1, CIGAR_M}, {2, CIGAR_D}, {3, CIGAR_I}, {1, CIGAR_M}}, "ACGT"),
            "100ACG/ATTAI ");
  EXPECT_EQ(events("ATAT", {{1, CIGAR_M}, {2, CIGAR_D}, {2, CIGAR_I}, {1, CIGAR_M}}, "ACGT"), "100ACG/ATAR ");
  // Without a base in front, unless the haplotype begins within the reference.
  EXPECT_EQ(events("TTGT", {{2, CIGAR_D}, {2, CIGAR_I}, {2, CIGAR_M}}, "ACGT"), "");
  EXPECT_EQ(events("TTGT", {{2, CIGAR_I}, {2, CIGAR_M}}, "ACGT", 2), "101C/CTTI ");
  EXPECT_THROW(events("ACGT", {{5, CIGAR_M}}, "ACGTA"), std::runtime_error);
  EXPECT_THROW(events("ACGT", {{4, CIGAR_M}}, "ACGTA", 2), std::runtime_error);
}

TEST(EventMap, EventsPutIntoTheReferenceGiveTheHaplotype) {
  std::mt19937 random(3);
  for (int round = 0; round < 2000; ++round) {
    std::string reference, bases;
    Cigar cigar;
    auto base = [&] { return "AC"[random() % 2]; };
    for (int ops = 0; ops < 8; ++ops) {
      const auto op = ops == 0 ? CIGAR_M : CigarOp(random() % 3);
      const auto length = uint32_t(1 + random() % 3);
      cigar.push_back(length << 4 | op);
      for (uint32_t i = 0; i < length; ++i) {
        if (op != CIGAR_I) reference += base();
        if (op != CIGAR_D) bases += base();
      }
    }
    EventMap map;
    map.build(bases, cigar, reference, 50, 0);
    std::string spelled = reference;
    for (auto event = map.rbegin(); event != map.rend(); ++event) {
      ASSERT_EQ(spelled.substr(event->first - 50, event->second.ref.size()), event->second.ref);
      spelled.replace(event->first - 50, event->second.ref.size(), event->second.alt);
    }
    ASSERT_EQ(spelled, bases) << round;
  }
}

// By default of a haplotype with 2 gaps, and beside it of one with a gap and a SNP.
TEST(ChooseAlignments, FewestEventsOfItsOwnThenFewestEventsThenGaps) {
  const HaplotypeEvent snp = {110, "A", "G", HaplotypeEvent::kSNP},
                       far = {90, "C", "T", HaplotypeEvent::kSNP},
                       short_gap = {112, "TA", "T", HaplotypeEvent::kDeletion},
                       gap = {100, "ACC", "A", HaplotypeEvent::kDeletion},
                       long_gap = {100, "ACCC", "A", HaplotypeEvent::kDeletion};
  const Cigar two_gaps = {10 << 4 | CIGAR_M, 2 << 4 | CIGAR_D, 9 << 4 | CIGAR_M, 1 << 4 | CIGAR_D},
              one_gap = {10 << 4 | CIGAR_M, 3 << 4 | CIGAR_D, 9 << 4 | CIGAR_M};
  using Events = std::vector<HaplotypeEvent>;
  const auto mapOf = [](const Events& events) {
    EventMap map;
    for (const HaplotypeEvent& event : events) map[event.position] = event;
    return map;
  };
  // What is left of {gap, short_gap} or {long_gap, snp}, where another haplotype has `known`.
  const auto chosen = [&](const Events& known, const Events& first, const Events& second) {
    std::vector<std::unique_ptr<Haplotype>> haplotypes;
    for (int i = 0; i < 3; ++i) haplotypes.push_back(std::make_unique<Haplotype>());
    haplotypes[0]->eventMap = mapOf(known);
    for (int i : {1, 2}) {  // two that share an alignment do not make it surer
      haplotypes[size_t(i)]->cigar = two_gaps;
      haplotypes[size_t(i)]->eventMap = mapOf(first);
      haplotypes[size_t(i)]->other = {one_gap, mapOf(second)};
    }
    chooseAlignments(haplotypes);
    EXPECT_FALSE(haplotypes[1]->other);
    EXPECT_EQ(haplotypes[1]->eventMap, haplotypes[2]->eventMap);
    EXPECT_EQ(haplotypes[1]->cigar, haplotypes[1]->eventMap == mapOf(first) ? two_gaps : one_gap);
    return haplotypes[1]->eventMap == mapOf(first);
  };
  EXPECT_FALSE(chosen({}, {gap, short_gap}, {long_gap, snp}));
  EXPECT_TRUE(chosen({short_gap}, {gap, short_gap}, {long_gap, snp}));
  EXPECT_FALSE(chosen({snp}, {gap, short_gap}, {long_gap, snp}));
  EXPECT_TRUE(chosen({}, {gap, short_gap}, {far, long_gap, snp}));
  EXPECT_FALSE(chosen({far, snp}, {gap, short_gap}, {far, long_gap, snp}));
}

}  // namespace
