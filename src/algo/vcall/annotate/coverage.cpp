// coverage.cpp - depth, mapping quality and quality by depth.
#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdlib>

#include "algo/vcall/annotate/annotators.h"
#include "algo/vcall/annotate/site_evidence.h"

namespace {

// A quality by depth from here on says no more than the value that stands for it.
constexpr double kQDLimit = 35.0, kQDCapped = 30.0;

// By how many bases an alternate differs from the reference: in length, or when they are equally long in content.
int32_t alleleDifference(const Allele& ref, const Allele& alt) {
  if (alt.isSymbolic()) return 0;
  const int32_t suffix = alt.refSuffix > 0 && alt.refSuffix < ref.length ? alt.refSuffix : 0;
  const int32_t length = alt.length + suffix;
  if (length != ref.length) return std::abs(length - ref.length);
  int32_t different = 0;
  for (int32_t i = 0; i < alt.length; ++i) different += alt.bases[i] != ref.bases[i];
  return different;
}

// Long alternates have more quality for each read than a single base has.
double lengthFactor(const SiteContext& context) {
  const Site& site = *context.site;
  double sum = 0, copies = 0;
  for (size_t i = 0; i < context.calls.size(); ++i) {
    if (!isCalled(context, i)) continue;
    for (size_t alt = 0; alt < site.alts.size(); ++alt) {
      const int32_t count = context.calls[i].counts[alt + 1];
      if (count == 0 || !isKept(site.alts[alt])) continue;
      sum += static_cast<double>(count) * alleleDifference(site.ref, site.alts[alt]);
      copies += count;
    }
  }
  return copies > 0 ? std::max(sum / copies / 3.0, 1.0) : 1.0;
}

void addQualityByDepth(VariantContext& record, const SiteContext& context) {
  int64_t depth = 0;
  for (size_t i = 0; i < context.calls.size(); ++i) {
    if (!isCalled(context, i)) continue;
    const std::vector<int32_t>& counts = context.calls[i].counts;
    if (std::any_of(counts.begin() + 1, counts.end(), [](int32_t count) { return count > 0; }))
      depth += std::max(context.calls[i].depth, 0);
  }
  if (depth == 0 || !std::isfinite(context.qual)) return;
  const double qd = context.qual / (static_cast<double>(depth) * lengthFactor(context));
  record.addInfo("QD", "%.3f", qd >= kQDLimit ? kQDCapped : qd);
}

// Of all samples; -1 when no sample has one.
int64_t totalDepth(const SiteContext& context) {
  int64_t depth = -1;
  for (const GenotypeCall& call : context.calls)
    if (call.depth >= 0) depth = std::max<int64_t>(depth, 0) + call.depth;
  return depth;
}

// RAW_MQ is a sum over DP reads, so that those of many records make a mean; not all of them need have a base here.
void addMappingQuality(VariantContext& record, const SiteContext& context, const AnnotationSet& wanted) {
  double squares = 0;
  int64_t reads = 0;
  for (const SiteRead& read : coveringReads(context)) {
    if (!covers(read, context) || !hasSample(context, read) || callOf(context, read).depth < 0) continue;
    squares += static_cast<double>(read.read->mapq) * read.read->mapq;
    ++reads;
  }
  if (reads == 0) return;
  const double mean = squares / static_cast<double>(reads);
  if (wanted.has(AnnotationField::RAW_MQ))
    record.addInfo("RAW_MQ", "%.3f", mean * static_cast<double>(totalDepth(context)));
  if (wanted.has(AnnotationField::MQ)) record.addInfo("MQ", "%.3f", std::sqrt(mean));
}

}  // namespace

// MIN_DP is a matter of blocks: a record has one position.
void CoverageAnnotator::annotate(VariantContext& record, const SiteContext& context,
                                 const AnnotationSet& wanted) const {
  if (wanted.has(AnnotationField::DP)) {
    const int64_t depth = totalDepth(context);
    if (depth >= 0) record.addInfo("DP", "%" PRId64, depth);
  }
  if (wanted.has(AnnotationField::MQ) || wanted.has(AnnotationField::RAW_MQ))
    addMappingQuality(record, context, wanted);
  if (wanted.has(AnnotationField::QD) && countKept(*context.site) > 0) addQualityByDepth(record, context);
}
