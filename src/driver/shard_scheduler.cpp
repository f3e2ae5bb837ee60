#include "driver/shard_scheduler.h"

#include <cstdlib>

ShardScheduler::ShardScheduler(const DriverOptions& options)
    : thread_count_(options.thread_count),
      group_ref_len_(options.shard_group_ref_len < 1 ? 1 : options.shard_group_ref_len),
      group_chr_num_(options.shard_group_chr_num),
      queues_(options.thread_count),
      inter_policy_(options.inter_policy),
      intra_policy_(options.intra_policy) {}

bool ShardScheduler::nextShard(Shard& out, int thread_index) {
  std::lock_guard lock(mutex_);
  return takeLocked(out, thread_index);
}

bool ShardScheduler::takeLocked(Shard& out, int thread_index) {
  if (thread_index < 0) {
    thread_index = 0;
    const Shard* earliest = nullptr;
    for (size_t i = 0; i < queues_.size(); i++)
      if (!queues_[i].empty() && (!earliest || queues_[i].front().sequence < earliest->sequence)) {
        earliest = &queues_[i].front();
        thread_index = int(i);
      }
  }
  std::deque<Shard>& own = queues_[thread_index];
  if (!own.empty() || fillQueue(own)) {
    out = own.front();
    own.pop_front();
    return true;
  }
  std::deque<Shard>* victim = chooseVictim();
  if (!victim) return false;
  steal(*victim, out);
  return true;
}

std::deque<Shard>* ShardScheduler::chooseVictim() {
  std::vector<std::deque<Shard>*> candidates;
  for (auto& queue : queues_)
    if (!queue.empty()) candidates.push_back(&queue);
  if (candidates.empty()) return nullptr;
  if (inter_policy_ == InterPolicy::kRandom) return candidates[draw(candidates.size())];
  std::deque<Shard>* best = candidates[0];
  for (auto* queue : candidates)
    if (inter_policy_ == InterPolicy::kLeast ? queue->size() < best->size() : queue->size() > best->size())
      best = queue;
  return best;
}

void ShardScheduler::steal(std::deque<Shard>& victim, Shard& out) {
  size_t at = 0;
  if (intra_policy_ == IntraPolicy::kLast) at = victim.size() - 1;
  if (intra_policy_ == IntraPolicy::kRandom) at = draw(victim.size());
  out = victim[at];
  victim.erase(victim.begin() + at);
}

long ShardScheduler::draw(size_t count) {
  return nrand48(random_state_) % long(count);
}
