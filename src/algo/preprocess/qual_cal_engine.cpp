#include "algo/preprocess/qual_cal_engine.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "base/timer.h"

namespace {

constexpr uint32_t kUncounted = FLAG_UNMAPPED | FLAG_SECONDARY | FLAG_QC_FAIL | FLAG_DUPLICATE;
constexpr int kTagOffset = 33;  // of qualities as text

}  // namespace

QualCal::Engine::Engine(DriverContext* context, QualCal* algo, const RecalTable& empty,
                        const std::vector<int>& platforms,
                        const std::vector<std::unique_ptr<VCFCache>>& known_sites)
    : Algo::Engine(context, algo),
      platforms_(platforms),
      arguments_(empty.arguments),
      covariates_(empty.arguments) {
  known_sites_.reserve(known_sites.size());
  for (const auto& cache : known_sites) known_sites_.emplace_back(*cache);
  for (const RecalGroup& group : empty.groups) group_names_.push_back(group.name);
  startTable();
}

void QualCal::Engine::startTable() {
  table_ = RecalTable();
  table_.arguments = arguments_;
  for (const std::string& group : group_names_) table_.groups.emplace_back(group);
  cells_.resize(group_names_.size());
  for (GroupCells& group : cells_) {
    group.rows = {};
    group.contexts.assign((size_t(1) << 2 * arguments_.indels_context_size) + 1, 0);
    group.cycles.assign(cycleIndex(Covariates::kNoCycle) + 1, 0);
    group.indel_quality = -1;
  }
}

void QualCal::Engine::startShard() {
  Algo::Engine::startShard();
  for (VCFCache& cache : known_sites_) cache.setContig(context->shard.contig);
}

void QualCal::Engine::advance(uint32_t from, uint32_t to) {
  static Timer* const reads_timer = timer("fetch_reads");
  static Timer* const ref_timer = timer("fetch_ref");
  static Timer* const vcf_timer = timer("fetch_vcf");
  static Timer* const update_timer = timer("update");
  {
    TimerScope scope(reads_timer);
    fetchReads(from, to);
  }
  if (!reads_.empty()) {
    {
      TimerScope scope(ref_timer);
      fetchReference();
    }
    {
      TimerScope scope(vcf_timer);
      maskKnownSites();
    }
    TimerScope scope(update_timer);
    for (Read* read : reads_) update(*read);
  }
  span_start = to;
}

// The reads that start in the step and are of a group that is counted.
void QualCal::Engine::fetchReads(uint32_t from, uint32_t to) {
  reads_.clear();
  context->reads->fetch(from, to, kUncounted, reads_);
  const uint32_t first = context->shard.firstOwnStart(from);
  std::erase_if(reads_, [&](const Read* read) {
    return read->start < first || read->read_group < 0 || platforms_[size_t(read->read_group)] < 0;
  });
}

void QualCal::Engine::fetchReference() {
  uint32_t end = 0;
  for (const Read* read : reads_) end = std::max(end, read->end);
  const char* contig = context->shard.contig;
  const FastaIndexEntry* entry = context->reference->entry(contig);
  const uint32_t length = entry ? entry->length : 0;
  reference_.start =
      std::min(reads_.front()->start - std::min(reads_.front()->start, ReadErrors::kReach), length);
  reference_.end = uint32_t(std::min<uint64_t>(uint64_t(end) + ReadErrors::kReach, length));
  const uint32_t size = reference_.end - reference_.start;
  if (bases_.size() < size) bases_.resize(size);
  if (masked_.size() < size) masked_.resize(size);
  if (size > 0 && context->reference->fetch(contig, reference_.start, reference_.end, bases_.data()) != size)
    throw std::runtime_error("Failed to read contig " + std::string(contig) + " from " +
                             context->reference->path());
  for (uint32_t i = 0; i < size; i++) masked_[i] = baseCode(bases_[i]) > 3 || bases_[i] == '*';
  reference_.bases = bases_.data();
  reference_.masked = masked_.data();
}

void QualCal::Engine::maskKnownSites() {
  const int64_t start = reference_.start, end = reference_.end;
  for (VCFCache& cache : known_sites_) {
    cache.fetch(int32_t(start), int32_t(end));
    for (const VCFLine& record : cache.records()) {
      const int64_t from = std::max<int64_t>(record.pos, start), to = std::min<int64_t>(record.end, end);
      if (from < to) std::fill(masked_.begin() + (from - start), masked_.begin() + (to - start), uint8_t(1));
    }
  }
}

void QualCal::Engine::update(Read& read) {
  const Bounds bounds = templateBounds(read);
  if (bounds.first >= bounds.second || !errors_.compute(read, bounds, reference_)) return;
  covariates_.compute(read, platforms_[size_t(read.read_group)]);

  countEvent(read, kMismatch, read.quals, 0);
  const uint8_t* insertion = read.getBITag();
  const uint8_t* deletion = read.getBDTag();
  const uint8_t* shared = read.Read::getBITag();  // what reads without the tags have
  if (insertion == shared && deletion == shared) {
    countPlainIndels(read, shared[0] - kTagOffset);
  } else {
    countEvent(read, kInsertion, insertion, kTagOffset);
    countEvent(read, kDeletion, deletion, kTagOffset);
  }
  if (!errors_.any()) return;
  addErrors(read, kMismatch, read.quals, 0);
  addErrors(read, kInsertion, insertion, kTagOffset);
  addErrors(read, kDeletion, deletion, kTagOffset);
}

void QualCal::Engine::countEvent(Read& read, RecalEvent event, const uint8_t* quals, int offset) {
  const uint8_t* skipped = errors_.skipped();
  const uint16_t* contexts = covariates_.contexts(event).data();
  const int32_t* cycles = covariates_.cycles(event).data();
  auto& rows = cells_[size_t(read.read_group)].rows[event];
  for (int32_t i = 0; i < read.length; i++) {
    const uint32_t quality = uint32_t(int(quals[i]) - offset);
    if (skipped[i] || quality >= kRecalQualities) continue;
    Cells row = rows[quality];
    if (!row.contexts) row = cells(read.read_group, event, int(quality));
    row.contexts[contexts[i]].observations++;
    row.cycles[cycleIndex(cycles[i])].observations++;
  }
}

// Both kinds of indels at once, at one quality.
void QualCal::Engine::countPlainIndels(Read& read, int quality) {
  GroupCells& group = cells_[size_t(read.read_group)];
  group.indel_quality = quality;
  const uint8_t* skipped = errors_.skipped();
  const uint16_t* contexts = covariates_.contexts(kInsertion).data();
  const int32_t* cycles = covariates_.cycles(kInsertion).data();
  for (int32_t i = 0; i < read.length; i++) {
    if (skipped[i]) continue;
    group.contexts[contexts[i]]++;
    group.cycles[cycleIndex(cycles[i])]++;
  }
}

void QualCal::Engine::addErrors(Read& read, RecalEvent event, const uint8_t* quals, int offset) {
  const double* errors = errors_.errors(event);
  const uint16_t* contexts = covariates_.contexts(event).data();
  const int32_t* cycles = covariates_.cycles(event).data();
  for (int32_t i = 0; i < read.length; i++) {
    const uint32_t quality = uint32_t(int(quals[i]) - offset);
    if (errors[i] == 0 || quality >= kRecalQualities) continue;
    const Cells row = cells(read.read_group, event, int(quality));
    const int64_t fixed = lrint(errors[i] * (1 << RecalCounts::kFractionBits));
    row.contexts[contexts[i]].errors += fixed;
    row.cycles[cycleIndex(cycles[i])].errors += fixed;
  }
}

QualCal::Engine::Cells QualCal::Engine::cells(int group, RecalEvent event, int quality) {
  Cells& found = cells_[size_t(group)].rows[event][size_t(quality)];
  if (!found.contexts) {
    RecalRow& row = table_.groups[size_t(group)].row(event, quality, arguments_);
    found = {row.contexts.data(), row.cycles.data()};
  }
  return found;
}

Algo::Result* QualCal::Engine::finishShard() {
  for (size_t g = 0; g < cells_.size(); g++) {
    const GroupCells& group = cells_[g];
    for (RecalEvent event : {kInsertion, kDeletion}) {
      if (group.indel_quality < 0) break;
      const Cells row = cells(int(g), event, group.indel_quality);
      for (size_t i = 0; i < group.contexts.size(); i++) row.contexts[i].observations += group.contexts[i];
      for (size_t i = 0; i < group.cycles.size(); i++) row.cycles[i].observations += group.cycles[i];
    }
    // Every base has one context, if only the invalid one.
    for (RecalEvent event : {kMismatch, kInsertion, kDeletion})
      for (int quality = 0; quality < kRecalQualities; quality++)
        if (group.rows[event][size_t(quality)].contexts) {
          RecalRow& row = table_.groups[g].row(event, quality, arguments_);
          for (const RecalCounts& counts : row.contexts) row.total += counts;
        }
  }
  auto result = std::make_unique<Result>(std::move(table_));
  startTable();
  return result.release();
}
