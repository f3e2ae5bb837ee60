#include "algo/onco/tn_engine.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "algo/onco/tn_annotations.h"
#include "algo/onco/tn_artefacts.h"
#include "algo/onco/tn_filters.h"
#include "base/text.h"

namespace {

constexpr uint32_t kLongestWindow = 4096;  // positions

std::string textOf(const Allele& allele) {
  return std::string(allele.bases, size_t(allele.length));
}

// REF and ALT of a SNP, else 'N'.
std::pair<char, char> basesOf(const VariantContext& record) {
  const Allele& alt = record.alleles[0];
  return record.refLength == 1 && alt.length == 1 ? std::pair(record.ref[0], alt.bases[0])
                                                  : std::pair('N', 'N');
}

}  // namespace

TNhaplotyper::Engine::Engine(DriverContext* context, TNhaplotyper* algo, const Param& param)
    : AssemblyCallAlgo::Engine(context, algo, kLongestWindow),
      param_(param),
      has_normal_(algo->hasNormal()),
      activity_(param.activity, algo->debug_) {
  for (const auto& cache : algo->cosmic_) cosmic_.push_back(std::make_unique<VCFCache>(*cache));
  for (const auto& cache : algo->panel_) panel_.push_back(std::make_unique<VCFCache>(*cache));
}

void TNhaplotyper::Engine::startShard() {
  AssemblyCallAlgo::Engine::startShard();
  if (strcmp(context->shard.contig, kNoCoor) == 0) return;
  for (const Caches* caches : {&cosmic_, &panel_})
    for (const auto& cache : *caches) cache->setContig(context->shard.contig);
}

void TNhaplotyper::Engine::fetchDb(uint32_t start, uint32_t end) {
  AssemblyCallAlgo::Engine::fetchDb(start, end);
  for (const Caches* caches : {&cosmic_, &panel_}) {
    for (const auto& cache : *caches) {
      cache->fetch(int32_t(start), int32_t(end));
      cache->requireColumn(VCFLine::kAlt);
    }
  }
}

// ---- activity ----

void TNhaplotyper::Engine::buildProfile(const std::vector<Read*>& reads, const ReferenceWindow& window,
                                        uint32_t start, uint32_t end) {
  tn().noteReads(reads);
  activity_.build(reads, tn().sample_of_group_, window, start, end);
}

void TNhaplotyper::Engine::clearProfile(uint32_t start, uint32_t end) {
  activity_.clear(start, end);
}

void TNhaplotyper::Engine::findActive(uint32_t, uint32_t, std::vector<ActivePosition>& active) {
  active_positions_.clear();
  activity_.findActive(context->shard.contig, active_positions_);
  for (const uint32_t position : active_positions_) active.push_back({position, 1.0, 0});
}

// ---- calling ----

void TNhaplotyper::Engine::takeReads(const AssemblyTask& task, const EventSite& event) {
  alleleLikelihoods(event, clips_, rows_, task.haplotypes.size(), false, allele_rows_);
  locus_.build(clips_, allele_rows_.values.data(), allele_rows_.alleles, event.position,
               task.debugLevel >= kDebugRegions);
  locus_.removeOverlap();
  const auto downsample = [&](int32_t sample, double fraction) {
    if (fraction > 0)
      locus_.contaminationDownsample(sample, fraction, param_.contaminationDownsampleMode, task.contig,
                                     event.position);
  };
  downsample(kTumor, param_.tumorContaminationFrac);
  if (has_normal_) downsample(kNormal, param_.normalContaminationFrac);
  if (task.debugLevel >= kDebugAssembly) locus_.tell(task.contig, event.position);
}

bool TNhaplotyper::Engine::isCandidate(const TumorNormalLod& lod) const {
  if (lod.tumor < param_.minInitTumorLod) return false;
  return !has_normal_ || param_.ignoreNormalLodLoc || lod.normal >= param_.minInitNormalLod;
}

void TNhaplotyper::Engine::calcSite(const AssemblyTask& task, EventSite event) {
  takeReads(task, event);
  const std::vector<TumorNormalLod> lods = calcLods(locus_, has_normal_);
  TNCall call;
  size_t alternate = 0;
  for (size_t a = 0; a < lods.size(); ++a) {
    if (!isCandidate(lods[a])) continue;
    ++call.numPass;
    alternate = a;
  }
  if (task.debugLevel >= kDebugRegions)
    debugPrint("numPass %d call_alt_idx %d\n", call.numPass, call.numPass == 0 ? -1 : int(alternate));
  if (call.numPass == 0) return;

  RegionRecord held;
  held.site = std::make_unique<const EventSite>(std::move(event));
  VariantContext& record = held.record;
  placeSite(*held.site, alternate, record);
  call.debug = task.debugLevel >= kDebugRegions;
  call.hasNormal = has_normal_;
  call.lod = lods[alternate];
  const auto allele = int32_t(alternate + 1);
  const auto [ref, alt] = basesOf(record);
  call.tumor = evidenceOf(locus_, kTumor, allele);
  if (has_normal_) call.normal = evidenceOf(locus_, kNormal, allele);
  call.repeat =
      TandemRepeat::find(task.reference, record.start, std::string(record.ref, size_t(record.refLength)),
                         textOf(record.alleles[0]));
  lookUp(record, call);
  alt_in_normal_.push_back(addFilters(call, param_.thresholds, record));
  if (param_.filterArtefacts) addArtefactFilters(calcArtefacts(locus_, allele, ref, alt), record);
  describe(*held.site, alternate, call, record);
  held_.push_back(std::move(held));
}

// The record of the site with that alternate alone, which points into `event`.
void TNhaplotyper::Engine::placeSite(const EventSite& event, size_t alternate, VariantContext& record) {
  const std::string& alt = event.alts[alternate];
  site_.position = event.position;
  site_.ref = {event.ref.data(), int32_t(event.ref.size()), 0, true};
  site_.alts.assign(1, {alt.data(), int32_t(alt.size()), 0, false});
  placeRecord(site_, record);
  setId(record);
}

// What the files of variants know of the record.
void TNhaplotyper::Engine::lookUp(const VariantContext& record, TNCall& call) const {
  call.isKnown = record.info.contains("DB");
  for (const auto& cache : cosmic_) call.isCosmic = call.isCosmic || findKnown(cache->records(), record);
  call.inPanel = !param_.detectPon && countInPanel(record) > 0;
}

// Records of the panel that begin where the record does.
size_t TNhaplotyper::Engine::countInPanel(const VariantContext& record) const {
  ptrdiff_t count = 0;
  for (const auto& cache : panel_)
    count += std::ranges::count(cache->records(), int32_t(record.start), &VCFLine::pos);
  return size_t(count);
}

void TNhaplotyper::Engine::describe(const EventSite& event, size_t alternate, const TNCall& call,
                                    VariantContext& record) const {
  record.addInfo("TLOD", "%.2f", call.lod.tumor);
  if (has_normal_) record.addInfo("NLOD", "%.2f", call.lod.normal);
  record.addInfo("HCNT", "%zu", event.carriers[alternate + 1].size());
  if (!panel_.empty()) record.addInfo("PON", "%zu", countInPanel(record));
  if (call.repeat.isRepeat) {
    record.setFlag("STR", true);
    record.addInfo("RU", "%s", call.repeat.unit.c_str());
    for (const int repeats : call.repeat.repeats) record.addInfo("RPA", "%d", repeats);
  }
  addColumn(kTumor, int32_t(alternate + 1), record);
  if (has_normal_) addColumn(kNormal, int32_t(alternate + 1), record);
}

void TNhaplotyper::Engine::addColumn(int32_t sample, int32_t allele, VariantContext& record) const {
  const std::string& column = tn().samples_[size_t(sample)];
  const auto depth = std::ranges::count_if(
      locus_.reads(), [sample](const LocusRead& read) { return read.sample == sample && read.counts(); });
  record.addGenotype(column, "GT", "%s", sample == kTumor ? "0/1" : "0/0");
  record.addGenotype(column, "DP", int(depth));
  const auto [ref, alt] = basesOf(record);
  annotateSample(locus_, sample, allele, ref, alt, column, record);
}

void TNhaplotyper::Engine::finishRegion(const AssemblyTask& task) {
  std::vector<VariantContext*> records;
  for (RegionRecord& held : held_) records.push_back(&held.record);
  addRegionFilters(records, alt_in_normal_);
  alt_in_normal_.clear();
  if (param_.phasing)
    phaseRecords(held_, task.haplotypes.size(), tn().samples_[kTumor], clips_, rows_, false);
}
