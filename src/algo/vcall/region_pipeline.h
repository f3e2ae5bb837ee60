// region_pipeline.h - the regions of a shard on their way: assembled on any thread, called by the walker in order.
// Threads  belongs to a walker; assemble() runs on the pool's threads.
// Errors   an exception of a task comes out of the walker's call.
#pragma once

#include <deque>
#include <functional>
#include <future>
#include <memory>

#include "algo/vcall/assembly_task.h"
#include "base/thread_coop.h"

class RegionPipeline {
 public:
  using Call = std::function<void(AssemblyTask&)>;

  RegionPipeline(const RegionAssembler& assembler, thread_coop* pool, Call call);

  // Takes the task behind those before it, and calls those in front that must not wait any longer.
  void addTask(std::unique_ptr<AssemblyTask> task);
  void drain();  // calls all
  bool empty() const { return queue_.empty(); }
  // The padded start of the first task that waits; reads from there on are needed.
  uint32_t firstNeeded() const;

 private:
  struct Entry;

  void callFirst();

  const RegionAssembler& assembler_;
  thread_coop* pool_;
  Call call_;
  std::deque<std::shared_ptr<Entry>> queue_;
};
