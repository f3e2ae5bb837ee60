// sharder.h - the plan of a run: cuts the targets into shards, keeps finished results until they can be
// merged in genome order, holds walkers back when too much waits, and prints the progress line.
//
// Shards are numbered in the order they are cut. NO_COOR is cut first, since one thread has to read all
// unplaced reads in one go, and merged last. The frontier is the next shard that may be merged: a (group,
// sequence) pair, where a group is all that was cut from one entry of the contig or interval list.
//
// Units    capacities: number of shards, and bytes of results.
// Owns     results between finishShard() and takeMergeable().
// Threads  every public member may be called from any thread. The mutex of the base guards all fields; the
//          mutex of the progress line nests inside it. The walker at the frontier and the last active walker
//          never wait.
#pragma once

#include <condition_variable>
#include <map>
#include <utility>
#include <vector>

#include "algo/algo.h"
#include "base/timer.h"
#include "driver/shard_scheduler.h"

// One shard's results, in stack order. Owns them; an entry may be null.
struct ShardResults {
  Shard shard;
  std::vector<std::unique_ptr<Algo::Result>> results;
  uint64_t memorySize() const;  // bytes
};

class Sharder final : public ShardScheduler {
 public:
  Sharder(std::vector<Target> targets, const DriverOptions& options);

  // For walkers: as the base, but the last active one takes what the merge waits for.
  bool nextShard(Shard& out, int thread_index) override;
  // A walker's end of a shard: hands over its results and returns when the walker may go on.
  void finishShard(ShardResults finished, const ResourceUse& used, uint64_t reads);

  // For the merger: waits for results that lie before the frontier and moves them to `out` in genome order.
  // False when all shards of the run have been handed out.
  bool takeMergeable(std::vector<ShardResults>& out);
  // The results of a shard are merged and gone; wakes walkers when enough room is there.
  void merged(uint64_t bytes);

  int64_t shardTotal() const { return shard_total_; }

 protected:
  bool cutShard(Shard& out) override;
  bool fillQueue(std::deque<Shard>& queue) override;

 private:
  struct Group {
    int32_t first_sequence = 0, end_sequence = -1;  // half open; the end is known once the group is cut
  };
  using Key = std::pair<int32_t, int32_t>;  // contig number, sequence

  int32_t groupOf(int32_t target) const { return order_[targets_[target].contig_number]; }
  bool beforeFrontier(const Key& key) const;
  bool atFrontier(const Key& key) const;
  void closeGroup();
  void advanceFrontier();
  void moveFrontier(const Shard& shard);
  bool mayGoOn(int32_t sequence) const;
  void reportProgress(const Shard& shard);

  const std::vector<Target> targets_;
  const uint32_t shard_size_;
  const int64_t capacity_, capacity_low_;
  const int64_t memory_capacity_, memory_low_;
  uint64_t total_bases_ = 0, bases_done_ = 0;
  int64_t waiting_memory_ = 0;

  int32_t cut_index_ = -1;     // target being cut, -1 when all are
  int32_t regular_count_ = 0;  // targets in front of the NO_COOR tail while that is cut, else 0
  int32_t cut_limit_ = 0;      // target count in force
  int32_t cut_group_ = -1;     // group being cut
  int32_t cut_sequence_ = 0;   // number of the next shard
  uint32_t cut_position_ = 0;
  int64_t shard_total_ = 0;  // shards expected

  int32_t frontier_group_ = -1, frontier_sequence_ = -1;
  std::vector<Group> groups_;  // by target; only the last target of an entry is used
  std::vector<int32_t>
      order_;  // contig number -> its last target, which names the group; -1 where there is none
  std::map<Key, ShardResults> results_;

  std::condition_variable merge_ready_, room_;
  int active_walkers_;
  struct {
    uint64_t user = 0, system = 0, real = 0, count = 0, reads = 0;
  } stats_;
  const double start_time_;
};
