#include "algo/algo.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

class Sample : public Algo {
 public:
  class Worker : public Engine {
   public:
    using Engine::Engine;
    using Engine::shardName;
    void advance(uint32_t, uint32_t) override {}
    void processNoCoor() override {}
    Result* finishShard() override { return new Result; }
  };

  Sample(DriverContext* context, int count, const char* const args[]) : Algo(context, count, args) {
    if (count > 1 && std::string(args[1]) == "bad") throw std::invalid_argument(name + ": bad");
  }
  void merge(const Shard&, Result* result) override { delete result; }
  Engine* newEngine(DriverContext* context, int) override { return new Worker(context, this); }

  using Algo::command_line_;
  using Algo::giveHelp;
  using Algo::requireMergeRun;
};

std::string failure(auto call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "none";
}

TEST(Algo, InitChecksTheModeAgainstTheMask) {
  const std::string refused = "Algo Sample does not support ";
  struct {
    int mode;
    uint32_t mask;
    std::string expected;
  } const cases[] = {
      {0, 1, "none"},
      {0, 6, refused + "traversal mode"},
      {1, 1, refused + "sharded traversal mode"},
      {1, 3, "none"},
      {2, 3, refused + "non-traversal mode"},
      {2, 4, "none"},
      {3, 7, "Algo Sample unknown mode 3"},
      {31, 7, "Algo Sample unknown mode 31"},
      {31, 1u << 31, "none"},
      {32, 1, "Algo Sample unknown mode 32"},
      {-1, 1u << 31, "Algo Sample unknown mode -1"},
  };
  for (const auto& c : cases) {
    DriverContext context;
    context.mode = c.mode;
    const char* args[] = {"Sample"};
    Sample sample(&context, 1, args);
    sample.mode_mask = c.mask;
    EXPECT_EQ(failure([&] { sample.init(); }), c.expected) << c.mode << " " << c.mask;
  }
}

TEST(Algo, LongNameIsCutInTheModeMessage) {
  DriverContext context;
  context.mode = DriverContext::kNonTraversal;
  const std::string name(1000, 'n');
  const char* args[] = {name.c_str()};
  Sample sample(&context, 1, args);
  EXPECT_EQ(failure([&] { sample.init(); }), "Algo " + std::string(250, 'n'));
}

TEST(Algo, BuilderMakesTheAlgorithmWithItsTagAndCommandLine) {
  static TemplateAlgoBuilder<Sample> plain("Sample"), hidden("Internal", "__INTERNAL__");
  EXPECT_TRUE(plain.visible());
  EXPECT_FALSE(hidden.visible());
  EXPECT_EQ(AlgoBuilder::registry().at("Internal"), &hidden);

  DriverContext context;
  context.command_line = "driver -i in.bam";
  const char* args[] = {"Sample", "--option", "out.bam"};
  std::unique_ptr<Algo> algo(AlgoBuilder::registry().at("Sample")->create(&context, 3, args));
  EXPECT_EQ(algo->name, "Sample");
  EXPECT_EQ(algo->builder_tag, "Sample");
  EXPECT_EQ(static_cast<Sample&>(*algo).command_line_, "driver -i in.bam --algo Sample --option out.bam");
  EXPECT_EQ(algo->mode_mask, 1u);

  const char* bad[] = {"Sample", "bad"};
  EXPECT_EQ(failure([&] { delete plain.create(&context, 2, bad); }), "Sample: bad");
}

TEST(Algo, EngineTakesItsSpanAndNameFromTheShard) {
  DriverContext context;
  const char* args[] = {"Sample"};
  Sample sample(&context, 1, args);
  Sample::Worker engine(&context, &sample);
  context.shard.start = 4000000000u;
  context.shard.end = 4000000100u;
  context.shard.sequence = 17;
  engine.startShard();
  EXPECT_EQ(engine.span_start, 4000000000u);
  EXPECT_EQ(engine.span_end, 4000000100u);
  EXPECT_EQ(engine.shardName("/tmp/out.bam"), "/tmp/out.bam_17");
  sample.deleteEngine(nullptr);
}

TEST(Algo, MergeRunHasNoReadsAndSomePartialFile) {
  DriverContext context;
  const char* args[] = {"Sample"};
  Sample sample(&context, 1, args);
  EXPECT_EQ(failure([&] { sample.requireMergeRun(1); }), "none");
  EXPECT_EQ(failure([&] { sample.requireMergeRun(0); }), "Sample: no partial files for merge");
  context.reference = reinterpret_cast<FastaFile*>(&context);  // only looked at for being there
  EXPECT_EQ(failure([&] { sample.requireMergeRun(0); }),
            "Sample: --merge must not have input reference or bam files");
}

TEST(Algo, HelpGoesToStandardErrorAndIsMarked) {
  DriverContext context;
  context.mode = DriverContext::kHelp;
  const char* args[] = {"Sample"};
  Sample sample(&context, 1, args);
  OptionParser parser;
  bool flag;
  parser.addFlag("flag", 0, "A flag", flag);
  testing::internal::CaptureStderr();
  sample.giveHelp("Usage for Sample:\n\n", parser);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Usage for Sample:\n\nOptions for Sample:\n      --flag            A flag\n");
  EXPECT_EQ(failure([&] { sample.init(); }), "none");
}

}  // namespace
