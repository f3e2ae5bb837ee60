#include "algo/algo_option.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

// A table with each kind of binding, and what a parse left in its fields.
struct Table {
  Table() {
    parser.addFlag("flag", 'f', "", flag);
    parser.addInt("count", 'c', "", count);
    parser.addDouble("ratio", 0, "", ratio);
    parser.addText("text", 't', "", text);
    parser.addList("item", 'i', "", items);
    parser.add({"level", optional_argument, 'l', ""}, [this](const char* value) {
      level = value ? value : "none";
      return true;
    });
    parser.add({"even", required_argument, 0, ""}, [](const char* value) { return atoi(value) % 2 == 0; });
  }
  OptionParser::Outcome parse(std::vector<const char*> args) {
    args.insert(args.begin(), "name");
    return parser.parse(int(args.size()), args.data(), positional);
  }

  OptionParser parser;
  bool flag = false;
  int count = 5;
  double ratio = 0.5;
  std::string text, level;
  std::vector<std::string> items;
  std::vector<const char*> positional;
};

TEST(OptionParser, BindsEveryFormOfOption) {
  Table t;
  ASSERT_EQ(t.parse({"--flag", "--count=7", "--ratio", "2.25x", "-ttext", "-i", "a", "--item", "b", "--level",
                     "-l3"}),
            OptionParser::kOk);
  EXPECT_TRUE(t.flag);
  EXPECT_EQ(t.count, 7);
  EXPECT_EQ(t.ratio, 2.25);
  EXPECT_EQ(t.text, "text");
  EXPECT_THAT(t.items, ElementsAre("a", "b"));
  EXPECT_EQ(t.level, "3");
  EXPECT_TRUE(t.positional.empty());
}

TEST(OptionParser, TellsUnknownFromRefused) {
  struct {
    std::vector<const char*> args;
    OptionParser::Outcome outcome;
  } const cases[] = {
      {{"--nothing"}, OptionParser::kUnknownOption},
      {{"-x"}, OptionParser::kUnknownOption},
      {{"--count"}, OptionParser::kUnknownOption},  // its argument is missing
      {{"-c"}, OptionParser::kUnknownOption},
      {{"--flag=1"}, OptionParser::kUnknownOption},  // takes none
      {{"--fl"}, OptionParser::kOk},
      {{"--t", "word"}, OptionParser::kOk},
      {{"--even", "3"}, OptionParser::kRefused},
      {{"--even", "4"}, OptionParser::kOk},
      {{"--even", "3", "--nothing"}, OptionParser::kRefused},  // the first fault counts
      {{"--nothing", "--even", "3"}, OptionParser::kUnknownOption},
      {{}, OptionParser::kOk},
  };
  for (const auto& c : cases) {
    testing::internal::CaptureStderr();
    Table t;
    EXPECT_EQ(t.parse(c.args), c.outcome) << (c.args.empty() ? "" : c.args[0]);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // the caller has words of its own
  }
}

TEST(OptionParser, NumbersReadWhatTheyCan) {
  struct {
    const char* text;
    int expected;
  } const cases[] = {{"12", 12},
                     {"-3", -3},
                     {"12abc", 12},
                     {"abc", 0},
                     {"", 0},
                     {"0x10", 0},
                     {"010", 10},
                     {"99999999999", INT32_MAX},
                     {"-99999999999", INT32_MIN}};
  for (const auto& c : cases) {
    Table t;
    ASSERT_EQ(t.parse({"-c", c.text}), OptionParser::kOk);
    EXPECT_EQ(t.count, c.expected) << c.text;
  }
}

// getopt keeps its place between calls; a parse that ends early, in the middle of a cluster of letters or
// among permuted arguments, must not show in the next one.
TEST(OptionParser, EachParseStartsAfresh) {
  const std::vector<std::vector<const char*>> broken = {
      {"-xf", "a", "b"}, {"a", "b", "-xfff", "c"}, {"a", "--", "b"}, {"-ccc", "--even", "1", "-f"}};
  for (const auto& args_before : broken) {
    Table before;
    before.parse(args_before);
    Table t;
    ASSERT_EQ(t.parse({"a", "b", "-c", "4", "d"}), OptionParser::kOk) << args_before[0];
    EXPECT_FALSE(t.flag) << args_before[0];
    EXPECT_EQ(t.count, 4);
    EXPECT_THAT(t.positional, ElementsAre(testing::StrEq("a"), testing::StrEq("b"), testing::StrEq("d")));
  }
}

}  // namespace
