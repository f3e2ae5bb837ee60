#include "driver/driver_options.h"

#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include "algo/driver_context.h"
#include "base/text.h"
#include "driver/command_line.h"

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

TEST(DriverOptions, ShardParamKeepsWhatIsNotThere) {
  struct {
    const char* text;
    uint32_t size, step;
  } const cases[] = {{"20000/500", 20000, 500},  {"20000", 20000, 1000},
                     {"20000/", 20000, 1000},    {"20000/x", 20000, 1000},
                     {"20000:500", 20000, 1000}, {"20000/500/7", 20000, 500},
                     {"/500", 1000000, 1000},    {"x", 1000000, 1000},
                     {"", 1000000, 1000},        {"4294967295/4294967295", UINT32_MAX, UINT32_MAX}};
  for (const auto& c : cases) {
    DriverOptions options;
    ASSERT_TRUE(parse(std::string("--shard_param=") + c.text, options)) << c.text;
    EXPECT_EQ(options.shard_size, c.size) << c.text;
    EXPECT_EQ(options.step, c.step) << c.text;
  }
}

TEST(DriverOptions, ShardsOfAllOccurrencesAreMerged) {
  DriverOptions options;
  ASSERT_TRUE(parse(
      "-i a --shard chr2:11-20,chr1:5-9 --shard chr1:1-4,chr1:20-30 --shard chr2:15-40,NO_COOR:", options));
  std::string text;
  for (const auto& [contig, list] : options.shards)
    for (const Interval& i : list) text += format("%s:%u-%u ", contig.c_str(), i.start, i.end);
  EXPECT_EQ(text, "NO_COOR:0-4294967295 chr1:0-9 chr1:19-30 chr2:10-40 ");
}

TEST(DriverOptions, RepeatedAndDefaultValues) {
  DriverOptions options;
  ASSERT_TRUE(
      parse("-i a.bam --input=b.bam -q t1 -q t2 --read_filter F,a=1 --interval x --interval y "
            "--cram_read_options a=1,b=2 --cram_read_options b=3 --shard_group_ref_len -7 "
            "--inter_shard_group_steal_policy lEAST --intra_shard_group_steal_policy FIRST",
            options));
  EXPECT_EQ(options.inputs, std::vector<std::string>({"a.bam", "b.bam"}));
  EXPECT_EQ(options.qual_cals, std::vector<std::string>({"t1", "t2"}));
  EXPECT_EQ(options.interval, "y");
  EXPECT_EQ(options.cram_read_options, (std::map<std::string, std::string>{{"a", "1"}, {"b", "3"}}));
  EXPECT_EQ(options.shard_group_ref_len, 1);
  EXPECT_EQ(options.inter_policy, InterPolicy::kLeast);
  EXPECT_EQ(options.intra_policy, IntraPolicy::kFirst);
  EXPECT_EQ(options.thread_count, get_nprocs());
  EXPECT_FALSE(options.reference);
}

TEST(CommandLine, IsCutAtEachAlgo) {
  const char* argv[] = {"driver",    "-i",     "a b.bam", "--algo",  "One",    "x",
                        "--algo=no", "--algo", "--algo",  "--algo=", "--algo", "Two"};
  const CommandLine line = splitCommandLine(12, argv);
  EXPECT_EQ(line.driver_count, 3);
  EXPECT_EQ(line.text, "driver -i a b.bam");
  std::vector<std::string> ranges;
  for (const AlgoRange& range : line.algos) {
    ranges.emplace_back();
    for (int i = 0; i < range.count; ++i) ranges.back() += std::string(range.args[i]) + "|";
  }
  EXPECT_EQ(ranges, std::vector<std::string>({"One|x|--algo=no|", "", "--algo=|", "Two|"}));

  const CommandLine plain = splitCommandLine(2, argv);
  EXPECT_EQ(plain.driver_count, 2);
  EXPECT_TRUE(plain.algos.empty());
}

}  // namespace
