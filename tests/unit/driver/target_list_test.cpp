#include "driver/target_list.h"

#include <gtest/gtest.h>
#include <random>

#include "base/text.h"

namespace {

constexpr uint32_t kOpen = 0xFFFFFFFF;

// What --interval and --shard make of the text.
IntervalMap regions(const char* text) {
  IntervalMap map;
  EXPECT_TRUE(parse_shard_list(text, map)) << text;
  normalize(map);
  return map;
}

TEST(TargetList, BasesAddUpBeyond32Bits) {
  const std::vector<Contig> huge = {{"a", 0, kOpen}, {"b", 0, kOpen}, {"c", 0, kOpen}};
  const std::vector<TargetEntry> entries = wholeContigs(huge);
  EXPECT_EQ(totalBases(wholeTargets(entries)), 3ull * kOpen);
  EXPECT_EQ(totalBases(intersectTargets(entries, regions("a:4294967295-,b:4294967295"))), 2u);
}

// Both cuts against a map of single bases.
TEST(TargetList, RandomListsAgreeWithMarkedBases) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    auto draw = [&](int pieces) {
      std::string list;
      for (int i = 0; i < pieces; ++i) {
        const unsigned start = random() % 60 + 1, end = start + random() % 9;
        list += format("%s%s:%u-%u", i ? "," : "", random() % 2 ? "x" : "y", start, end);
      }
      return list;
    };
    const std::string intervals = draw(1 + random() % 6), shards = draw(1 + random() % 6);
    const std::vector<Contig> contigs = {{"x", 0, 50}, {"y", 0, 40}};
    auto covers = [](const IntervalMap& map, const char* contig, uint32_t base) {
      auto found = map.find(contig);
      if (found == map.end()) return false;
      for (const Interval& i : found->second)
        if (i.start <= base && base < i.end) return true;
      return false;
    };
    std::vector<std::pair<std::string, uint32_t>> expected, got;
    IntervalMap interval_map = regions(intervals.c_str());
    const IntervalMap shard_map = regions(shards.c_str());
    for (const Contig& contig : contigs)
      for (uint32_t base = 0; base < contig.end; ++base)
        if (covers(interval_map, contig.contig, base) && covers(shard_map, contig.contig, base))
          expected.emplace_back(contig.contig, base);
    const std::vector<TargetEntry> entries = clipToContigs(contigs, interval_map);
    for (const Target& target : intersectTargets(entries, shard_map))
      for (uint32_t base = target.start; base < target.end; ++base) got.emplace_back(target.contig, base);
    EXPECT_EQ(got, expected) << intervals << " / " << shards;
  }
}

}  // namespace
