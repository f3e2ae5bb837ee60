// Cutting haplotypes is tested with the assembly of regions.
#include "algo/vcall/region_trimmer.h"

#include <gtest/gtest.h>
#include <optional>

namespace {

using namespace RegionTrimmer;
using Span = std::pair<uint32_t, uint32_t>;

struct Event {
  uint32_t position;
  const char *ref, *alt;
};

// What [1100, 1200) within `window` is trimmed to, when one haplotype has these events.
std::optional<Span> trimmed(const std::vector<Event>& events, ActiveRegion window = {1000, 1300},
                            bool given = false) {
  Haplotypes haplotypes;
  haplotypes.push_back(std::make_unique<Haplotype>());
  haplotypes.push_back(std::make_unique<Haplotype>());
  for (const Event& e : events) {
    const std::string ref = e.ref, alt = e.alt;
    const auto type = ref.size() == alt.size() ? HaplotypeEvent::kSNP : HaplotypeEvent::kDeletion;
    haplotypes[1]->eventMap[e.position] = {e.position, ref, alt, type};
  }
  ActiveRegion found{};
  if (!variantInterval(haplotypes, {1100, 1200}, window, given, kWideSNPPadding, found)) return std::nullopt;
  return Span(found.start, found.end);
}

TEST(VariantInterval, HoldsWhatBeginsInTheRegion) {
  EXPECT_EQ(trimmed({}), std::nullopt);
  EXPECT_EQ(trimmed({{1099, "A", "C"}, {1200, "A", "C"}}), std::nullopt);
  EXPECT_EQ(trimmed({{1099, "A", "C"}, {1150, "A", "C"}}),
            Span(1150 - kWideSNPPadding, 1151 + kWideSNPPadding));
  // At the borders of the region there is no more than the extension.
  EXPECT_EQ(trimmed({{1100, "A", "C"}, {1199, "A", "C"}}), Span(1100 - kExtension, 1200 + kExtension));
  EXPECT_EQ(trimmed({{1150, "AC", "A"}}), Span(1100 - kExtension, 1200 + kExtension));
  // A deletion that leads out of the region is held whole.
  const std::string lost(60, 'A');
  EXPECT_EQ(trimmed({{1199, lost.c_str(), "A"}}), Span(1100 - kExtension, 1199 + 60 + kSNPPadding));
  EXPECT_EQ(trimmed({{1150, "AC", "A"}}, {1095, 1210}), Span(1095, 1210));  // at the ends of a contig
  EXPECT_EQ(trimmed({{1150, "AC", "A"}}, {500, 1800}, true),
            Span(1150 - kIndelPadding, 1152 + kIndelPadding));
}

TEST(SortUnique, KeepsTheReferenceAndTheBest) {
  Haplotypes haplotypes;
  for (auto [bases, score, is_ref] : {std::tuple{"C", -3.0, false},
                                      {"G", -1.0, false},
                                      {"A", -2.0, false},
                                      {"C", -0.5, false},
                                      {"T", -9.0, true}}) {
    haplotypes.push_back(std::make_unique<Haplotype>());
    haplotypes.back()->bases = bases;
    haplotypes.back()->score = score;
    haplotypes.back()->isRef = is_ref;
  }
  sortUnique(haplotypes, 3);
  ASSERT_EQ(haplotypes.size(), 3u);
  EXPECT_EQ(haplotypes[0]->bases + haplotypes[1]->bases + haplotypes[2]->bases, "TCG");
  EXPECT_EQ(haplotypes[1]->score, -0.5);
}

}  // namespace
