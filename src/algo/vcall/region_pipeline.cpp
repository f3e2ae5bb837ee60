#include "algo/vcall/region_pipeline.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <utility>

namespace {

// Tasks that may wait for a pool thread while the walker goes on; bounds the reads that are kept for them.
constexpr size_t kMaxWaiting = 16;

}  // namespace

// Shared with the pool: a task of the pool that comes late finds the entry claimed and leaves it.
struct RegionPipeline::Entry {
  std::unique_ptr<AssemblyTask> task;
  std::atomic<bool> claimed{false};
  // Valid when the pool was given the task. The walker resets it in the end: what it refers to holds this entry.
  std::future<void> done;

  bool claim() { return !claimed.exchange(true); }
};

RegionPipeline::RegionPipeline(const RegionAssembler& assembler, thread_coop* pool, Call call)
    : assembler_(assembler), pool_(pool), call_(std::move(call)) {}

RegionPipeline::~RegionPipeline() {
  for (const auto& entry : queue_) entry->done = {};
}

void RegionPipeline::addTask(std::unique_ptr<AssemblyTask> task) {
  queue_.push_back(std::make_shared<Entry>());
  queue_.back()->task = std::move(task);
  offer();
  while (!queue_.empty() && !mayWait(*queue_.front())) callFirst();
}

// Hands tasks to the pool as long as it has nothing else to do.
void RegionPipeline::offer() {
  if (!pool_) return;
  for (const auto& entry : queue_) {
    if (entry->done.valid() || entry->task->state != AssemblyTask::kNew) continue;
    if (!pool_->wantsTask()) return;
    entry->done = pool_->submit([entry, &assembler = assembler_] {
      if (entry->claim()) assembler.assemble(*entry->task);
    });
  }
}

// The first task waits while another thread has it, unless the queue has grown too long.
bool RegionPipeline::mayWait(const Entry& entry) const {
  return entry.done.valid() && queue_.size() <= kMaxWaiting &&
         entry.done.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
}

void RegionPipeline::callFirst() {
  const std::shared_ptr<Entry> entry = std::move(queue_.front());
  queue_.pop_front();
  // The state is another thread's as long as that has the task.
  const bool shared = entry->done.valid();
  if (shared && !entry->claim()) {
    pool_->waitFor(entry->done);
    entry->done.get();
  } else if (entry->task->state == AssemblyTask::kNew) {
    assembler_.assemble(*entry->task);
  }
  entry->done = {};
  offer();
  call_(*entry->task);
  entry->task->state = AssemblyTask::kCalled;
  entry->task.reset();
}

void RegionPipeline::drain() {
  while (!queue_.empty()) callFirst();
}

uint32_t RegionPipeline::firstNeeded(uint32_t none) const {
  for (const auto& entry : queue_) none = std::min(none, entry->task->paddedInterval.start);
  return none;
}
