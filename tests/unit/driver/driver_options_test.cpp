#include "driver/driver_options.h"

#include <gtest/gtest.h>

#include "algo/driver_context.h"
#include "base/text.h"

namespace {

// Parses and settles the words of `line`; false when either refuses.
bool parse(const std::string& line, DriverOptions& options) {
  std::vector<std::string> words = split("driver " + line, ' ');
  if (line.empty()) words.pop_back();
  std::vector<const char*> args, positional;
  for (const std::string& word : words) args.push_back(word.c_str());
  OptionParser parser;
  bindDriverOptions(parser, options);
  return parser.parse(int(args.size()), args.data(), positional) == OptionParser::kOk &&
         settleDriverOptions(options);
}

TEST(DriverOptions, ModeFollowsFromTheOptions) {
  struct {
    const char* line;
    int mode;
  } const cases[] = {
      {"", DriverContext::kNonTraversal},
      {"--interval chr1", DriverContext::kNonTraversal},
      {"-i a.bam", DriverContext::kTraversal},
      {"-r a.fa", DriverContext::kTraversal},
      {"-i a.bam --shard chr1", DriverContext::kShardedTraversal},
      {"--shard chr1 -r a.fa", DriverContext::kShardedTraversal},
      {"-i a.bam --passthru", DriverContext::kNonTraversal},
      {"-i a.bam --passthru --help", DriverContext::kHelp},
      {"-i a.bam --help --passthru", DriverContext::kNonTraversal},
  };
  for (const auto& c : cases) {
    DriverOptions options;
    ASSERT_TRUE(parse(c.line, options)) << c.line;
    EXPECT_EQ(options.mode, c.mode) << c.line;
  }
}

TEST(DriverOptions, MemoryCapacityTakesASuffix) {
  struct {
    const char* text;
    int64_t bytes;
  } const cases[] = {{"0", 0},
                     {"77", 77},
                     {"3k", 3072},
                     {"5M", 5242880},
                     {"2g", 2147483648},
                     {"-1K", -1024},
                     {"G", 0},
                     {"", 0},
                     {"8589934591G", 8589934591 << 30},
                     {"9223372036854775807", INT64_MAX},
                     {"99999999999999999999", INT64_MAX}};
  for (const auto& c : cases) {
    DriverOptions options;
    ASSERT_TRUE(parse(std::string("--scheduler_memory_capacity=") + c.text, options)) << c.text;
    EXPECT_EQ(options.scheduler_memory_capacity, c.bytes) << c.text;
  }
  for (const char* text : {"8589934592G", "-8589934593g", "1T", "1KK", "x"}) {
    DriverOptions options;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(parse(std::string("--scheduler_memory_capacity=") + text, options)) << text;
    testing::internal::GetCapturedStderr();
  }
}

}  // namespace
