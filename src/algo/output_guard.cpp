#include "algo/output_guard.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

#include "algo/output_check.h"

void OutputGuard::add(const std::vector<OutputFile>& files) {
  std::lock_guard lock(mutex_);
  files_.insert(files_.end(), files.begin(), files.end());
}

void OutputGuard::release(const std::vector<OutputFile>& files) {
  std::lock_guard lock(mutex_);
  for (const OutputFile& file : files)
    std::erase_if(files_, [&](const OutputFile& other) { return other.path == file.path; });
}

void OutputGuard::opening(const std::function<void()>& open) {
  std::unique_lock lock(mutex_);
  if (!failed_) return open();
  lock.unlock();
  for (;;) pause();
}

void OutputGuard::discard() {
  std::lock_guard lock(mutex_);
  failed_ = true;
  discardOutputs(std::exchange(files_, {}));
}
