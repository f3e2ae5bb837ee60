#include "algo/vcall/recal/var_cal_engine.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <strings.h>
#include <utility>

#include "base/timer.h"

namespace {

constexpr uint32_t kIndelBit = 2;

void fetch(VCFCache& reader, uint32_t from, int32_t to, VCFLine::Column last) {
  static Timer* const db_timer = timer("fetch_db");
  TimerScope scope(db_timer);
  reader.fetch(int32_t(from), to);
  reader.requireColumn(last);
}

// By the FILTER of a resource's record.
bool isTrusted(const char* filter) {
  return strcmp(filter, ".") == 0 || strcasecmp(filter, "PASS") == 0;
}

// `records` of the resource, one at least, lie over the datum.
void agree(const Resource& resource, size_t records, VariantDatum& datum) {
  datum.isKnown = datum.isKnown || resource.known;
  datum.atTrainingSite = datum.atTrainingSite || resource.training;
  datum.atAntiTrainingSite = datum.atAntiTrainingSite || resource.bad;
  datum.isTruth = datum.isTruth || resource.truth;
  if (resource.consensus) datum.consensusCount += uint32_t(records);
  datum.prior = std::max(datum.prior, resource.prior);
}

}  // namespace

void VarCal::Engine::Spans::clear() {
  starts_.clear();
  ends_.clear();
}

void VarCal::Engine::Spans::add(const VCFLine& record) {
  starts_.push_back(record.pos);
  ends_.push_back(std::max(record.end, record.pos + 1));  // one without REF has no length
}

void VarCal::Engine::Spans::settle() {
  if (!std::is_sorted(ends_.begin(), ends_.end())) std::sort(ends_.begin(), ends_.end());
}

// Those that begin before its end, but for those that end before its start.
size_t VarCal::Engine::Spans::countOver(int64_t start, int64_t end) const {
  const auto begun = std::lower_bound(starts_.begin(), starts_.end(), end);
  const auto ended = std::upper_bound(ends_.begin(), ends_.end(), start);
  return size_t(begun - starts_.begin()) - size_t(ended - ends_.begin());
}

uint64_t VarCal::Result::memorySize() const {
  return sizeof *this + block.data.capacity() * sizeof(VariantDatum) +
         block.annotations.capacity() * sizeof(double);
}

VarCal::Engine::Engine(DriverContext* context, VarCal* algo)
    : Algo::Engine(context, algo),
      param_(algo->param_),
      input_(std::make_unique<VCFCache>(*algo->input_)),
      result_(std::make_unique<Result>()) {
  for (const auto& aggregate : algo->aggregates_)
    aggregates_.push_back(std::make_unique<VCFCache>(*aggregate));
  for (const Resource& resource : algo->resources_)
    sources_.push_back({&resource, std::make_unique<VCFCache>(*resource.reader)});
}

void VarCal::Engine::startShard() {
  Algo::Engine::startShard();
  const std::string contig = context->shard.contig;
  const auto& contigs = static_cast<VarCal*>(algo)->contig_numbers_;
  const auto known = contigs.find(contig);
  contig_ = known == contigs.end() ? -1 : int32_t(known->second);
  if (contig_ < 0) return;
  input_->setContig(contig);
  for (const auto& aggregate : aggregates_) aggregate->setContig(contig);
  for (const Source& source : sources_) source.reader->setContig(contig);
}

Algo::Result* VarCal::Engine::finishShard() {
  std::unique_ptr<Result> finished = std::exchange(result_, std::make_unique<Result>());
  finished->block.settle();
  return finished.release();
}

void VarCal::Engine::advance(uint32_t from, uint32_t to) {
  if (contig_ < 0) return;
  const size_t first = result_->block.data.size();
  candidates_.clear();
  is_indel_.clear();
  collect(*input_, from, to, false);
  for (const auto& aggregate : aggregates_) collect(*aggregate, from, to, true);
  // Those of aggregate files stand behind those of the input at the same position.
  std::stable_sort(candidates_.begin(), candidates_.end(),
                   [](const Candidate& a, const Candidate& b) { return a.line->pos < b.line->pos; });
  for (const Candidate& candidate : candidates_) take(candidate);
  if (result_->block.data.size() == first) return;
  for (Source& source : sources_) consult(source, from, first);
}

void VarCal::Engine::collect(VCFCache& reader, uint32_t from, uint32_t to, bool aggregate) {
  fetch(reader, from, int32_t(to), VCFLine::kInfo);
  for (const VCFLine& line : reader.records()) {
    if (line.pos < int64_t(from)) continue;
    if (line.pos >= int64_t(to)) break;
    candidates_.push_back({&line, aggregate});
  }
}

void VarCal::Engine::take(const Candidate& candidate) {
  const VCFLine& line = *candidate.line;
  const std::string_view ref = line.column(VCFLine::kRef), alt = line.column(VCFLine::kAlt);
  const VariantClass kind(ref, alt);
  if (!kind.belongsTo(param_.var_type)) return;
  if (!passesFilters(line.column(VCFLine::kFilter), param_.ignore_input_filters)) return;
  VariantDatum& datum = result_->block.data.emplace_back();
  datum.isBiallelicSNP = kind.isBiallelicSNP;
  datum.isTransition = kind.isTransition;
  datum.isAggregate = candidate.is_aggregate;
  datum.qual = strtod(line.column(VCFLine::kQual), nullptr);
  datum.pos = line.pos;
  datum.length = int32_t(ref.size());
  datum.contig = contig_;
  readAnnotations(line);
  is_indel_.push_back(kind.type & kIndelBit);
}

// A value that is no number, or beyond what a Float of a VCF can be, is missing.
void VarCal::Engine::readAnnotations(const VCFLine& line) {
  std::vector<double>& all = result_->block.annotations;
  const size_t count = param_.annotations.size(), first = all.size();
  all.resize(first + count, std::numeric_limits<double>::quiet_NaN());
  VCFFieldCursor field(line, -1);
  while (field.next()) {
    for (size_t i = 0; i < count; ++i) {
      if (!field.is(param_.annotations[i].c_str()) || field.valueLength == 0) continue;
      char* rest;
      const double value = strtod(field.value, &rest);
      if (rest != field.value && std::abs(value) <= std::numeric_limits<float>::max()) all[first + i] = value;
    }
  }
}

void VarCal::Engine::consult(Source& source, uint32_t from, size_t first) {
  std::vector<VariantDatum>& data = result_->block.data;
  int64_t end = from;
  for (size_t i = first; i < data.size(); ++i) end = std::max(end, data[i].end());
  fetch(*source.reader, from, int32_t(std::min<int64_t>(end, INT32_MAX)), VCFLine::kFilter);
  snps_.clear();
  indels_.clear();
  for (const VCFLine& record : source.reader->records()) {
    if (record.pos >= end) break;
    if (record.end <= data[first].pos) continue;
    if (strcmp(record.column(VCFLine::kAlt), ".") == 0 || !isTrusted(record.column(VCFLine::kFilter)))
      continue;
    const VariantClass kind(record.column(VCFLine::kRef), record.column(VCFLine::kAlt));
    if (kind.type != 0) (kind.type & kIndelBit ? indels_ : snps_).add(record);
  }
  snps_.settle();
  indels_.settle();
  for (size_t i = first; i < data.size(); ++i) {
    const Spans& spans = is_indel_[i - first] ? indels_ : snps_;
    if (const size_t records = spans.countOver(data[i].pos, data[i].end()); records > 0)
      agree(*source.resource, records, data[i]);
  }
}
