// region_pipeline.h - the regions of a shard on their way: assembled on any thread, called by the walker in order.
// Threads  belongs to a walker. Only assemble() runs on the pool's threads: a leaf, which waits for nothing.
// Memory   a region waits for another thread as long as not too many regions, or reads, wait with it.
// Errors   an exception of a task comes out of the walker's call.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>

#include "algo/vcall/assembly_task.h"
#include "base/thread_coop.h"

class RegionPipeline {
 public:
  using Step = std::function<void(AssemblyTask&)>;

  static constexpr size_t kMaxWaiting = 16;            // tasks
  static constexpr size_t kMaxWaitingReads = 1 << 17;  // of all of them; neighbours may share some

  // `assemble` is called on several threads at once, and outlives the pool's work, as what it refers to does; a null
  // pool leaves all to the walker.
  RegionPipeline(Step assemble, thread_coop* pool, Step call);
  ~RegionPipeline();

  // Takes the task behind those before it, and calls those in front that need not wait any longer.
  void addTask(std::unique_ptr<AssemblyTask> task);
  void drain();  // calls all
  bool empty() const { return queue_.empty(); }
  // The padded start of the first task that waits: reads before it are not needed. `none` without one.
  uint32_t firstNeeded(uint32_t none) const;

 private:
  struct Entry;

  bool isWanting() const;
  void offer();
  bool mayWait(const Entry& entry) const;
  void assemble(Entry& entry);
  bool assembleAny();
  void settle(Entry& entry);
  void callFirst();

  const std::shared_ptr<const Step> assemble_;  // shared with the pool
  thread_coop* pool_;
  Step call_;
  std::deque<std::shared_ptr<Entry>> queue_;
  size_t reads_ = 0;  // of the queue
};
