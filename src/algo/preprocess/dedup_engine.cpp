#include "algo/preprocess/dedup_engine.h"

#include <algorithm>
#include <climits>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/timer.h"

namespace {

constexpr uint32_t kLineGap = 1000;  // bases without reads over which lines are loaded nevertheless

// a - b, but not below 0.
uint32_t reduced(uint32_t a, int32_t b) {
  return a > static_cast<uint32_t>(b) ? a - static_cast<uint32_t>(b) : 0;
}

// a + b, but not above the range of positions.
uint32_t increased(uint32_t a, int32_t b) {
  return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{a} + static_cast<uint32_t>(b), INT32_MAX));
}

}  // namespace

Dedup::Engine::Engine(DriverContext* context, Dedup* algo, const Settings& settings,
                      const std::vector<std::unique_ptr<VCFCache>>& score_caches)
    : ReadWriter::Engine(context, algo), settings_(settings), marker_(settings.rules) {
  for (const auto& cache : score_caches) score_caches_.push_back(std::make_unique<VCFCache>(*cache));
}

void Dedup::Engine::startShard() {
  ReadWriter::Engine::startShard();
  const Shard& shard = context->shard;
  span_start = reduced(shard.start, settings_.rules.params.readbehind);
  span_end = increased(shard.end, settings_.rules.params.readahead);
  for (const auto& cache : score_caches_) cache->setContig(shard.contig);
  marker_.startShard();
  judged_ = false;
}

void Dedup::Engine::advance(uint32_t from, uint32_t to) {
  static Timer* const fetch_timer = timer("fetch");
  static Timer* const calc_timer = timer("calc");
  const DedupParams& params = settings_.rules.params;
  const Shard& shard = context->shard;
  const bool last = to == shard.end;
  span_start = reduced(to, params.readbehind);

  const uint32_t step_start = std::max(reduced(from, params.readahead), shard.start);
  const uint32_t step_end = last ? to : reduced(to, params.readahead);
  if (step_end <= step_start) return;  // the window has not reached the shard's first reads
  const uint32_t start = reduced(from, params.readbehind);
  const uint32_t end = last ? increased(to, params.readahead) : to;
  reads_.clear();
  {
    TimerScope scope(fetch_timer);
    context->reads->fetch(start, end, 0, reads_);
  }
  if (reads_.empty()) return;
  loadMates(start, end);
  TimerScope scope(calc_timer);
  calc(step_start, step_end);
}

// The set of mates is made anew for each window. Lines stand where the reads do that look for them, most of them
// between `start` and `end`; a read that starts far before the window and reaches into it does not bring in all that
// lies between.
void Dedup::Engine::loadMates(uint32_t start, uint32_t end) {
  static Timer* const mates_timer = timer("vcfadvance");
  TimerScope scope(mates_timer);
  mates_.clear();
  if (score_caches_.empty()) return;
  stretches_.clear();
  for (const Read* read : reads_) {
    if (read->start >= start) break;
    if (stretches_.empty() || read->start - stretches_.back().second > kLineGap)
      stretches_.emplace_back(read->start, read->start);
    stretches_.back().second = read->start + 1;
  }
  if (stretches_.empty() || start - stretches_.back().second > kLineGap) stretches_.emplace_back(start, end);
  stretches_.back().second = end;

  for (const auto& cache : score_caches_) {
    cache->fetch(static_cast<int32_t>(stretches_.front().first), static_cast<int32_t>(end));
    const std::span<const VCFLine> lines = cache->records();
    const auto isBefore = [](uint32_t bound) {
      return [bound](const VCFLine& line) { return int64_t{line.pos} < int64_t{bound}; };
    };
    try {
      for (const auto& [from, to] : stretches_) {
        const auto low = std::partition_point(lines.begin(), lines.end(), isBefore(from));
        const auto high = std::partition_point(low, lines.end(), isBefore(to));
        if (low != high) mates_.add({low, high});
      }
    } catch (const std::runtime_error& fault) {
      throw std::runtime_error(std::string(fault.what()) + "\nin file " + cache->path());
    }
  }
}

void Dedup::Engine::calc(uint32_t from, uint32_t to) {
  const uint32_t low = from == context->shard.start ? context->shard.firstOwnStart(from) : from;
  const MarkStep step{from, to, low};
  if (settings_.function == kDedup) {
    marker_.markDup(reads_, step, mates_);
    judged_ = true;
  } else {
    marker_.fixMates(reads_, step, mates_);
  }
  writeOwn();
}

void Dedup::Engine::writeOwn() {
  static Timer* const write_timer = timer("write");
  TimerScope scope(write_timer);
  for (const DuplicateMarker::WindowRead& own : marker_.reads()) {
    if (!own.own) continue;
    Read& read = *own.read;
    DedupCounts& counts = marker_.counts()[static_cast<size_t>(own.library)];
    if (own.duplicate) {
      ++counts[kDuped];
      ++counts[isUnpaired(read) ? kDupedUnpaired : kDupedPaired];
      if (isChimeric(read)) ++counts[kDupedChimericPaired];
      if (settings_.rmdup) continue;
    }
    const MateFix* const fix = marker_.fixOf(own);
    if (own.duplicate || fix)
      writeRead(changed(read, fix, own.duplicate, counts));
    else
      writeRead(read.asRecord(record_));
  }
}

// The record as it is to be written, in record_. The read stays as it is: other algorithms of the run see it too.
const bam_record& Dedup::Engine::changed(Read& read, const MateFix* fix, bool duplicate,
                                         DedupCounts& counts) {
  const bam_record& original = read.asRecord(record_);
  if (&original != &record_) copy_record(record_, original);
  if (fix) {
    const unsigned differing = record_.flag ^ fix->flags;
    record_.flag = fix->flags;
    if (differing & FLAG_MATE_UNMAPPED) ++counts[kMateUnmappedErrors];
    if (differing & FLAG_MATE_REVERSE) ++counts[kMateReverseErrors];
    if (settings_.fixisize && record_.tlen != fix->insert_size) {
      record_.tlen = fix->insert_size;
      ++counts[kInsertSizeErrors];
    }
  }
  if (duplicate) record_.flag |= FLAG_DUPLICATE;
  return record_;
}

void Dedup::Engine::processNoCoor() {
  static Timer* const fetch_timer = timer("fetch");
  static Timer* const write_timer = timer("write");
  reads_.clear();
  {
    TimerScope scope(fetch_timer);
    context->reads->fetchAll(0, reads_);
  }
  TimerScope scope(write_timer);
  for (Read* read : reads_) {
    const int32_t library = settings_.rules.library_of_read_group[static_cast<size_t>(read->read_group)];
    ++marker_.counts()[static_cast<size_t>(library)][kUnmapped];
    writeRead(read->asRecord(record_));
  }
}

Algo::Result* Dedup::Engine::finishShard() {
  auto result = std::make_unique<Dedup::Result>();
  closeShard(*result);
  std::vector<DedupCounts>& counts = marker_.counts();
  std::vector<LocusStat::Histogram>& histograms = marker_.opticalHistograms();
  result->libraries.resize(counts.size());
  for (size_t i = 0; i < counts.size(); ++i) {
    LibraryMetrics& library = result->libraries[i];
    library.add(std::exchange(counts[i], {}));
    library.optical = std::exchange(histograms[i], {});
    if (judged_) library.counts.try_emplace("optical_dup");  // told even when there were none
  }
  return result.release();
}
