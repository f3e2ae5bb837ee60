#include "driver/target_list.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "base/text.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kOpen = 0xFFFFFFFF;

const std::vector<Contig> kContigs = {{"chr1", 0, 1000}, {"chr2", 0, 500}, {"chrE", 0, 0}, {kNoCoor, 0, 0}};

// What --interval and --shard make of the text.
IntervalMap regions(const char* text) {
  IntervalMap map;
  EXPECT_TRUE(parse_shard_list(text, map)) << text;
  normalize(map);
  return map;
}

std::string text(const TargetEntry& entry) {
  return format("%s:%u-%u after %u", entry.contig, entry.start, entry.end, entry.previous_end);
}

std::string text(const Target& target) {
  return format("%d %s:%u-%u", target.contig_number, target.contig, target.start, target.end);
}

auto texts(const auto& list) {
  std::vector<std::string> all;
  for (const auto& item : list) all.push_back(text(item));
  return all;
}

TEST(TargetList, WithoutIntervalsEveryContigIsOneEntry) {
  EXPECT_THAT(texts(wholeContigs(kContigs)), ElementsAre("chr1:0-1000 after 0", "chr2:0-500 after 0",
                                                         "chrE:0-0 after 0", "NO_COOR:0-0 after 0"));
}

TEST(TargetList, IntervalsAreClippedInContigOrder) {
  using List = std::vector<std::string>;
  struct {
    const char* intervals;
    List entries, unknown;
  } const cases[] = {
      {"chr2,chr1", {"chr1:0-1000 after 0", "chr2:0-500 after 0"}, {}},
      {"chr1:101-200,chr1:301-400", {"chr1:100-200 after 0", "chr1:300-400 after 200"}, {}},
      {"chr1:901-", {"chr1:900-1000 after 0"}, {}},
      {"chr1:901+4000000000", {"chr1:900-1000 after 0"}, {}},
      {"chr1:1001-2000,chr2:1-10", {"chr2:0-10 after 0"}, {}},  // wholly behind the contig's end
      {"chr1:1000-1000,chr1:1002-1003", {"chr1:999-1000 after 0"}, {}},
      {"chrE", {}, {}},
      {"chr9:5-6,chr1:1-1,chr8", {"chr1:0-1 after 0"}, {"chr8", "chr9"}},
      {"chr9", {}, {"chr9"}},
      {"chr2:1-5,chr1:1-5,chr2:8-9", {"chr1:0-5 after 0", "chr2:0-5 after 0", "chr2:7-9 after 5"}, {}},
  };
  for (const auto& c : cases) {
    IntervalMap map = regions(c.intervals);
    const std::vector<TargetEntry> entries = clipToContigs(kContigs, map);
    EXPECT_EQ(texts(entries), c.entries) << c.intervals;
    List unknown;
    for (const auto& [name, list] : map) unknown.push_back(name);
    EXPECT_EQ(unknown, c.unknown) << c.intervals;
    for (const TargetEntry& entry : entries)  // the scheduler knows contigs by their pointer
      EXPECT_TRUE(entry.contig == kContigs[0].contig || entry.contig == kContigs[1].contig);
  }
}

TEST(TargetList, ShardsCutEntriesIntoPieces) {
  const std::vector<TargetEntry> whole = wholeContigs(kContigs);
  IntervalMap map = regions("chr1:101-200,chr1:301-400,chr2:101-300");
  const std::vector<TargetEntry> some = clipToContigs(kContigs, map);
  struct {
    const std::vector<TargetEntry>& entries;
    const char* shards;
    std::vector<std::string> targets;
  } const cases[] = {
      {whole, "chr1", {"0 chr1:0-1000"}},
      {whole, "chr2:100-,chr1:1-10,chr1:21-30", {"0 chr1:0-10", "0 chr1:20-30", "1 chr2:99-500"}},
      {whole, "chr9", {}},
      {whole, "chr1:2000-3000", {}},
      {whole, "NO_COOR", {"3 NO_COOR:0-0"}},
      {whole, "NO_COOR:7-8,chr2:500-", {"1 chr2:499-500", "3 NO_COOR:0-0"}},
      {whole, "chrE", {}},
      {some, "chr1:1-100,chr1:201-300", {}},  // touching the entries on both sides
      {some, "chr1:100-101,chr1:200-301", {"0 chr1:100-101", "0 chr1:199-200", "1 chr1:300-301"}},
      {some, "chr1", {"0 chr1:100-200", "1 chr1:300-400"}},
      {some,
       "chr1:110-120,chr1:130-140,chr1:150-310,chr1:390-,chr2:200-250,NO_COOR",
       {"0 chr1:109-120", "0 chr1:129-140", "0 chr1:149-200", "1 chr1:300-310", "1 chr1:389-400",
        "2 chr2:199-250"}},
  };
  for (const auto& c : cases) {
    const std::vector<Target> targets = intersectTargets(c.entries, regions(c.shards));
    EXPECT_EQ(texts(targets), c.targets) << c.shards;
    for (const Target& target : targets) EXPECT_EQ(target.entry, &c.entries[target.contig_number]);
  }
}

TEST(TargetList, WholeTargetsFollowTheEntries) {
  const std::vector<TargetEntry> entries = wholeContigs(kContigs);
  const std::vector<Target> targets = wholeTargets(entries);
  EXPECT_THAT(texts(targets), ElementsAre("0 chr1:0-1000", "1 chr2:0-500", "2 chrE:0-0", "3 NO_COOR:0-0"));
  EXPECT_EQ(totalBases(targets), 1500u);
  EXPECT_EQ(targets[1].entry, &entries[1]);
  EXPECT_THAT(wholeTargets({}), IsEmpty());
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
