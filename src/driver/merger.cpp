#include "driver/merger.h"

#include "base/crash.h"

void Merger::operator()() {
  try {
    mergeAll();
  } catch (const std::exception& error) {
    exit_worker(error.what());
  }
}

void Merger::mergeAll() {
  std::vector<ShardResults> ready;
  while (sharder_.takeMergeable(ready)) {
    for (ShardResults& finished : ready) {
      uint64_t bytes = finished.memorySize();
      for (size_t i = 0; i < algos_.size(); i++)
        if (finished.results[i]) algos_[i]->merge(finished.shard, finished.results[i].release());
      sharder_.merged(bytes);
    }
  }
}
