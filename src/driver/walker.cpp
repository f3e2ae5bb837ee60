#include "driver/walker.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "base/crash.h"
#include "base/timer.h"

namespace {

// Reads without coordinates that are in memory at a time.
constexpr size_t kNoCoorBatch = 100000;

ResourceUse operator-(const ResourceUse& a, const ResourceUse& b) {
  return {a.user - b.user, a.system - b.system, a.real - b.real};
}

}  // namespace

Walker::Walker(Sharder& sharder, const RunInputs& inputs, std::vector<Algo*> algos, thread_coop* pool,
               int index)
    : sharder_(sharder), inputs_(inputs), algos_(std::move(algos)), pool_(pool), index_(index) {}

Walker::~Walker() = default;

void Walker::operator()() {
  try {
    openInputs();
    for (size_t i = 0; i < algos_.size(); i++) engines_.push_back(algos_[i]->newEngine(&context_, int(i)));
    walkShards();
    for (size_t i = 0; i < algos_.size(); i++) algos_[i]->deleteEngine(engines_[i]);
    engines_.clear();
    reads_.reset();
    handles_.clear();
    reference_.reset();
  } catch (const std::exception& error) {
    exit_worker(error.what());
  }
}

void Walker::openInputs() {
  if (inputs_.reference) reference_ = std::make_unique<FastaFile>(*inputs_.reference);
  std::vector<BAMHandle*> clones;
  for (const auto& handle : inputs_.handles) {
    handles_.push_back(handle->clone());
    handles_.back()->setReference(reference_.get());
    clones.push_back(handles_.back().get());
  }
  if (clones.empty() && !reference_) throw std::invalid_argument("No read input or reference file set");
  if (!clones.empty()) {
    reads_ = std::make_unique<ReadCache>(clones, true);
    if (!inputs_.quality_groups.empty())
      reads_->setTransform(std::make_unique<QualTransform>(inputs_.quality_groups));
    if (inputs_.reference && reads_->input().check_contigs(inputs_.reference->contigs()) < 0)
      throw std::invalid_argument("Failed to get ordered contigs");
  }
  context_.mode = inputs_.options.mode;
  context_.reference = reference_.get();
  context_.reads = reads_.get();
  context_.intervals = inputs_.intervals.get();
  context_.command_line = inputs_.command_line;
  context_.pool = pool_;
}

void Walker::walkShards() {
  const int debug = inputs_.options.debug;
  while (sharder_.nextShard(context_.shard, index_)) {
    ResourceUse begin = ResourceUse::sample();
    double begin_time = debug ? now() : 0;
    uint64_t reads_before = reads_ ? reads_->readCount() : 0;

    walkShard();

    ShardResults finished;
    finished.shard = context_.shard;
    for (Algo::Engine* engine : engines_) finished.results.emplace_back(engine->finishShard());
    uint64_t reads = reads_ ? reads_->readCount() - reads_before : 0;
    if (debug) reportShard(now() - begin_time, reads);
    sharder_.finishShard(std::move(finished), ResourceUse::sample() - begin, reads);
    if (pool_) runPoolTasks();
  }
}

void Walker::walkShard() {
  const Contig& contig = enterContig();
  for (Algo::Engine* engine : engines_) engine->startShard();
  if (strcmp(context_.shard.contig, kNoCoor) == 0)
    walkNoCoor();
  else
    walkSteps(contig);
}

// Makes the shard's contig current in the cache; a contig that no input has is found in the run's own list.
const Contig& Walker::enterContig() {
  const char* name = context_.shard.contig;
  if (reads_)
    if (const Contig* contig = reads_->setContig(name)) return *contig;
  auto found = inputs_.contig_map.find(name);
  if (found == inputs_.contig_map.end()) throw std::runtime_error(std::string("Unknown contig ") + name);
  return inputs_.contigs[found->second];
}

void Walker::walkNoCoor() {
  if (!reads_) return;
  static Timer* const no_coor_timer = timer("exec_no_coor");
  TimerScope scope(no_coor_timer);
  while (reads_->loadNoCoor(kNoCoorBatch) > 0)
    for (Algo::Engine* engine : engines_) engine->processNoCoor();
}

void Walker::walkSteps(const Contig& contig) {
  static Timer* const advance_timer = timer("advance");
  const Shard& shard = context_.shard;
  uint32_t span_low = shard.start, span_high = shard.end;
  for (const Algo::Engine* engine : engines_) {
    span_low = std::min(span_low, engine->span_start);
    span_high = std::max(span_high, engine->span_end);
  }
  const uint32_t load_end = std::min(span_high, contig.end);
  uint32_t low = std::max(contig.start, span_low);

  for (uint32_t pos = shard.start; pos < shard.end;) {
    // Near the end of the number range pos + step may wrap, so the end of the step is found by distance.
    uint32_t to = shard.end - pos > inputs_.options.step ? pos + inputs_.options.step : shard.end;
    TimerScope scope(advance_timer);
    uint32_t target = to == shard.end ? load_end : to;
    if (reads_ && target > low) reads_->load(low, target);
    low = to;
    for (Algo::Engine* engine : engines_) {
      engine->advance(pos, to);
      low = std::min(low, engine->span_start);
    }
    pos = to;
  }
}

void Walker::reportShard(double seconds, uint64_t reads) const {
  const Shard& shard = context_.shard;
  int megabytes = int(peak_memory() >> 20);
  if (inputs_.options.debug > kDebugWithoutReads)
    fprintf(stderr, "%d: %s:%u-%u finished in %.3f s, mem = %dM\n", shard.sequence, shard.contig, shard.start,
            shard.end, seconds, megabytes);
  else
    fprintf(stderr, "%d: %s:%u-%u finished in %.3f s, %ld reads, mem = %dM\n", shard.sequence, shard.contig,
            shard.start, shard.end, seconds, long(reads), megabytes);
}

void Walker::runPoolTasks() {
  thread_coop::Task task;
  while (pool_->tryTask(task, false)) {
    (*task)();
    task.reset();
  }
}
