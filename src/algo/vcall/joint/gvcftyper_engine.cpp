#include "algo/vcall/joint/gvcftyper_engine.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "algo/vcall/annotate/strand_table.h"
#include "algo/vcall/model/genotype_index.h"
#include "base/bases.h"
#include "base/timer.h"

namespace {

constexpr size_t kMaxGenotypes = 1 << 16;  // of a sample; bounds the memory of a site
constexpr double kUninformative = -0.09;   // sum of log10 likelihoods that tell nothing
constexpr int64_t kMinSampleReads = 3;     // a sample with fewer says nothing of its strands
constexpr char kNonRefText[] = {kNonRefCode};

// As many alternates as `limit` allows and the genotypes of a sample stay countable with.
size_t limitOf(size_t limit, uint32_t ploidy) {
  size_t alternates = 1;
  while (alternates < limit && GenotypeIndex::count(ploidy, alternates + 2) <= kMaxGenotypes) ++alternates;
  return std::min(limit, alternates);
}

bool sameBase(char read, char reference) {
  const char upper = read >= 'a' && read <= 'z' ? static_cast<char>(read - 'a' + 'A') : read;
  return upper == reference || !isBase(upper) || !isBase(reference);
}

bool isSingleBase(const Allele& allele) {
  return allele.length == 1 && !allele.isSymbolic();
}

}  // namespace

GVCFtyper::Engine::Engine(DriverContext* context, GVCFtyper* algo)
    : VariantCallAlgo::Engine(context, algo),
      gvcfs_(algo->gvcfs()),
      max_alternates_(limitOf(algo->maxAltAlleles(), gvcfs_.largestPloidy())),
      inputs_(gvcfs_.caches.size()),
      events_(gvcfs_.caches.size()),
      merge_(gvcfs_.largestPloidy()) {
  for (size_t i = 0; i < inputs_.size(); ++i)
    inputs_[i].cache = std::make_unique<VCFCache>(*gvcfs_.caches[i]);
}

// The C library looks through the list of open streams, the latest first, for each that is closed.
GVCFtyper::Engine::~Engine() {
  while (!inputs_.empty()) inputs_.pop_back();
}

void GVCFtyper::Engine::startShard() {
  VariantCallAlgo::Engine::startShard();
  const char* const contig = context->shard.contig;
  if (strcmp(contig, kNoCoor) == 0) return;
  const FastaIndexEntry* const entry = context->reference->entry(contig);
  contig_end_ = entry ? static_cast<uint32_t>(entry->length) : 0;
  for (Input& input : inputs_) input.cache->setContig(contig);
}

void GVCFtyper::Engine::advance(uint32_t from, uint32_t to) {
  to = std::min(to, contig_end_);
  if (from >= to) return;
  {
    static Timer* const db_timer = timer("fetch_db");
    TimerScope scope(db_timer);
    fetchDb(from, to);
  }
  {
    static Timer* const records_timer = timer("fetch_vc");
    TimerScope scope(records_timer);
    fetchRecords(from, to);
    findPositions(from, to);
  }
  static Timer* const call_timer = timer("call");
  TimerScope scope(call_timer);
  for (const uint32_t position : positions_) call(position);
}

// ---- records ----

void GVCFtyper::Engine::fetchRecords(uint32_t from, uint32_t to) {
  for (size_t i = 0; i < inputs_.size(); ++i) {
    Input& input = inputs_[i];
    input.cache->fetch(static_cast<int32_t>(from), static_cast<int32_t>(to));
    input.cache->requireColumn(gvcfs_.sampleMaps[i].empty() ? VCFLine::kInfo : VCFLine::kSample);
    input.cursor.restart(input.cache->records());
  }
}

// Those where a record can come from: without a variant among the records that start there is none in mode variant.
// Blocks, whose ends follow from their bands, do not make positions of their own.
void GVCFtyper::Engine::findPositions(uint32_t from, uint32_t to) {
  positions_.clear();
  if (emit_mode_ == kAll) {
    positions_.resize(to - from);
    std::iota(positions_.begin(), positions_.end(), from);
    return;
  }
  for (const Input& input : inputs_) {
    const std::span<const VCFLine> records = input.cache->records();
    auto record = std::lower_bound(records.begin(), records.end(), static_cast<int64_t>(from),
                                   [](const VCFLine& line, int64_t start) { return line.pos < start; });
    for (; record != records.end() && record->pos < static_cast<int64_t>(to); ++record)
      if (emit_mode_ == kConfident || hasBaseAlternate(*record))
        positions_.push_back(static_cast<uint32_t>(record->pos));
  }
  std::sort(positions_.begin(), positions_.end());
  positions_.erase(std::unique(positions_.begin(), positions_.end()), positions_.end());
}

// Calls work(event, columns' map) for each input; its errors get the name of the file.
template <typename Work>
void GVCFtyper::Engine::forEvents(Work work) {
  for (size_t i = 0; i < events_.size(); ++i) {
    if (!events_[i].line) continue;
    try {
      work(events_[i], gvcfs_.sampleMaps[i]);
    } catch (const std::runtime_error& failure) {
      throw std::runtime_error(algo->name + ": " + failure.what() + " of file " + gvcfs_.paths[i]);
    }
  }
}

// What the inputs have at the position; false when there is nothing to call. `longest` is that of the REFs that start
// here, at least 1.
bool GVCFtyper::Engine::gatherEvents(uint32_t position, int32_t& longest) {
  size_t starting = 0, covering = 0;
  const auto here = static_cast<int32_t>(position);
  for (size_t i = 0; i < inputs_.size(); ++i) {
    const VCFLine* const line = inputs_[i].cursor.at(here);
    events_[i].assign(line, here);
    covering += line != nullptr;
    starting += line && events_[i].starts;
  }
  if (covering == 0 || (starting == 0 && emit_mode_ != kAll)) return false;
  longest = 1;
  forEvents([&](const Event& event, const std::vector<int>&) {
    if (!event.starts) return;
    if (event.refLength == 0 || static_cast<uint32_t>(event.refLength) > contig_end_ - position)
      failRecord(*event.line, event.refLength == 0 ? "No REF" : "REF reaches beyond the contig");
    longest = std::max(longest, event.refLength);
  });
  return true;
}

// ---- reference ----

// `length` bases, upper case and N, inside the contig. Valid until the next call.
const char* GVCFtyper::Engine::reference(uint32_t position, uint32_t length) {
  const char* const contig = context->shard.contig;
  if (!window_.holds(contig, position, position + length)) {
    static Timer* const ref_timer = timer("fetch_ref");
    TimerScope scope(ref_timer);
    window_.hold(*context->reference, contig, position, position + length);
    for (char& base : window_.bases)
      if (!isBase(base)) base = 'N';
  }
  return window_.from(position);
}

void GVCFtyper::Engine::checkReference(const Event& event, const char* ref) const {
  if (event.starts && !std::equal(event.ref, event.ref + event.refLength, ref, sameBase))
    failRecord(*event.line, "REF is not that of the reference");
}

// ---- a position ----

void GVCFtyper::Engine::call(uint32_t position) {
  int32_t longest;
  if (!gatherEvents(position, longest)) return;
  uniteAlleles(position, longest);
  const bool found = !site_.alts.empty();
  if (!found) {
    if (emit_mode_ != kAll) return;
    site_.alts.push_back({kNonRefText, 1});  // what QUAL speaks against
  }
  mergeSamples();

  double qual = std::numeric_limits<double>::quiet_NaN();
  const double emit_conf = found ? emit_conf_ : std::numeric_limits<double>::infinity();
  const int result = calculate(site_, &qual, emit_mode_, call_conf_, emit_conf);
  if (result == 0 || (result > 0 && !isVariant())) return;
  if (result < 0 && !dropUninformative()) {
    if (emit_mode_ != kAll) return;
    qual = std::numeric_limits<double>::quiet_NaN();
  }
  site_.trims = result > 0;
  emit(qual);
}

void GVCFtyper::Engine::uniteAlleles(uint32_t position, int32_t length) {
  const char* const ref = reference(position, static_cast<uint32_t>(length));
  forEvents([&](const Event& event, const std::vector<int>&) { checkReference(event, ref); });
  union_.build(events_, ref, length);
  if (union_.alts().size() > max_alternates_) {
    scores_.assign(union_.alts().size() + 1, 0.0);
    forEvents([this, most = gvcfs_.largestPloidy()](const Event& event, const std::vector<int>& map) {
      sumLikelihoods(event, map, most, scores_);
    });
    union_.keepBest(events_, scores_, max_alternates_);
  }
  site_.position = position;
  site_.ref = union_.ref();
  site_.alts = union_.alts();
  site_.isSNP = length == 1 && std::all_of(site_.alts.begin(), site_.alts.end(), isSingleBase);
}

void GVCFtyper::Engine::mergeSamples() {
  samples_.likelihoods.swap(site_.likelihoods);
  samples_.clear(gvcfs_.ploidies);
  forEvents([this](const Event& event, const std::vector<int>& map) {
    merge_.add(event, map, site_.alts.size() + 1, samples_);
  });
  depth_ = -1;
  for (size_t i = 0; i < samples_.counts.size(); ++i)
    if (!samples_.likelihoods[i].gl.empty() && samples_.counts[i].depth >= 0)
      depth_ = std::max<int64_t>(depth_, 0) + samples_.counts[i].depth;
  samples_.likelihoods.swap(site_.likelihoods);
  site_.counts = &samples_.counts;
}

// Whether an alternate is left that is more than the deletion of another record.
bool GVCFtyper::Engine::isVariant() const {
  return std::any_of(site_.alts.begin(), site_.alts.end(),
                     [](const Allele& alt) { return alt.length > 0 && !isSpanningDeletion(alt); });
}

// Takes the samples out that a site of the reference alone says nothing of. False when none is left.
bool GVCFtyper::Engine::dropUninformative() {
  bool left = false;
  for (GenotypeLikelihoods& likelihoods : site_.likelihoods) {
    std::vector<double>& gl = likelihoods.gl;
    if (std::accumulate(gl.begin(), gl.end(), 0.0) > kUninformative) gl.clear();
    left = left || !gl.empty();
  }
  return left;
}

void GVCFtyper::Engine::emit(double qual) {
  attributes_.clear();
  forEvents([this](const Event& event, const std::vector<int>&) { attributes_.add(event); });
  emitVariant(site_, qual);
}

void GVCFtyper::Engine::startRecord(const Site& site, VariantContext& record) {
  attributes_.annotateAttributes(record);
  if (!attributes_.hasDepth() && depth_ >= 0) record.addInfo("DP", "%" PRId64, depth_);

  const std::vector<std::string>& names = gvcfs_.header.samples;
  StrandTable strands;
  for (size_t i = 0; i < names.size(); ++i) {
    if (site.likelihoods[i].gl.empty()) continue;
    GenotypeAttr& columns = record.genotypes[names[i]];
    for (const auto& [key, value] : samples_.attrs[i]) columns[std::string(key)].emplace_back(value);
    const StrandCounts& counts = samples_.strands[i];
    const StrandTable table{counts[0], counts[1], counts[2], counts[3]};
    if (table.total() == 0) continue;
    for (const int64_t count : counts) columns["SB"].push_back(std::to_string(count));
    if (table.total() >= kMinSampleReads) strands.add(table);
  }
  if (record.alleles.empty() || strands.total() == 0) return;
  record.eraseInfo("FS");
  record.eraseInfo("SOR");
  record.addInfo("FS", "%.3f", std::max(0.0, -10 * std::log10(fisherP(strands))));
  record.addInfo("SOR", "%.3f", strandOddsRatio(strands));
}
