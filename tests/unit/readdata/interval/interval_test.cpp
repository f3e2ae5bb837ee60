#include "readdata/interval/interval.h"

#include <gtest/gtest.h>

namespace {

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

}  // namespace
