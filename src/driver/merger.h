// merger.h - the one thread that hands finished shards to the algorithms, in genome order.
// Errors   an exception of a merge ends the process as exit_worker() tells.
#pragma once

#include <vector>

#include "algo/algo.h"
#include "driver/sharder.h"

class Merger {
 public:
  Merger(Sharder& sharder, std::vector<Algo*> algos) : sharder_(sharder), algos_(std::move(algos)) {}
  void operator()();

 private:
  void mergeAll();

  Sharder& sharder_;
  std::vector<Algo*> algos_;
};
