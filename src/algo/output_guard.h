// output_guard.h - what algorithms have begun to write, so that a run that fails leaves nothing that looks whole.
// Threads  any, also side by side.
#pragma once

#include <functional>
#include <mutex>
#include <vector>

struct OutputFile;

class OutputGuard {
 public:
  // From now on these are the run's: they are open and not yet whole.
  void add(const std::vector<OutputFile>& files);
  // They are whole, and stay.
  void release(const std::vector<OutputFile>& files);
  // Does what opens a shard's file. Does not return once discard() was called: the process is about to end.
  void opening(const std::function<void()>& open);
  // discardOutputs() of all that is not whole; of threads that fail together each returns when that is done. The
  // process is to end then.
  void discard();

 private:
  std::mutex mutex_;
  std::vector<OutputFile> files_;
  bool failed_ = false;
};
