#include "driver/sharder.h"

#include <algorithm>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

#include "base/text.h"

namespace {

// Ends a group whatever its bases: small shards of a large group would fill the memory.
constexpr size_t kMostGroupShards = 65536;

bool isNoCoor(const char* contig) {
  return strcmp(contig, kNoCoor) == 0;
}

// Written to standard error, and to standard input too when that is no terminal: whoever started the run may
// have connected something there that listens.
void writeProgressLine(const std::string& line) {
  static std::mutex progress_mutex;
  static int also_stdin = -1;  // not known yet
  std::lock_guard lock(progress_mutex);
  if (also_stdin < 0) also_stdin = !isatty(0);
  // A listener that went away must not end the run, so a failed write is let go.
  if (write(2, line.data(), line.size()) < 0) return;
  // Nor may one that does not read: its line is dropped, where a write would wait.
  pollfd listener{0, POLLOUT, 0};
  if (also_stdin && poll(&listener, 1, 0) == 1 && (listener.revents & POLLOUT) &&
      write(0, line.data(), line.size()) < 0)
    return;
}

}  // namespace

uint64_t ShardResults::memorySize() const {
  uint64_t sum = 0;
  for (const auto& result : results)
    if (result) sum += result->memorySize();
  return sum;
}

Sharder::Sharder(std::vector<Target> targets, const DriverOptions& options)
    : ShardScheduler(options),
      targets_(std::move(targets)),
      shard_size_(options.shard_size),
      capacity_(std::max(0, options.scheduler_capacity)),
      capacity_low_(int64_t(0.8 * double(capacity_))),
      memory_capacity_(std::max<int64_t>(0, options.scheduler_memory_capacity)),
      memory_low_(int64_t(0.8 * double(memory_capacity_))),
      groups_(targets_.size()),
      active_walkers_(options.thread_count),
      start_time_(now()) {
  if (targets_.empty()) return;
  int32_t count = int32_t(targets_.size());
  int32_t tail = count;  // first target of the NO_COOR tail
  while (tail > 0 && isNoCoor(targets_[tail - 1].contig)) tail--;

  for (int32_t i = 0; i < count; i++) {
    size_t number = size_t(targets_[i].contig_number);
    if (order_.size() <= number) order_.resize(number + 1, -1);
    order_[number] = i;
  }
  for (const Target& target : targets_) {
    uint32_t length = target.start < target.end ? target.end - target.start : 0;
    total_bases_ += length;
    shard_total_ += length ? (length - 1) / shard_size_ + 1 : 1;
  }
  if (shard_total_ > INT32_MAX)
    throw std::invalid_argument(
        format("Shards of %u bases are too small: %ld of them, at most %d can be numbered", shard_size_,
               long(shard_total_), INT32_MAX));

  cut_limit_ = count;
  cut_index_ = 0;
  frontier_sequence_ = 0;
  if (tail > 0 && tail < count) {
    regular_count_ = tail;
    cut_index_ = tail;
    frontier_sequence_ = -1;
  }
  cut_position_ = targets_[cut_index_].start;
  cut_group_ = groupOf(cut_index_);
  frontier_group_ = groupOf(0);
}

bool Sharder::nextShard(Shard& out, int thread_index) {
  {
    std::lock_guard lock(mutex_);
    if (active_walkers_ < 2) thread_index = -1;
  }
  return ShardScheduler::nextShard(out, thread_index);
}

void Sharder::closeGroup() {
  groups_[cut_group_].end_sequence = cut_sequence_;
}

bool Sharder::cutShard(Shard& out) {
  if (cut_index_ < 0) return false;
  const Target& target = targets_[cut_index_];
  out.contig = target.contig;
  out.contig_number = target.contig_number;
  out.entry = target.entry;
  out.start = cut_position_;
  out.sequence = cut_sequence_++;
  uint64_t end = uint64_t(cut_position_) + shard_size_;
  if (end < target.end) {
    out.end = cut_position_ = uint32_t(end);
    return true;
  }

  out.end = target.end;
  cut_index_++;
  if (cut_index_ < cut_limit_) {
    if (groupOf(cut_index_) != cut_group_) {
      closeGroup();
      cut_group_ = groupOf(cut_index_);
      groups_[cut_group_].first_sequence = cut_sequence_;
    }
  } else if (regular_count_ > 0) {  // the NO_COOR tail is done, the regular targets begin
    cut_limit_ = regular_count_;
    regular_count_ = 0;
    cut_index_ = 0;
    closeGroup();
    cut_group_ = groupOf(0);
    groups_[cut_group_].first_sequence = cut_sequence_;
    frontier_group_ = cut_group_;
    frontier_sequence_ = cut_sequence_;
  } else {
    cut_index_ = -1;
    closeGroup();
    merge_ready_.notify_all();
    return true;
  }
  cut_position_ = targets_[cut_index_].start;
  return true;
}

bool Sharder::fillQueue(std::deque<Shard>& queue) {
  queue.clear();
  int contig_count = 0;
  uint64_t bases = 0;  // of the contigs before the current one
  const char* contig = nullptr;
  uint32_t contig_start = 0;
  Shard shard;
  while (cutShard(shard)) {
    bool entered = !contig || contig != shard.contig;
    if (entered) {
      if (contig) bases += queue.back().end - contig_start;
      contig = shard.contig;
      contig_start = shard.start;
      contig_count++;
    }
    queue.push_back(shard);
    if (bases + (shard.end - contig_start) >= group_ref_len_ || contig_count >= group_chr_num_ ||
        queue.size() >= kMostGroupShards || (entered && isNoCoor(contig)))
      break;
  }
  return !queue.empty();
}

bool Sharder::beforeFrontier(const Key& key) const {
  if (frontier_group_ < 0) return true;
  int32_t group = order_[key.first];
  return group < frontier_group_ || (group == frontier_group_ && key.second < frontier_sequence_);
}

bool Sharder::atFrontier(const Key& key) const {
  return frontier_group_ >= 0 && order_[key.first] == frontier_group_ && key.second == frontier_sequence_;
}

void Sharder::advanceFrontier() {
  frontier_sequence_++;
  if (frontier_sequence_ != groups_[frontier_group_].end_sequence) return;
  int32_t next = frontier_group_ + 1;
  if (next >= int32_t(targets_.size())) {
    frontier_group_ = frontier_sequence_ = -1;
  } else {
    frontier_group_ = groupOf(next);
    frontier_sequence_ = groups_[frontier_group_].first_sequence;
  }
}

void Sharder::moveFrontier(const Shard& shard) {
  if (!atFrontier({shard.contig_number, shard.sequence})) return;
  for (const auto& [key, waiting] : results_) {
    if (frontier_group_ < 0) break;
    if (atFrontier(key))
      advanceFrontier();
    else if (!beforeFrontier(key))
      break;
  }
  merge_ready_.notify_all();
  room_.notify_all();  // a waiting walker whose shard the frontier has passed may go on
}

bool Sharder::mayGoOn(int32_t sequence) const {
  if (active_walkers_ <= 0 || frontier_group_ < 0 || sequence <= frontier_sequence_) return true;
  return int64_t(results_.size()) <= capacity_ && waiting_memory_ <= memory_capacity_;
}

void Sharder::finishShard(ShardResults finished, const ResourceUse& used, uint64_t reads) {
  std::unique_lock lock(mutex_);
  active_walkers_--;
  waiting_memory_ += int64_t(finished.memorySize());
  stats_.user += used.user;
  stats_.system += used.system;
  stats_.real += used.real;
  stats_.count++;
  stats_.reads += reads;
  if (progress_enabled) reportProgress(finished.shard);

  const Shard shard = finished.shard;
  results_.emplace(Key{shard.contig_number, shard.sequence}, std::move(finished));
  moveFrontier(shard);
  while (!mayGoOn(shard.sequence)) room_.wait(lock);
  active_walkers_++;
}

void Sharder::reportProgress(const Shard& shard) {
  uint64_t old_step = total_bases_ ? bases_done_ * 100 / total_bases_ / 5 : 20;
  if (shard.end > shard.start) bases_done_ += shard.end - shard.start;
  uint64_t percent = total_bases_ ? bases_done_ * 100 / total_bases_ : 100;
  if (old_step >= percent / 5) return;
  double elapsed = now() - start_time_;
  double remaining = double(100 - percent) * elapsed / double(percent);
  std::string line = format(
      "progress %d%% @%s:%d, elapsed %.1fs, est remaining %.1fs, peak mem %dMB, user %.1fs, sys %.1fs, "
      "output queue size %d\n",
      int(percent), shard.contig, int(shard.start + 1), elapsed, remaining, int(peak_memory() >> 20),
      double(stats_.user) / 1e6, double(stats_.system) / 1e6, int(results_.size()));
  if (line.size() > 1023) line.resize(1023);
  writeProgressLine(line);
}

bool Sharder::takeMergeable(std::vector<ShardResults>& out) {
  out.clear();
  std::unique_lock lock(mutex_);
  while (true) {
    while (!results_.empty() && beforeFrontier(results_.begin()->first)) {
      out.push_back(std::move(results_.begin()->second));
      results_.erase(results_.begin());
    }
    if (!out.empty()) return true;
    if (cut_index_ < 0 && frontier_group_ < 0) return false;
    merge_ready_.wait(lock);
  }
}

void Sharder::merged(uint64_t bytes) {
  std::lock_guard lock(mutex_);
  waiting_memory_ -= int64_t(bytes);
  if (int64_t(results_.size()) <= capacity_low_ && waiting_memory_ <= memory_low_) room_.notify_all();
}
