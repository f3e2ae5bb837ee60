#include "algo/algo.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

class Sample : public Algo {
 public:
  Sample(DriverContext* context, const char* const args[]) : Algo(context, 1, args) {}
  using Algo::requireMergeRun;
  void merge(const Shard&, Result*) override {}
  Engine* newEngine(DriverContext*, int) override { return nullptr; }
};

std::string failure(auto call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "none";
}

TEST(Algo, MergeRunHasNoReadsAndSomePartialFile) {
  DriverContext context;
  const char* args[] = {"Sample"};
  Sample sample(&context, args);
  EXPECT_EQ(failure([&] { sample.requireMergeRun(1); }), "none");
  EXPECT_EQ(failure([&] { sample.requireMergeRun(0); }), "Sample: no partial files for merge");
  context.reference = reinterpret_cast<FastaFile*>(&context);  // only looked at for being there
  EXPECT_EQ(failure([&] { sample.requireMergeRun(0); }),
            "Sample: --merge must not have input reference or bam files");
}

}  // namespace
