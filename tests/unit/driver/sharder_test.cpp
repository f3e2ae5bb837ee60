// The plan of shards and the threads around it: what is cut, who takes it, and in which order it is merged.
#include "driver/sharder.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>

#include "driver/merger.h"

namespace {

constexpr uint64_t kResultBytes = 1000;

// A genome of `lengths`, each contig cut into `pieces` targets with gaps between them.
struct Plan {
  std::vector<TargetEntry> entries;
  std::vector<Target> targets;

  Plan(const std::vector<uint32_t>& lengths, int pieces, bool no_coor) {
    static const char* const names[] = {"chr1", "chr2", "chr3", "chr4", "chr5", "chr6"};
    entries.reserve(lengths.size() + 1);
    for (size_t i = 0; i < lengths.size(); i++) {
      entries.push_back({{names[i], 0, lengths[i]}, 0});
      for (int p = 0; p < pieces; p++) {
        uint32_t width = lengths[i] / pieces;
        targets.push_back(
            {names[i], p * width, p * width + std::max(1u, width * 9 / 10), int32_t(i), &entries.back()});
      }
    }
    if (no_coor) {
      entries.push_back({{kNoCoor, 0, 0}, 0});
      targets.push_back({kNoCoor, 0, 0, int32_t(lengths.size()), &entries.back()});
    }
  }
};

DriverOptions optionsFor(int threads, uint32_t shard_size) {
  DriverOptions options;
  options.thread_count = threads;
  options.shard_size = shard_size;
  return options;
}

struct TestResult : Algo::Result {
  uint64_t memorySize() const override { return kResultBytes; }
};

class TestEngine : public Algo::Engine {
 public:
  using Algo::Engine::Engine;
  void advance(uint32_t, uint32_t) override {}
  void processNoCoor() override {}
  Algo::Result* finishShard() override { return new TestResult; }
};

// Records the order in which shards are merged; merging takes a random while.
class RecordingAlgo : public Algo {
 public:
  RecordingAlgo(DriverContext* context, unsigned seed) : Algo(context, 1, kArgs), random_(seed) {}
  void merge(const Shard& shard, Result* result) override {
    delete result;
    merged.push_back(shard);
    std::this_thread::sleep_for(std::chrono::microseconds(random_() % 50));
  }
  Engine* newEngine(DriverContext* context, int) override { return new TestEngine(context, this); }

  std::vector<Shard> merged;

 private:
  static constexpr const char* kArgs[] = {"Recording"};
  std::minstd_rand random_;
};

// Pulls every shard with one thread, without merging.
std::vector<Shard> cutAll(Sharder& sharder) {
  std::vector<Shard> shards;
  Shard shard;
  while (sharder.nextShard(shard, 0)) shards.push_back(shard);
  return shards;
}

std::string text(const Shard& s) {
  return std::string(s.contig) + ":" + std::to_string(s.start) + "-" + std::to_string(s.end) + "#" +
         std::to_string(s.sequence);
}

std::vector<std::string> texts(const std::vector<Shard>& shards) {
  std::vector<std::string> out;
  for (const Shard& s : shards) out.push_back(text(s));
  return out;
}

}  // namespace

TEST(Sharder, CutsFromTheStartOfEachTargetAndShortensTheLast) {
  Plan plan({25, 10}, 1, false);
  plan.targets[0].start = 3;
  plan.targets[0].end = 25;
  plan.targets[1].end = 10;
  Sharder sharder(plan.targets, optionsFor(1, 10));
  EXPECT_EQ(sharder.shardTotal(), 4);
  EXPECT_EQ(texts(cutAll(sharder)),
            (std::vector<std::string>{"chr1:3-13#0", "chr1:13-23#1", "chr1:23-25#2", "chr2:0-10#3"}));
}

TEST(Sharder, RefusesMoreShardsThanCanBeNumbered) {
  Plan plan({20}, 1, false);
  plan.targets[0].end = 4000000000u;
  EXPECT_THROW(Sharder(plan.targets, optionsFor(1, 1)), std::invalid_argument);
}

TEST(Sharder, GroupsOfTinyShardsTakeLittleMemory) {
  Plan plan({20}, 1, false);
  plan.targets[0].end = 20000000;
  DriverOptions options = optionsFor(1, 1);
  options.shard_group_ref_len = INT32_MAX;
  Sharder sharder(plan.targets, options);
  Shard shard;
  const uint64_t before = peak_memory();
  for (int i = 0; i < 200000; i++) ASSERT_TRUE(sharder.nextShard(shard, 0));
  EXPECT_EQ(shard.start, 199999u);
  EXPECT_LT(peak_memory() - before, 64u << 20);
}

TEST(Sharder, StealsByPolicyWhenNothingIsLeftToCut) {
  struct Case {
    IntraPolicy intra;
    uint32_t expected_start;
  };
  for (const Case& c : {Case{IntraPolicy::kFirst, 10}, Case{IntraPolicy::kLast, 40}}) {
    Plan plan({50}, 1, false);
    plan.targets[0].end = 50;
    DriverOptions options = optionsFor(2, 10);
    options.shard_group_ref_len = 50;
    options.intra_policy = c.intra;
    Sharder sharder(plan.targets, options);
    Shard shard;
    ASSERT_TRUE(sharder.nextShard(shard, 0));
    ASSERT_TRUE(sharder.nextShard(shard, 1));
    EXPECT_EQ(shard.start, c.expected_start);
  }
}

// Walkers that sleep at random, a merger that sleeps at random: every shard is merged once, in genome order,
// however small the room for waiting results, and no more results wait ahead of the frontier than the
// capacity allows.
TEST(Sharder, MergesInGenomeOrderUnderStress) {
  struct Case {
    int threads, pieces, capacity;
    int64_t memory;
    int group;
    bool no_coor;
  };
  const Case cases[] = {
      {1, 1, 0, 0, 1, true},         {2, 1, 0, 1 << 30, 1, true}, {3, 3, 0, 1 << 30, 35, true},
      {8, 1, 1, 1 << 30, 1, true},   {8, 4, 100, 3000, 1, false}, {5, 2, 3, 1 << 30, 200, true},
      {4, 1, -5, 1 << 30, 1, false}, {8, 1, 1000, 0, 50, true},   {3, 5, 2, 5000, 20, true}};
  int round = 0;
  for (const Case& c : cases) {
    for (InterPolicy inter : {InterPolicy::kLeast, InterPolicy::kMost, InterPolicy::kRandom}) {
      SCOPED_TRACE(round);
      Plan plan({400, 30, 150, 1, 260}, c.pieces, c.no_coor);
      DriverOptions options = optionsFor(c.threads, 10);
      options.scheduler_capacity = c.capacity;
      options.scheduler_memory_capacity = c.memory;
      options.shard_group_ref_len = c.group;
      options.inter_policy = inter;
      options.intra_policy = IntraPolicy(round % 3);
      DriverContext context;
      RecordingAlgo algo(&context, round + 1);
      Sharder sharder(plan.targets, options);

      std::mutex mutex;
      std::set<std::pair<int, int>>
          waiting;  // (contig, sequence) of finished shards that the merge cannot reach yet
      std::vector<std::pair<int, int>> expected;
      size_t next = 0, most_waiting = 0;
      // What the merge order has to be, from the plan alone.
      {
        Sharder same(plan.targets, optionsFor(1, 10));
        for (const Shard& s : cutAll(same)) expected.push_back({s.contig_number, s.sequence});
        std::sort(expected.begin(), expected.end());
      }
      auto walk = [&](int index) {
        std::minstd_rand random(round * 100 + index + 1);
        Shard shard;
        while (sharder.nextShard(shard, index)) {
          std::this_thread::sleep_for(std::chrono::microseconds(random() % 100));
          ShardResults finished;
          finished.shard = shard;
          finished.results.emplace_back(new TestResult);
          {
            std::lock_guard lock(mutex);
            waiting.insert({shard.contig_number, shard.sequence});
            while (next < expected.size() && waiting.erase(expected[next])) next++;
            most_waiting = std::max(most_waiting, waiting.size());
          }
          sharder.finishShard(std::move(finished), {}, 0);
        }
      };
      std::thread merger{Merger(sharder, {&algo})};
      std::vector<std::thread> walkers;
      for (int i = 0; i < c.threads; i++) walkers.emplace_back(walk, i);
      for (auto& t : walkers) t.join();
      merger.join();

      ASSERT_EQ(algo.merged.size(), expected.size());
      for (size_t i = 0; i < expected.size(); i++)
        ASSERT_EQ(std::make_pair(algo.merged[i].contig_number, algo.merged[i].sequence), expected[i]);
      // The last active walker may run on past a full store, but then the others stand still.
      size_t room = size_t(std::min<int64_t>(std::max(0, c.capacity), c.memory / int64_t(kResultBytes)));
      if (c.group == 1) {
        EXPECT_LE(most_waiting, room + 2 * size_t(c.threads));
      }
      round++;
    }
  }
}
