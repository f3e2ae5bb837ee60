#include "algo/vcall/region_pipeline.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <chrono>
#include <future>
#include <utility>

namespace {

// Tasks with other threads at a time. On 44,309 reads of 72 kb a second thread was idle for 73 ms of 275 with one waiting for
// it, for 27 ms with three, and for 13 ms with four.
constexpr ptrdiff_t kAhead = 4;

bool isReady(const std::future<void>& future) {
  return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

}  // namespace

// Shared with the pool: a task of the pool that comes late finds the entry claimed and leaves it.
struct RegionPipeline::Entry {
  std::unique_ptr<AssemblyTask> task;
  std::atomic<bool> claimed{false};  // by who assembles it
  bool assembled = false;            // as far as the walker knows, whose this is
  // Valid when the pool was given the task. The walker resets it in the end: what it refers to holds this entry.
  std::future<void> done;

  bool claim() { return !claimed.exchange(true); }
};

RegionPipeline::RegionPipeline(Step assemble, thread_coop* pool, Step call)
    : assemble_(std::make_shared<const Step>(std::move(assemble))), pool_(pool), call_(std::move(call)) {}

RegionPipeline::~RegionPipeline() {
  for (const auto& entry : queue_) entry->done = {};
}

void RegionPipeline::addTask(std::unique_ptr<AssemblyTask> task) {
  reads_ += task->fetched.size();
  queue_.push_back(std::make_shared<Entry>());
  queue_.back()->assembled = task->state != AssemblyTask::kNew;
  queue_.back()->task = std::move(task);
  offer();
  while (!queue_.empty() && !mayWait(*queue_.front())) callFirst();
}

// Whether other threads would be without a task soon: a worker that serves the pool should find one when it is done with
// one, while the walker is busy with another.
bool RegionPipeline::isWanting() const {
  if (!pool_ || pool_->wantsTask()) return pool_ != nullptr;
  const auto away = std::count_if(queue_.begin(), queue_.end(), [](const auto& entry) {
    return !entry->assembled && entry->done.valid() && !isReady(entry->done);
  });
  return away > 0 && away < kAhead;
}

// Hands tasks to the pool as long as it has nothing else to do.
void RegionPipeline::offer() {
  for (const auto& entry : queue_) {
    if (entry->done.valid() || entry->assembled) continue;
    if (!isWanting()) return;
    entry->done = pool_->submit([entry, assemble = assemble_] {
      if (entry->claim()) (*assemble)(*entry->task);
    });
  }
}

// The first task waits while another thread has it, or has none to go on with, unless too much waits behind it.
bool RegionPipeline::mayWait(const Entry& entry) const {
  if (queue_.size() > kMaxWaiting || reads_ > kMaxWaitingReads) return false;
  const bool is_away = !entry.assembled && entry.done.valid() && !isReady(entry.done);
  return is_away || isWanting();
}

void RegionPipeline::assemble(Entry& entry) {
  (*assemble_)(*entry.task);
  entry.assembled = true;
}

// The first that nobody has; false without one.
bool RegionPipeline::assembleAny() {
  for (const auto& entry : queue_) {
    if (entry->assembled || !entry->claim()) continue;
    assemble(*entry);
    return true;
  }
  return false;
}

// As long as another thread has the entry, this one looks for other work.
void RegionPipeline::settle(Entry& entry) {
  if (!entry.assembled && entry.claim()) assemble(entry);
  while (!entry.assembled) {
    if (!isReady(entry.done) && assembleAny()) continue;
    pool_->waitFor(entry.done);
    entry.done.get();
    entry.assembled = true;
  }
}

void RegionPipeline::callFirst() {
  settle(*queue_.front());
  const std::shared_ptr<Entry> entry = std::move(queue_.front());
  queue_.pop_front();
  entry->done = {};
  offer();
  reads_ -= entry->task->fetched.size();
  const std::unique_ptr<AssemblyTask> task = std::move(entry->task);
  assert(task->state == 1);
  call_(*task);
  task->state = AssemblyTask::kCalled;
}

void RegionPipeline::drain() {
  while (!queue_.empty()) callFirst();
}

uint32_t RegionPipeline::firstNeeded(uint32_t none) const {
  for (const auto& entry : queue_) none = std::min(none, entry->task->paddedInterval.start);
  return none;
}
