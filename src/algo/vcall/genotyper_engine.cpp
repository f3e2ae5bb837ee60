#include "algo/vcall/genotyper_engine.h"

#include <algorithm>
#include <limits>

#include "base/timer.h"

namespace {

constexpr uint32_t kExcluded = FLAG_UNMAPPED | FLAG_SECONDARY | FLAG_QC_FAIL | FLAG_DUPLICATE;
constexpr uint32_t kReferencePad = 200;
// The reference is read in pieces of at least so many bases.
constexpr uint64_t kPileupBytes = 32 << 20;
constexpr uint64_t kLongestRegion = 4096;

uint32_t regionLimit(const SNPLookupTable* lookup, size_t samples) {
  if (!lookup) return kLongestRegion;
  const uint64_t position = sizeof(double) * lookup->stride() * std::max<size_t>(samples, 1);
  return uint32_t(std::clamp<uint64_t>(kPileupBytes / position, 1, kLongestRegion));
}

}  // namespace

Genotyper::Engine::Engine(DriverContext* context, Genotyper* algo, const Param& param,
                          const SNPLookupTable* lookup)
    : VariantCallAlgo::Engine(context, algo),
      Param(param),
      region_limit_(regionLimit(lookup, sampleCount())),
      candidates_(min_base_qual, IndelCaller::maxAlternates(ploidy)),
      indels_(ploidy, min_base_qual, sampleCount()) {
  if (!lookup) return;
  pileup_ = std::make_unique<SNPPileup>(*lookup, sampleCount(), usesPairs());
  snps_ = std::make_unique<SNPCaller>(*lookup, sampleCount());
}

void Genotyper::Engine::startShard() {
  VariantCallAlgo::Engine::startShard();
  done_ = span_start;
  if (callsIndels()) ++span_end;  // the reads that begin behind the last position
}

// With indels the last position of a step waits for the next one, which has the reads that begin behind it.
void Genotyper::Engine::advance(uint32_t, uint32_t to) {
  const uint32_t end = callsIndels() && to != context->shard.end ? to - 1 : to;
  while (done_ < end) {
    const uint32_t stop = end - done_ > region_limit_ ? done_ + region_limit_ : end;
    calc(done_, stop);
    done_ = stop;
  }
  span_start = done_;
}

// The results at a position do not depend on the region in which it lies.
void Genotyper::Engine::calc(uint32_t start, uint32_t end) {
  if (hasGiven()) {
    given_.load(*given_cache_, start, end);
    if (given_.empty()) return;
  }
  if (!fetchReference(start, end)) return;
  {
    static Timer* const db_timer = timer("fetch_db");
    TimerScope scope(db_timer);
    fetchDb(start, end);
  }
  fetchReads(start, end);
  if (reads_.empty() && emit_mode_ != VariantCallAlgo::kAll) return;
  if (callsIndels() && !hasGiven()) findIndels(start, end);
  if (callsSNPs()) pileUp(start, end);
  call(start, end);
}

// False when the reference has nothing at `start`; else `end` is moved to where it ends.
bool Genotyper::Engine::fetchReference(uint32_t start, uint32_t& end) {
  static Timer* const ref_timer = timer("fetch_ref");
  TimerScope scope(ref_timer);
  const char* const contig = context->shard.contig;
  const FastaIndexEntry* const entry = context->reference->entry(contig);
  const uint32_t length = entry ? entry->length : 0, pad = callsIndels() ? kReferencePad : 0;
  if (start >= length) return false;
  end = std::min(end, length);
  const uint32_t from = start - std::min(start, pad), to = end + std::min(length - end, pad);
  window_.hold(*context->reference, contig, from, to);
  return true;
}

void Genotyper::Engine::fetchReads(uint32_t start, uint32_t end) {
  static Timer* const reads_timer = timer("fetch");
  TimerScope scope(reads_timer);
  reads_.clear();
  context->reads->fetch(start, callsIndels() ? end + 1 : end, kExcluded | read_flags, reads_);
}

void Genotyper::Engine::findIndels(uint32_t start, uint32_t end) {
  static Timer* const indel_timer = timer("calc_indel");
  TimerScope scope(indel_timer);
  sample_reads_.resize(sampleCount());
  for (auto& reads : sample_reads_) reads.clear();
  for (Read* read : reads_) sample_reads_[size_t(sampleOf(*read))].push_back(read);
  found_ = candidates_.find(sample_reads_, window_, start, end);
}

void Genotyper::Engine::pileUp(uint32_t start, uint32_t end) {
  static Timer* const overlap_timer = timer("find_overlaps");
  static Timer* const snp_timer = timer("calc_snp");
  pileup_->reset(start, end);
  {
    TimerScope scope(overlap_timer);
    pileup_->findOverlaps(reads_);
  }
  TimerScope scope(snp_timer);
  pileup_->addReads(reads_, sampleOfGroup());
}

void Genotyper::Engine::call(uint32_t start, uint32_t end) {
  static Timer* const variant_timer = timer("variant");
  TimerScope scope(variant_timer);
  over_snp_.restart();
  over_indel_.restart();
  const IndelCandidates::Map& indels = hasGiven() ? given_.others : found_;
  auto indel = indels.begin();
  for (uint32_t position = start; position < end; ++position) {
    const bool written = callsSNPs() && calcSNP(position);
    if (!callsIndels() || indel == indels.end() || indel->first != position) continue;
    for (const GivenAlleles::Record& record : indel->second) calcIndel(position, record, written);
    ++indel;
  }
}

// ---- SNPs ----

BaseList Genotyper::Engine::givenAlternates(uint32_t position, uint8_t ref) const {
  BaseList alts;
  const auto found = given_.snps.find(position);
  if (found == given_.snps.end()) return alts;
  for (const GivenAlleles::Record& record : found->second) {
    if (baseIndex(record.ref[0]) != ref) continue;
    for (const std::string& alt : record.alts) {
      const uint8_t base = baseIndex(alt[0]);
      if (base != kNoBase && base != ref) alts.add(base);
    }
  }
  return alts;
}

// Whether a record was written.
bool Genotyper::Engine::calcSNP(uint32_t position) {
  const uint8_t ref = baseIndex(window_.at(position));
  if (ref == kNoBase) return false;
  BaseList alts;
  if (hasGiven() && (alts = givenAlternates(position, ref)).count == 0) return false;
  const bool all = emit_mode_ == VariantCallAlgo::kAll;
  if (!all && !SNPCaller::isCovered(*pileup_, position)) return false;
  if (!hasGiven()) alts = snps_->alternates(*pileup_, position, ref);
  const bool found = alts.count > 0;
  if (!found) {
    if (!all) return false;
    alts.add(snps_->bestOther(*pileup_, position, ref));  // what QUAL speaks against
  }

  snps_->prepare(*pileup_, position, ref, alts, hasGiven(), site_);
  site_.pileup = &over_snp_.at(position, reads_);
  double qual = std::numeric_limits<double>::quiet_NaN();
  const double emit_conf = found ? emit_conf_ : std::numeric_limits<double>::infinity();
  if (calculate(site_, &qual, emit_mode_, call_conf_, emit_conf) != 0)
    emitVariant(site_, qual);
  else if (all)
    emitReference(qual);
  else
    return false;
  return true;
}

// ---- indels ----

void Genotyper::Engine::calcIndel(uint32_t position, const GivenAlleles::Record& record,
                                  bool position_has_record) {
  const std::vector<Read*>& reads = over_indel_.at(position, reads_);
  if (!indels_.prepare(position, record, window_, reads, sampleOfGroup(), site_)) return;
  double qual = std::numeric_limits<double>::quiet_NaN();
  const int kept = calculate(site_, &qual);
  if (kept < 0 && position_has_record && !hasGiven()) return;  // says no more than the record of the SNP
  if (kept != 0)
    emitVariant(site_, qual);
  else if (hasGiven() && emit_mode_ == VariantCallAlgo::kAll)
    emitReference(qual);
}

// The record of a site without data. Rows are of alleles that it does not have.
void Genotyper::Engine::emitReference(double qual) {
  site_.alts.clear();
  site_.rows = nullptr;
  emitVariant(site_, qual);
}

// ---- reads over a position ----

void Genotyper::Engine::ReadsOver::restart() {
  next_ = 0;
  over_.clear();
}

const std::vector<Read*>& Genotyper::Engine::ReadsOver::at(uint32_t position,
                                                           const std::vector<Read*>& reads) {
  for (; next_ < reads.size() && reads[next_]->start <= uint64_t(position) + reach_; ++next_)
    over_.push_back(reads[next_]);
  std::erase_if(over_, [position](const Read* read) { return read->end <= position; });
  return over_;
}
