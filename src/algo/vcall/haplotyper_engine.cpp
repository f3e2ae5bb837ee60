#include "algo/vcall/haplotyper_engine.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/timer.h"

namespace {

constexpr uint64_t kProfileBytes = 16 << 20;
constexpr uint64_t kLongestWindow = 4096;
constexpr double kActivityConfidence = 4.0;   // phred
constexpr double kMinMeanSoftClip = 6.0;      // bases
constexpr size_t kConfidenceSlack = 1 << 15;  // positions

constexpr char kAnyBase[] = "N";

// Bounds the memory of the profile.
uint32_t windowLimit(size_t samples, uint32_t ploidy) {
  const uint64_t position = (sizeof(double) * (ploidy + 1) + 16) * std::max<size_t>(samples, 1);
  return uint32_t(std::clamp<uint64_t>(kProfileBytes / position, 1, kLongestWindow));
}

}  // namespace

Haplotyper::Engine::Engine(DriverContext* context, Haplotyper* algo, const Param& param)
    : AssemblyCallAlgo::Engine(context, algo, windowLimit(algo->samples_.size(), param.ploidy)),
      param_(param),
      gvcf_(emit_mode_ == kGvcf),
      profile_(sampleCount(), param.ploidy, param.minBaseQual, param.minMapQual, gvcf_) {
  activity_site_.ref = {kAnyBase, 1, 0, true};
  activity_site_.isSNP = true;
}

void Haplotyper::Engine::startShard() {
  AssemblyCallAlgo::Engine::startShard();
  confidence_ = {};
  confidence_.start = context->shard.start;
  given_.clear();
}

// ---- activity ----

void Haplotyper::Engine::buildProfile(const std::vector<Read*>& reads, const ReferenceWindow& window,
                                      uint32_t start, uint32_t end) {
  profile_.build(reads, haplotyper().sample_of_group_, window, start, end);
}

void Haplotyper::Engine::clearProfile(uint32_t start, uint32_t end) {
  profile_.clear(start, end);
}

void Haplotyper::Engine::findActive(uint32_t start, uint32_t end, std::vector<ActivePosition>& active) {
  loadGiven(start, end);
  for (uint32_t position = start; position < end; ++position) {
    if (hasGiven() && (given_.snps.contains(position) || given_.others.contains(position))) {
      active.push_back({position, 1.0, 0});
      continue;
    }
    if (!profile_.isMarked(position)) continue;
    const double activity = activityAt(position);
    if (activity <= 0) continue;
    const double clipped = profile_.meanSoftClip(position);
    active.push_back({position, activity, clipped > kMinMeanSoftClip ? int(clipped) : 0});
  }
  if (gvcf_) keepConfidence(start, end);
}

bool Haplotyper::Engine::prepareTask(AssemblyTask& task) {
  if (!hasGiven()) return true;
  takeGiven(task.activeInterval, task.given);
  return !task.given.empty();
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
  confidence_.bases.append(window().from(start), count);
  // What speaks against the reference and did not become a record is doubt, not evidence of another allele.
  for (size_t i = 0; i < count * values; ++i)
    confidence_.likelihoods.push_back(std::min(gl[i], gl[i - i % values]));
  confidence_.depth.insert(confidence_.depth.end(), depths, depths + count);
}

// ---- calling ----

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

void Haplotyper::Engine::finishRegion(const AssemblyTask& task) {
  if (param_.phasing) phaseRecords(held_, task.haplotypes.size(), haplotyper().samples_[0], clips_, rows_);
}

// Positions that are written already, or lie inside of a record, are passed over.
void Haplotyper::Engine::callGap(uint32_t start, uint32_t end) {
  if (!gvcf_) return;
  static Timer* const inactive_timer = timer("calc_inactive");
  TimerScope scope(inactive_timer);
  if (start >= end) return;
  const size_t first = start - confidence_.start, values = param_.ploidy + 1;
  addRefConfidence(start, end, confidence_.bases.data() + first,
                   confidence_.likelihoods.data() + first * values, confidence_.depth.data() + first,
                   int(param_.ploidy));
}

// Frees the confidence of positions that are called.
void Haplotyper::Engine::dropBefore(uint32_t before) {
  if (!gvcf_) return;
  const size_t count = before - confidence_.start, values = param_.ploidy + 1;
  if (count < kConfidenceSlack) return;
  confidence_.start = before;
  confidence_.bases.erase(0, count);
  confidence_.depth.erase(confidence_.depth.begin(), confidence_.depth.begin() + ptrdiff_t(count));
  confidence_.likelihoods.erase(confidence_.likelihoods.begin(),
                                confidence_.likelihoods.begin() + ptrdiff_t(count * values));
}
