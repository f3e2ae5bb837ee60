#include "readdata/interval/interval.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr uint32_t kTop = 0xFFFFFFFF;

TEST(ParseInterval, Grammar) {
  struct {
    const char* text;
    bool good;
    const char* contig;
    uint32_t start, end;
  } const cases[] = {
      {"chr1", true, "chr1", 0, kTop},
      {"chr1:100", true, "chr1", 99, 100},
      {"chr1:100-", true, "chr1", 99, kTop},
      {"chr1:100-200", true, "chr1", 99, 200},
      {"chr1:100+50", true, "chr1", 99, 149},
      {"chr1:100+1", true, "chr1", 99, 100},
      {"chr1:100+0", true, "chr1", 99, 99},
      {"chr1:100+", true, "chr1", 99, kTop},
      {"chr1:1-1", true, "chr1", 0, 1},
      {"chr1: 7- 9", true, "chr1", 6, 9},
      {"chr1:5-4", true, "chr1", 4, 4},
      {"chr1:101-100", true, "chr1", 100, 100},
      {"chr1:5-6behind", true, "chr1", 4, 6},
      {"chr1:5-behind", true, "chr1", 4, kTop},
      {"chr1:5-3", false, "", 0, 0},
      {"chr1:0", false, "", 0, 0},
      {"chr1:0-5", false, "", 0, 0},
      {"chr1:", false, "", 0, 0},
      {"chr1:x", false, "", 0, 0},
      {"chr1:-5", false, "", 0, 0},
      {"chr1:5:6", false, "", 0, 0},
      {"chr1:5 ", false, "", 0, 0},
      {"chr1:5.6", false, "", 0, 0},
      {"HLA:01:5", false, "", 0, 0},
      // Numbers at and above 32 bits.
      {"chr1:4294967295", true, "chr1", kTop - 1, kTop},
      {"chr1:4294967296", false, "", 0, 0},
      {"chr1:18446744073709551617", false, "", 0, 0},
      {"chr1:1-4294967295", true, "chr1", 0, kTop},
      {"chr1:1-4294967296", true, "chr1", 0, kTop},
      {"chr1:2+4294967295", true, "chr1", 1, kTop},
      {"chr1:4294967295+99999999999999999999", true, "chr1", kTop - 1, kTop},
      // A beginning of the pseudo contig's name is taken whole, whatever stands behind the colon.
      {"NO_COOR", true, "NO_COOR", 0, kTop},
      {"NO_COOR:", true, "NO_COOR", 0, kTop},
      {"NO_COOR:5-3", true, "NO_COOR", 0, kTop},
      {"NO:7-9", true, "NO", 0, kTop},
      {"N:junk", true, "N", 0, kTop},
      {":7-9", true, "", 0, kTop},
      {"NO_COOR1:7-9", true, "NO_COOR1", 6, 9},
      {"NO_COOR12345:7-9", true, "NO_COOR12345", 6, 9},
      {"NOX:7-9", true, "NOX", 6, 9},
      {"", true, "", 0, kTop},
  };
  for (const auto& c : cases) {
    std::string text = c.text;
    Interval interval;
    ASSERT_EQ(parse_interval(text.data(), interval), c.good) << c.text;
    if (c.good) {
      EXPECT_STREQ(interval.contig, c.contig) << c.text;
      EXPECT_EQ(interval.start, c.start) << c.text;
      EXPECT_EQ(interval.end, c.end) << c.text;
    } else {
      EXPECT_EQ(text, c.text);
    }
  }
}

TEST(ParseInterval, ReadsBackWhatToTextPrints) {
  std::mt19937 random(3);
  for (int i = 0; i < 1000; ++i) {
    uint32_t start = random() % 0x7FFFFFFF, end = start + 1 + random() % 0x7FFFFFFF;
    std::string text = toText({"chrX", start, end});
    Interval back;
    ASSERT_TRUE(parse_interval(text.data(), back));
    EXPECT_EQ(std::make_pair(back.start, back.end), std::make_pair(start, end));
  }
  std::string name(400, 'n');
  EXPECT_EQ(toText({name.c_str(), 0, 1}), std::string(255, 'n'));
}

TEST(ParseShardList, CollectsPerContigAndDropsEmptyNames) {
  IntervalMap map;
  ASSERT_TRUE(parse_shard_list("b:5-6,a,,:9-10,b:1+2,NO_COOR", map));
  ASSERT_EQ(map.size(), 3u);
  ASSERT_EQ(map["b"].size(), 2u);
  EXPECT_EQ(map["b"][0].start, 4u);
  EXPECT_EQ(map["b"][1].end, 2u);
  for (const auto& [name, intervals] : map)
    for (const Interval& interval : intervals) EXPECT_EQ(interval.contig, name.c_str());  // owned by the map

  CaptureStderr();
  EXPECT_FALSE(parse_shard_list("a:1-2,a:3-1,a:0", map));
  EXPECT_EQ(GetCapturedStderr(), "Failed to parse interval string a:3-1\n");
}

// Random lists, empty and reversed entries among them, against the set of covered places.
TEST(Normalize, CoversTheSamePlacesWithFewestIntervals) {
  std::mt19937 random(17);
  for (int round = 0; round < 500; ++round) {
    IntervalMap map;
    std::vector<bool> covered(302);
    auto& list = map["c"];
    for (unsigned i = random() % 30; i > 0; --i) {
      uint32_t start = random() % 300, end = random() % 8 ? std::min(300u, start + unsigned(random() % 12))
                                                          : unsigned(random() % 300);
      list.push_back({"c", start, end});
      for (uint32_t place = start; place < end; ++place) covered[place] = true;
    }
    normalize(map);
    std::vector<std::pair<uint32_t, uint32_t>> expected, got;
    for (uint32_t place = 0, from = 0; place < 301; ++place) {
      if (covered[place] && (place == 0 || !covered[place - 1])) from = place;
      if (covered[place] && !covered[place + 1]) expected.emplace_back(from, place + 1);
    }
    for (const Interval& interval : map["c"]) got.emplace_back(interval.start, interval.end);
    ASSERT_EQ(got, expected) << "round " << round;
  }
}

}  // namespace
