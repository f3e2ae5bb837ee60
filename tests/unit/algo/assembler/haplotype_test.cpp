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

}  // namespace
