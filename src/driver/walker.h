// walker.h - what each thread of a traversal runs: takes shards and walks them for all stacked algorithms at
// once, so that they share one read of the input.
// Owns     clones of the inputs and of the reference, a ReadCache, and one engine per algorithm, from start
//          to end of the call.
// Threads  one walker per thread; it shares the Sharder, the algorithms and the pool with the others.
// Errors   an exception ends the process as exit_worker() tells.
#pragma once

#include <memory>
#include <vector>

#include "algo/algo.h"
#include "driver/run_inputs.h"
#include "driver/sharder.h"

class Walker {
 public:
  Walker(Sharder& sharder, const RunInputs& inputs, std::vector<Algo*> algos, thread_coop* pool, int index);
  ~Walker();
  void operator()();  // walks shards until none is left

 private:
  void openInputs();
  void walkShards();
  void walkShard();
  void walkNoCoor();
  void walkSteps(const Contig& contig);
  const Contig& enterContig();
  void reportShard(double seconds, uint64_t reads) const;
  void runPoolTasks();

  Sharder& sharder_;
  const RunInputs& inputs_;
  std::vector<Algo*> algos_;
  thread_coop* pool_;
  int index_;

  std::unique_ptr<FastaFile> reference_;
  std::vector<std::unique_ptr<BAMHandle>> handles_;
  std::unique_ptr<ReadCache> reads_;
  DriverContext context_;
  std::vector<Algo::Engine*> engines_;  // in stack order; owned by the algorithms that made them
};
