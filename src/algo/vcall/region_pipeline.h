// region_pipeline.h - the regions of a shard on their way: assembled on any thread, called by the walker in order.
// Threads  belongs to a walker. Only assemble() runs on the pool's threads: a leaf, which waits for nothing.
// Errors   an exception of a task comes out of the walker's call.
#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "algo/vcall/assembly_task.h"
#include "base/thread_coop.h"

class RegionPipeline {
 public:
  using Call = std::function<void(AssemblyTask&)>;

  // Both outlive the pool's work; a null pool leaves all to the walker.
  RegionPipeline(const RegionAssembler& assembler, thread_coop* pool, Call call);
  ~RegionPipeline();

  // Takes the task behind those before it, and calls those in front that need not wait any longer.
  void addTask(std::unique_ptr<AssemblyTask> task);
  void drain();  // calls all
  bool empty() const { return queue_.empty(); }
  // The padded start of the first task that waits: reads before it are not needed. `none` without one.
  uint32_t firstNeeded(uint32_t none) const;

 private:
  struct Entry;

  void offer();
  bool mayWait(const Entry& entry) const;
  void callFirst();

  const RegionAssembler& assembler_;
  thread_coop* pool_;
  Call call_;
  std::deque<std::shared_ptr<Entry>> queue_;
};
