#include "algo/algo_option.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

std::string printed(const OptionParser& parser, const char* title) {
  char* text = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&text, &size);
  parser.print(stream, title);
  fclose(stream);
  std::string result(text, size);
  free(text);
  return result;
}

std::string printedEntry(const AlgoOption& option) {
  OptionParser parser;
  parser.add(option, [](const char*) { return true; });
  return printed(parser, nullptr);
}

TEST(OptionPrinter, HelpStartsInColumn24OrOnTheNextLine) {
  const std::string indent(24, ' ');
  struct {
    AlgoOption option;
    std::string expected;
  } const cases[] = {
      {{"input", 1, 'i', "Help"}, "  -i, --input           Help\n"},
      {{"debug", 1, 0, "Help"}, "      --debug           Help\n"},
      // "  -x, --" and "      --" take 8 columns: names of 14 to 17 letters are entries of 22 to 25 columns
      {{"abcdefghijklmn", 0, 'x', "Help"}, "  -x, --abcdefghijklmn  Help\n"},
      {{"abcdefghijklmno", 0, 'x', "Help"}, "  -x, --abcdefghijklmno Help\n"},
      {{"abcdefghijklmnop", 0, 'x', "Help"}, "  -x, --abcdefghijklmnop\n" + indent + "Help\n"},
      {{"abcdefghijklmnopq", 0, 'x', "Help"}, "  -x, --abcdefghijklmnopq\n" + indent + "Help\n"},
      {{"abcdefghijklmn", 0, 0, "Help"}, "      --abcdefghijklmn  Help\n"},
      {{"abcdefghijklmno", 0, 0, "Help"}, "      --abcdefghijklmno Help\n"},
      {{"abcdefghijklmnop", 0, 0, "Help"}, "      --abcdefghijklmnop\n" + indent + "Help\n"},
      {{"abcdefghijklmnopq", 0, 0, "Help"}, "      --abcdefghijklmnopq\n" + indent + "Help\n"},
      {{"mode", 1, 0, "one\ntwo\nthree"},
       "      --mode            one\n" + indent + "two\n" + indent + "three\n"},
      {{"a_rather_long_option", 1, 0, "one\ntwo"},
       "      --a_rather_long_option\n" + indent + "one\n" + indent + "two\n"},
      {{"empty", 0, 0, ""}, "      --empty           \n"},
      {{"secret", 1, 's', nullptr}, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(printedEntry(c.option), c.expected) << c.option.name;
}

TEST(OptionPrinter, TitleThenEntriesInTableOrder) {
  bool flag;
  OptionParser parser;
  parser.addFlag("zeta", 0, "Last letter", flag);
  parser.addFlag("hidden", 0, nullptr, flag);
  parser.addFlag("alpha", 'a', "First letter", flag);
  EXPECT_EQ(printed(parser, "Options for Some:"),
            "Options for Some:\n"
            "      --zeta            Last letter\n"
            "  -a, --alpha           First letter\n");
}

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

TEST(OptionParser, PositionalArgumentsKeepTheirOrderAmongOptions) {
  Table t;
  ASSERT_EQ(t.parse({"one", "-c", "3", "two", "--flag", "three", "--", "-c", "--nothing"}),
            OptionParser::kOk);
  EXPECT_EQ(t.count, 3);
  EXPECT_THAT(t.positional, ElementsAre(testing::StrEq("one"), testing::StrEq("two"), testing::StrEq("three"),
                                        testing::StrEq("-c"), testing::StrEq("--nothing")));
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

TEST(OptionParser, AmbiguousAbbreviationIsUnknown) {
  bool first = false, second = false;
  OptionParser parser;
  parser.addFlag("shard", 0, nullptr, first);
  parser.addFlag("shard_param", 0, nullptr, second);
  std::vector<const char*> positional;
  const char* ambiguous[] = {"name", "--shar"};
  EXPECT_EQ(parser.parse(2, ambiguous, positional), OptionParser::kUnknownOption);
  const char* exact[] = {"name", "--shard"};
  EXPECT_EQ(parser.parse(2, exact, positional), OptionParser::kOk);
  EXPECT_TRUE(first);
  EXPECT_FALSE(second);
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

TEST(OptionParser, OptionsAddedAfterAParseAreKnownToTheNext) {
  OptionParser parser;
  bool flag = false;
  int count = 0;
  std::vector<const char*> positional;
  parser.addFlag("flag", 'f', "", flag);
  const char* args[] = {"other", "x", "-f", "y", "-n", "4"};
  EXPECT_EQ(parser.parse(6, args, positional), OptionParser::kUnknownOption);
  parser.addInt("number", 'n', "", count);
  ASSERT_EQ(parser.parse(6, args, positional), OptionParser::kOk);
  EXPECT_TRUE(flag);
  EXPECT_EQ(count, 4);
  EXPECT_THAT(positional, ElementsAre(testing::StrEq("x"), testing::StrEq("y")));
  EXPECT_STREQ(args[1], "x");  // the caller's array is left in its order
}

}  // namespace
