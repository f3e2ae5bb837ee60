// shard_scheduler.h - which thread walks which shard: a queue per thread, filled in groups, and work
// stealing.
// Threads  nextShard() may be called by any walker; everything is guarded by `mutex_`, which derived classes
//          share.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "algo/shard.h"
#include "driver/driver_options.h"

class ShardScheduler {
 public:
  explicit ShardScheduler(const DriverOptions& options);
  virtual ~ShardScheduler() = default;
  ShardScheduler(const ShardScheduler&) = delete;
  ShardScheduler& operator=(const ShardScheduler&) = delete;

  // The next shard for the thread, from its own queue, a new group, or another thread's queue. A negative
  // index asks for the earliest shard that is queued anywhere. False when no shard is left.
  virtual bool nextShard(Shard& out, int thread_index);

 protected:
  // With the mutex held: the next shard of the plan; false at its end.
  virtual bool cutShard(Shard& out) = 0;
  // With the mutex held: empties `queue` and puts the next group of shards into it; false when none is left.
  virtual bool fillQueue(std::deque<Shard>& queue) = 0;

  std::mutex mutex_;
  int thread_count_;
  uint32_t group_ref_len_;  // bases after which a group ends
  int group_chr_num_;       // contigs after which a group ends

 private:
  bool takeLocked(Shard& out, int thread_index);
  std::deque<Shard>* chooseVictim();
  void steal(std::deque<Shard>& victim, Shard& out);
  long draw(size_t count);  // uniform in [0, count)

  std::vector<std::deque<Shard>> queues_;  // one per thread
  unsigned short random_state_[3] = {7919, 0, 0};
  InterPolicy inter_policy_;
  IntraPolicy intra_policy_;
};
