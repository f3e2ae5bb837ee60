#include "base/text.h"

#include <gtest/gtest.h>
#include <random>

namespace {

TEST(Text, KeyValues) {
  using Map = std::map<std::string, std::string>;
  EXPECT_EQ(parseKeyValues(""), Map());
  EXPECT_EQ(parseKeyValues("a=1,b,,c=x=y,a=2,"), Map({{"a", "2"}, {"b", ""}, {"c", "x=y"}}));
}

TEST(Text, NumbersAboveTheLimitShowThemselves) {
  struct {
    const char* text;
    uint64_t limit;
    bool good;
    uint64_t value;
    const char* rest;
  } const cases[] = {
      {"0", 9, true, 0, ""},
      {" \t42x", 100, true, 42, "x"},
      {"4294967295", 0xFFFFFFFF, true, 0xFFFFFFFF, ""},
      {"4294967296,", 0xFFFFFFFF, true, 0x100000000, ","},
      {"99999999999999999999999999999999", 0xFFFFFFFF, true, 0x100000000, ""},
      {"9223372036854775807", INT64_MAX, true, INT64_MAX, ""},
      {"9223372036854775808", INT64_MAX, true, uint64_t(INT64_MAX) + 1, ""},
      {"7", 5, true, 6, ""},
      {"000000000000000000000000012", 20, true, 12, ""},
      {"-1", 9, false, 0, "-1"},
      {"+1", 9, false, 0, "+1"},
      {" x", 9, false, 0, "x"},
      {"", 9, false, 0, ""},
  };
  for (const auto& c : cases) {
    const char* cursor = c.text;
    uint64_t value = 0;
    EXPECT_EQ(scanUnsigned(cursor, c.limit, value), c.good) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
    EXPECT_STREQ(cursor, c.rest) << c.text;
  }
}

TEST(Text, IntegersInARange) {
  int64_t value = 7;
  for (const char* bad : {"", "-", "+1", " 1", "1 ", "1x", "0x1", "-6", "6", "9223372036854775808"})
    EXPECT_FALSE(parseInteger(bad, -5, 5, value)) << bad;
  EXPECT_EQ(value, 7);
  EXPECT_TRUE(parseInteger("-5", -5, 5, value));
  EXPECT_EQ(value, -5);
  EXPECT_TRUE(parseInteger("9223372036854775807", 0, INT64_MAX, value));
  EXPECT_EQ(value, INT64_MAX);
}

TEST(Text, NumbersAgreeWithTheLibrary) {
  std::mt19937_64 random(5);
  for (int i = 0; i < 20000; ++i) {
    std::string text = std::to_string(random() >> (random() % 64));
    const char* cursor = text.c_str();
    uint64_t value, expected = strtoull(cursor, nullptr, 10), limit = random() >> (1 + random() % 63);
    ASSERT_TRUE(scanUnsigned(cursor, limit, value));
    ASSERT_EQ(value, std::min(expected, limit + 1)) << text << " limit " << limit;
  }
}

}  // namespace
