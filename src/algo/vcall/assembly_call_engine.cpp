#include "algo/vcall/assembly_call_engine.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr uint32_t kExcluded = FLAG_UNMAPPED | FLAG_SECONDARY | FLAG_QC_FAIL | FLAG_DUPLICATE;
constexpr uint32_t kPadding = 100;  // bases of assembly to each side of an active region
// Bases before a shard in which an inactive position makes its regions those that any other cut would give. Of a longer
// run the regions depend on the cut.
constexpr uint32_t kLookBack = 1000;

uint32_t minus(uint32_t position, uint32_t bases) {
  return position - std::min(position, bases);
}

}  // namespace

AssemblyCallAlgo::Engine::Engine(DriverContext* context, AssemblyCallAlgo* algo, uint32_t windowLimit)
    : VariantCallAlgo::Engine(context, algo),
      window_limit_(windowLimit),
      evaluator_(*algo->hmm_, context->pool, algo->assemblyParam().phmmChunkSize),
      pipeline_([&assembler = *algo->assembler_](AssemblyTask& task) { assembler.assemble(task); },
                context->pool, [this](AssemblyTask& task) { call(task); }) {}

// ---- shards ----

void AssemblyCallAlgo::Engine::startShard() {
  VariantCallAlgo::Engine::startShard();
  const Shard& shard = context->shard;
  if (strcmp(shard.contig, kNoCoor) == 0) return;
  const FastaIndexEntry* const entry = context->reference->entry(shard.contig);
  contig_end_ = entry ? entry->length : 0;
  const uint32_t reach = std::max(uint32_t(tracker_.reach()), kPadding);
  const uint32_t begin = minus(shard.start, kLookBack);
  const uint64_t end = uint64_t(shard.end) + ActivityTracker::kMaxRegion + 1;
  fed_ = minus(begin, reach);
  feed_end_ = uint32_t(std::min<uint64_t>(end + reach, contig_end_));
  covered_ = shard.start;
  run_start_ = begin;
  certain_from_ = begin == 0 ? 0 : UINT32_MAX;
  tracker_.reset(begin, uint32_t(std::min<uint64_t>(end, contig_end_)));
  takeTargets();
  span_start = fed_;
  span_end = std::max(feed_end_, shard.end);
}

void AssemblyCallAlgo::Engine::takeTargets() {
  if (!context->intervals || targets_contig_ == context->shard.contig) return;
  targets_contig_ = context->shard.contig;
  targets_.clear();
  for (const auto& entries : context->intervals->per_contig())
    for (const IntervalEntry& entry : entries)
      if (targets_contig_ == entry.contig) targets_.push_back({entry.start, entry.end});
  std::sort(targets_.begin(), targets_.end(), [](Span a, Span b) { return a.start < b.start; });
}

void AssemblyCallAlgo::Engine::advance(uint32_t, uint32_t to) {
  const bool last = to == context->shard.end;
  const uint32_t end = last ? feed_end_ : std::min(to, feed_end_);
  while (fed_ < end) {
    const uint32_t stop = end - fed_ > window_limit_ ? fed_ + window_limit_ : end;
    feed(fed_, stop);
    fed_ = stop;
    cutRegions(last && fed_ == feed_end_);
  }
  if (last) pipeline_.drain();
  span_start = pipeline_.firstNeeded(minus(std::min(fed_, tracker_.settledTo()), kPadding));
}

// ---- activity ----

void AssemblyCallAlgo::Engine::feed(uint32_t start, uint32_t end) {
  fetchReference(start, end);
  fetchReads(start, end, reads_);
  {
    static Timer* const calc_timer = timer("calc");
    TimerScope scope(calc_timer);
    buildProfile(reads_, window_, start, end);
    clearOutsideTargets(start, end);
  }
  active_.clear();
  {
    static Timer* const active_timer = timer("active");
    TimerScope scope(active_timer);
    findActive(start, end, active_);
  }
  static Timer* const tracker_timer = timer("tracker");
  TimerScope scope(tracker_timer);
  for (const auto& [position, activity, clipped] : active_) tracker_.add(position, activity, clipped);
  tracker_.advanceTo(end);
}

// Makes the window hold [start, end).
void AssemblyCallAlgo::Engine::fetchReference(uint32_t start, uint32_t end) {
  static Timer* const ref_timer = timer("fetch_ref");
  TimerScope scope(ref_timer);
  // What pending regions will need lies before.
  const uint32_t from = std::min(start, minus(tracker_.settledTo(), kPadding));
  window_.hold(*context->reference, context->shard.contig, from, end);
}

void AssemblyCallAlgo::Engine::fetchReads(uint32_t start, uint32_t end, std::vector<Read*>& reads) {
  static Timer* const reads_timer = timer("fetch");
  TimerScope scope(reads_timer);
  reads.clear();
  context->reads->fetch(start, end, kExcluded, reads);
  std::erase_if(reads, [](const Read* read) { return read->read_group < 0; });
}

void AssemblyCallAlgo::Engine::clearOutsideTargets(uint32_t start, uint32_t end) {
  if (!context->intervals) return;
  uint32_t clear_from = start;
  for (const Span& target : targets_) {
    if (target.end <= clear_from) continue;
    if (target.start >= end) break;
    if (target.start > clear_from) clearProfile(clear_from, target.start);
    clear_from = std::min(target.end, end);
  }
  if (clear_from < end) clearProfile(clear_from, end);
}

// ---- regions ----

void AssemblyCallAlgo::Engine::cutRegions(bool last) {
  static Timer* const region_timer = timer("region");
  TimerScope scope(region_timer);
  const Shard& shard = context->shard;
  const uint32_t record_reach = emit_mode_ == kGvcf ? kPadding : 0;  // of a deletion: no block lies under it
  ActiveRegion region;
  while (tracker_.nextRegion(region, last)) {
    if (region.start != run_start_) certain_from_ = std::min(certain_from_, region.start);
    run_start_ = region.end;
    if (region.end + record_reach <= shard.start || region.start >= shard.end) continue;
    addGap(region.start);
    addRegion(region);
  }
  addGap(last ? shard.end : tracker_.settledTo());
}

// The positions up to `end` are inactive.
void AssemblyCallAlgo::Engine::addGap(uint32_t end) {
  end = std::min({end, context->shard.end, contig_end_});
  if (end <= covered_) return;
  if (emit_mode_ == kGvcf) {
    auto task = newTask({covered_, end});
    task->inactive = true;
    task->state = AssemblyTask::kAssembled;
    pipeline_.addTask(std::move(task));
  }
  covered_ = end;
}

std::unique_ptr<AssemblyTask> AssemblyCallAlgo::Engine::newTask(ActiveRegion active) const {
  auto task = std::make_unique<AssemblyTask>();
  task->contig = context->shard.contig;
  task->activeInterval = active;
  task->paddedInterval = {minus(active.start, kPadding), std::min(active.end + kPadding, contig_end_)};
  task->debugLevel = caller().debug_.levelIn(task->contig, active.start, active.end);
  return task;
}

void AssemblyCallAlgo::Engine::addRegion(ActiveRegion region) {
  auto task = newTask(region);
  covered_ = std::max(covered_, std::min(region.end, context->shard.end));
  const ActiveRegion& padded = task->paddedInterval;
  if (task->debugLevel >= kDebugRegions)
    debugPrint("extened active region %s:%u-%u\n", task->contig, padded.start + 1, padded.end);
  if (!prepareTask(*task)) return;
  task->reference.start = padded.start;
  task->reference.bases.assign(window_.from(padded.start), padded.end - padded.start);
  fetchReads(padded.start, padded.end, task->fetched);
  // What a read decodes when first asked belongs to this thread; others will look at it.
  for (Read* read : task->fetched) {
    read->getBases();
    read->getBITag();
    read->getBDTag();
  }
  pipeline_.addTask(std::move(task));
}

// ---- calling ----

void AssemblyCallAlgo::Engine::call(AssemblyTask& task) {
  if (task.debugLevel >= kDebugRegions) tellCall(task);
  if (!task.inactive && !task.skipFlag) calcRegion(task);
  const ActiveRegion own = ownPart(task.activeInterval);
  callGap(own.start, own.end);
  dropBefore(own.end);
}

ActiveRegion AssemblyCallAlgo::Engine::ownPart(ActiveRegion region) const {
  const Shard& shard = context->shard;
  return {std::clamp(region.start, shard.start, shard.end), std::clamp(region.end, shard.start, shard.end)};
}

// The active interval, and what of it is not called, or evaluated by so many reads under so many haplotypes.
void AssemblyCallAlgo::Engine::tellCall(const AssemblyTask& task) {
  const ActiveRegion &active = task.activeInterval, &trimmed = task.trimmedInterval;
  std::string text = format("@%s:%u-%u ", task.contig, active.start + 1, active.end);
  if (task.inactive || task.skipFlag)
    text += format("#%s:%u-%u\n", task.contig, active.start + 1, active.end);
  else
    text += format("+%s:%u-%u R%luxH%lu\n", task.contig, trimmed.start + 1, trimmed.end, task.reads.size(),
                   task.haplotypes.size());
  debugPrint("%s", text.c_str());
}

void AssemblyCallAlgo::Engine::calcRegion(AssemblyTask& task) {
  static Timer* const region_timer = timer("calc_region");
  TimerScope scope(region_timer);
  std::vector<EventSite> sites;
  {
    static Timer* const build_timer = timer("build_variants");
    TimerScope build_scope(build_timer);
    sites = collectEvents(task.haplotypes, task.reference, task.activeInterval.start, task.activeInterval.end,
                          hasGiven() ? &task.given : nullptr);
  }
  if (sites.empty()) return;
  {
    static Timer* const db_timer = timer("fetch_db");
    TimerScope db_scope(db_timer);
    fetchDb(task.activeInterval.start, task.activeInterval.end);
  }
  evaluator_.calcLikelihoods(task, rows_);
  realignReads(task);
  held_.clear();
  for (EventSite& site : sites) calcSite(task, std::move(site));
  finishRegion(task);
  writeHeld(task);
}

void AssemblyCallAlgo::Engine::realignReads(AssemblyTask& task) {
  evaluator_.realign(task, rows_, realigned_, aligned_);
  clips_ = task.reads;
  for (size_t i = 0; i < clips_.size(); ++i) clips_[i].read = aligned_[i];
}

void AssemblyCallAlgo::Engine::writeHeld(const AssemblyTask& task) {
  const Shard& shard = context->shard;
  // What the shard before writes is known.
  const bool is_continued = shard.start > shard.entry->start && task.activeInterval.start >= certain_from_;
  uint32_t done = ownPart(task.activeInterval).start;
  for (const RegionRecord& held : held_) {
    if (held.record.start >= shard.end) break;
    if (held.record.start < shard.start) {
      if (emit_mode_ == kGvcf && is_continued) passOver(held.record.end);
      continue;
    }
    if (held.record.start > done) callGap(done, held.record.start);
    writeRecord(held.record);
    done = std::max(done, held.record.end);
  }
}
