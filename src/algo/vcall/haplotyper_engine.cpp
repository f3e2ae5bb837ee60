#include "algo/vcall/haplotyper_engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr uint32_t kExcluded = FLAG_UNMAPPED | FLAG_SECONDARY | FLAG_QC_FAIL | FLAG_DUPLICATE;
constexpr uint32_t kPadding = 100;  // bases of assembly to each side of an active region
// Bases before a shard in which an inactive position makes its regions those that any other cut would give. Of a longer
// run the regions depend on the cut.
constexpr uint32_t kLookBack = 1000;
constexpr uint32_t kReferenceBatch = 1 << 16;
constexpr uint64_t kProfileBytes = 16 << 20;
constexpr uint64_t kLongestWindow = 4096;
constexpr double kActivityConfidence = 4.0;   // phred
constexpr double kMinMeanSoftClip = 6.0;      // bases
constexpr size_t kConfidenceSlack = 1 << 15;  // positions

constexpr char kAnyBase[] = "N";

uint32_t windowLimit(size_t samples, uint32_t ploidy) {
  const uint64_t position = (sizeof(double) * (ploidy + 1) + 16) * std::max<size_t>(samples, 1);
  return uint32_t(std::clamp<uint64_t>(kProfileBytes / position, 1, kLongestWindow));
}

uint32_t minus(uint32_t position, uint32_t bases) {
  return position - std::min(position, bases);
}

}  // namespace

Haplotyper::Engine::Engine(DriverContext* context, Haplotyper* algo, const Param& param,
                           const RegionAssembler& assembler, const PairHMM& hmm)
    : VariantCallAlgo::Engine(context, algo),
      param_(param),
      gvcf_(emit_mode_ == kGvcf),
      window_limit_(windowLimit(sampleCount(), param.ploidy)),
      profile_(sampleCount(), param.ploidy, param.minBaseQual, param.minMapQual),
      evaluator_(hmm, context->pool, param.phmmChunkSize),
      pipeline_([&assembler](AssemblyTask& task) { assembler.assemble(task); }, context->pool,
                [this](AssemblyTask& task) { call(task); }) {
  activity_site_.ref = {kAnyBase, 1, 0, true};
  activity_site_.isSNP = true;
}

// ---- shards ----

void Haplotyper::Engine::startShard() {
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
  confidence_ = {};
  confidence_.start = shard.start;
  given_.clear();
  tracker_.reset(begin, uint32_t(std::min<uint64_t>(end, contig_end_)));
  takeTargets();
  span_start = fed_;
  span_end = std::max(feed_end_, shard.end);
}

void Haplotyper::Engine::takeTargets() {
  if (!context->intervals || targets_contig_ == context->shard.contig) return;
  targets_contig_ = context->shard.contig;
  targets_.clear();
  for (const auto& entries : context->intervals->per_contig())
    for (const IntervalEntry& entry : entries)
      if (targets_contig_ == entry.contig) targets_.push_back({entry.start, entry.end});
  std::sort(targets_.begin(), targets_.end(), [](Span a, Span b) { return a.start < b.start; });
}

void Haplotyper::Engine::advance(uint32_t, uint32_t to) {
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

void Haplotyper::Engine::feed(uint32_t start, uint32_t end) {
  fetchReference(start, end);
  fetchReads(start, end, reads_);
  {
    static Timer* const calc_timer = timer("calc");
    TimerScope scope(calc_timer);
    profile_.build(reads_, haplotyper().sample_of_group_, window_, start, end);
    clearOutsideTargets(start, end);
  }
  loadGiven(start, end);
  track(start, end);
  if (gvcf_) keepConfidence(start, end);
}

// Makes the window hold [start, end).
void Haplotyper::Engine::fetchReference(uint32_t start, uint32_t end) {
  static Timer* const ref_timer = timer("fetch_ref");
  TimerScope scope(ref_timer);
  const char* const contig = context->shard.contig;
  // What pending regions will need lies before.
  const uint32_t from = std::min(start, minus(tracker_.settledTo(), kPadding));
  if (window_contig_ == contig && from >= window_.start && end <= window_.end()) return;
  const uint32_t size = std::min(std::max(end - from, kReferenceBatch), contig_end_ - from);
  window_contig_ = contig;
  window_.start = from;
  window_.bases.resize(size);
  if (context->reference->fetch(contig, from, from + size, window_.bases.data()) != size)
    throw std::runtime_error("Failed to read contig " + window_contig_ + " from " +
                             context->reference->path());
}

void Haplotyper::Engine::fetchReads(uint32_t start, uint32_t end, std::vector<Read*>& reads) {
  static Timer* const reads_timer = timer("fetch");
  TimerScope scope(reads_timer);
  reads.clear();
  context->reads->fetch(start, end, kExcluded, reads);
  std::erase_if(reads, [](const Read* read) { return read->read_group < 0; });
}

void Haplotyper::Engine::clearOutsideTargets(uint32_t start, uint32_t end) {
  if (!context->intervals) return;
  uint32_t clear_from = start;
  for (const Span& target : targets_) {
    if (target.end <= clear_from) continue;
    if (target.start >= end) break;
    if (target.start > clear_from) profile_.clear(clear_from, target.start);
    clear_from = std::min(target.end, end);
  }
  if (clear_from < end) profile_.clear(clear_from, end);
}

// Windows follow one another, and so the file is read forward.
void Haplotyper::Engine::loadGiven(uint32_t start, uint32_t end) {
  if (!hasGiven()) return;
  GivenAlleles found;
  found.load(*given_cache_, start, end);
  given_.snps.merge(found.snps);
  given_.others.merge(found.others);
}

// Moves what is given in the region to it; what lies before is not needed any more.
void Haplotyper::Engine::takeGiven(ActiveRegion region, GivenAlleles& taken) {
  for (const auto member : {&GivenAlleles::snps, &GivenAlleles::others}) {
    auto& known = given_.*member;
    known.erase(known.begin(), known.lower_bound(region.start));
    while (!known.empty() && known.begin()->first < region.end)
      (taken.*member).insert(known.extract(known.begin()));
  }
}

void Haplotyper::Engine::track(uint32_t start, uint32_t end) {
  static Timer* const active_timer = timer("active");
  static Timer* const tracker_timer = timer("tracker");
  active_.clear();
  {
    TimerScope scope(active_timer);
    for (uint32_t position = start; position < end; ++position) {
      if (hasGiven() && (given_.snps.contains(position) || given_.others.contains(position))) {
        active_.push_back({position, 1.0, 0});
        continue;
      }
      if (!profile_.isMarked(position)) continue;
      const double activity = activityAt(position);
      if (activity <= 0) continue;
      const double clipped = profile_.meanSoftClip(position);
      active_.push_back({position, activity, clipped > kMinMeanSoftClip ? int(clipped) : 0});
    }
  }
  TimerScope scope(tracker_timer);
  for (const auto& [position, activity, clipped] : active_) tracker_.add(position, activity, clipped);
  tracker_.advanceTo(end);
}

// The probability that some sample has something else than the reference.
double Haplotyper::Engine::activityAt(uint32_t position) {
  activity_site_.position = position;
  activity_site_.alts.assign(1, {kAnyBase, 1, 0, false});
  activity_site_.likelihoods.resize(sampleCount());
  for (size_t sample = 0; sample < sampleCount(); ++sample)
    profile_.activityLikelihoods(sample, position, activity_site_.likelihoods[sample]);
  double qual = 0;
  const double confidence = std::min(call_conf_, kActivityConfidence);
  if (calculate(activity_site_, &qual, kVariant, confidence, confidence) == 0) return 0;
  return 1 - std::pow(10, qual / -10);
}

void Haplotyper::Engine::keepConfidence(uint32_t start, uint32_t end) {
  start = std::max(start, context->shard.start);
  end = std::min(end, context->shard.end);
  if (start >= end) return;
  const size_t count = end - start, values = param_.ploidy + 1;
  const double* const gl = profile_.likelihoods(0, start);
  const int32_t* const depths = profile_.depths(0, start);
  confidence_.bases.append(window_.from(start), count);
  // What speaks against the reference and did not become a record is doubt, not evidence of another allele.
  for (size_t i = 0; i < count * values; ++i)
    confidence_.likelihoods.push_back(std::min(gl[i], gl[i - i % values]));
  confidence_.depth.insert(confidence_.depth.end(), depths, depths + count);
}

// ---- regions ----

void Haplotyper::Engine::cutRegions(bool last) {
  static Timer* const region_timer = timer("region");
  TimerScope scope(region_timer);
  const Shard& shard = context->shard;
  const uint32_t record_reach = gvcf_ ? kPadding : 0;  // of a deletion: no block lies under it
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
void Haplotyper::Engine::addGap(uint32_t end) {
  end = std::min({end, context->shard.end, contig_end_});
  if (end <= covered_) return;
  if (gvcf_) {
    auto task = newTask({covered_, end});
    task->inactive = true;
    task->state = AssemblyTask::kAssembled;
    pipeline_.addTask(std::move(task));
  }
  covered_ = end;
}

std::unique_ptr<AssemblyTask> Haplotyper::Engine::newTask(ActiveRegion active) const {
  auto task = std::make_unique<AssemblyTask>();
  task->contig = context->shard.contig;
  task->activeInterval = active;
  task->paddedInterval = {minus(active.start, kPadding), std::min(active.end + kPadding, contig_end_)};
  task->debugLevel = haplotyper().debug_.levelIn(task->contig, active.start, active.end);
  return task;
}

void Haplotyper::Engine::addRegion(ActiveRegion region) {
  auto task = newTask(region);
  covered_ = std::max(covered_, std::min(region.end, context->shard.end));
  const ActiveRegion& padded = task->paddedInterval;
  if (task->debugLevel >= kDebugRegions)
    debugPrint("extened active region %s:%u-%u\n", task->contig, padded.start + 1, padded.end);
  if (hasGiven()) {
    takeGiven(region, task->given);
    if (task->given.empty()) return;
  }
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

void Haplotyper::Engine::call(AssemblyTask& task) {
  if (task.debugLevel >= kDebugRegions) tellCall(task);
  if (!task.inactive && !task.skipFlag) calcRegion(task);
  if (!gvcf_) return;
  const ActiveRegion own = ownPart(task.activeInterval);
  calcInactive(own.start, own.end);
  dropConfidence(own.end);
}

ActiveRegion Haplotyper::Engine::ownPart(ActiveRegion region) const {
  const Shard& shard = context->shard;
  return {std::clamp(region.start, shard.start, shard.end), std::clamp(region.end, shard.start, shard.end)};
}

// The active interval, and what of it is not called, or evaluated by so many reads under so many haplotypes.
void Haplotyper::Engine::tellCall(const AssemblyTask& task) {
  const ActiveRegion &active = task.activeInterval, &trimmed = task.trimmedInterval;
  std::string text = format("@%s:%u-%u ", task.contig, active.start + 1, active.end);
  if (task.inactive || task.skipFlag)
    text += format("#%s:%u-%u\n", task.contig, active.start + 1, active.end);
  else
    text += format("+%s:%u-%u R%luxH%lu\n", task.contig, trimmed.start + 1, trimmed.end, task.reads.size(),
                   task.haplotypes.size());
  debugPrint("%s", text.c_str());
}

void Haplotyper::Engine::calcRegion(AssemblyTask& task) {
  static Timer* const region_timer = timer("calc_region");
  TimerScope scope(region_timer);
  const GivenAlleles* const given = hasGiven() ? &task.given : nullptr;
  std::vector<EventSite> sites;
  {
    static Timer* const build_timer = timer("build_variants");
    TimerScope build_scope(build_timer);
    sites = collectEvents(task.haplotypes, task.reference, task.activeInterval.start, task.activeInterval.end,
                          given);
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
  writeHeld(task);
}

void Haplotyper::Engine::realignReads(AssemblyTask& task) {
  evaluator_.realign(task, rows_, realigned_, aligned_);
  clips_ = task.reads;
  for (size_t i = 0; i < clips_.size(); ++i) clips_[i].read = aligned_[i];
}

void Haplotyper::Engine::calcSite(const AssemblyTask& task, EventSite event) {
  prepareSite(task, event);
  RegionRecord held;
  held.site = std::make_unique<const EventSite>(std::move(event));
  describeSite(*held.site);
  double qual = std::numeric_limits<double>::quiet_NaN();
  if (calculate(site_, &qual) == 0) {
    if (!hasGiven() || emit_mode_ != kAll) return;
    site_.alts.clear();  // the record of a site without data: rows are of alleles that it does not have
    site_.rows = nullptr;
  }
  makeRecord(site_, qual, held.record);
  held_.push_back(std::move(held));
}

// The likelihoods of the site's genotypes.
void Haplotyper::Engine::prepareSite(const AssemblyTask& task, EventSite& event) {
  const size_t haplotypes = task.haplotypes.size(), limit = size_t(param_.maxAltAlleles);
  alleleLikelihoods(event, clips_, rows_, haplotypes, gvcf_, allele_rows_);
  if (event.alts.size() > limit) {
    limitAlternates(event, allele_rows_, limit);
    alleleLikelihoods(event, clips_, rows_, haplotypes, gvcf_, allele_rows_);
  }
  site_.likelihoods.resize(sampleCount());
  genotypeLikelihoods(clips_, allele_rows_.values.data(), allele_rows_.alleles, param_.ploidy,
                      site_.likelihoods);
}

// The rest of the site, which points into `event`.
void Haplotyper::Engine::describeSite(const EventSite& event) {
  const auto allele = [](const std::string& text, bool is_ref) {
    return Allele{text.data(), int32_t(text.size()), 0, is_ref};
  };
  site_.position = event.position;
  site_.isSNP = event.isSNP();
  site_.ref = allele(event.ref, true);
  site_.alts.clear();
  for (const std::string& alt : event.alts) site_.alts.push_back(allele(alt, false));
  if (gvcf_) site_.alts.push_back(parseAllele("<NON_REF>", 9));
  over_.clear();
  for (Read* read : aligned_)
    if (read->start <= event.position && event.position < read->end) over_.push_back(read);
  site_.pileup = &over_;
  site_rows_ = {clips_, allele_rows_.values.data(), allele_rows_.alleles};
  site_.rows = &site_rows_;
}

void Haplotyper::Engine::writeHeld(const AssemblyTask& task) {
  if (param_.phasing) phaseRecords(held_, task.haplotypes.size(), haplotyper().samples_[0]);
  const Shard& shard = context->shard;
  // What the shard before writes is known.
  const bool is_continued = shard.start > shard.entry->start && task.activeInterval.start >= certain_from_;
  uint32_t done = ownPart(task.activeInterval).start;
  for (const RegionRecord& held : held_) {
    if (held.record.start >= shard.end) break;
    if (held.record.start < shard.start) {
      if (gvcf_ && is_continued) passOver(held.record.end);
      continue;
    }
    if (gvcf_ && held.record.start > done) calcInactive(done, held.record.start);
    writeRecord(held.record);
    done = std::max(done, held.record.end);
  }
}

// Positions that are written already, or lie inside of a record, are passed over.
void Haplotyper::Engine::calcInactive(uint32_t start, uint32_t end) {
  static Timer* const inactive_timer = timer("calc_inactive");
  TimerScope scope(inactive_timer);
  if (start >= end) return;
  const size_t first = start - confidence_.start, values = param_.ploidy + 1;
  addRefConfidence(start, end, confidence_.bases.data() + first,
                   confidence_.likelihoods.data() + first * values, confidence_.depth.data() + first,
                   int(param_.ploidy));
}

// Frees the confidence of positions that are called.
void Haplotyper::Engine::dropConfidence(uint32_t before) {
  const size_t count = before - confidence_.start, values = param_.ploidy + 1;
  if (count < kConfidenceSlack) return;
  confidence_.start = before;
  confidence_.bases.erase(0, count);
  confidence_.depth.erase(confidence_.depth.begin(), confidence_.depth.begin() + ptrdiff_t(count));
  confidence_.likelihoods.erase(confidence_.likelihoods.begin(),
                                confidence_.likelihoods.begin() + ptrdiff_t(count * values));
}
