// strand_bias.cpp - FS and SOR; SB stands in the samples' columns and comes with the genotypes.
#include <algorithm>
#include <cmath>
#include <vector>

#include "algo/vcall/annotate/annotators.h"
#include "algo/vcall/annotate/site_evidence.h"
#include "algo/vcall/annotate/strand_table.h"

namespace {

constexpr int kGoodQuality = 17;        // phred, of base and alignment
constexpr int64_t kMinSampleReads = 3;  // a sample with fewer says nothing of its strands

// One table per sample of the reads that `counts` takes, added up.
template <typename Filter>
StrandTable collectTable(const SiteContext& context, Filter&& counts) {
  std::vector<StrandTable> tables(context.calls.size());
  for (const SiteRead& read : context.reads) {
    const bool alternate = supportsAlternate(read, *context.site);
    if ((alternate || supportsReference(read)) && hasSample(context, read) && counts(read))
      tables[static_cast<size_t>(read.sample)].addRead(alternate, read.read->isReverse());
  }
  StrandTable sum;
  for (const StrandTable& table : tables)
    if (table.total() >= kMinSampleReads) sum.add(table);
  return sum;
}

bool isUsable(const SiteRead& read) {
  return hasMappingQuality(read) && read.qual >= kMinBaseQuality;
}
bool isGood(const SiteRead& read) {
  return isUsable(read) && std::min(read.qual, read.read->mapq) >= kGoodQuality;
}

}  // namespace

void StrandBiasAnnotator::annotate(VariantContext& record, const SiteContext& context,
                                   const AnnotationSet& wanted) const {
  const bool fs = wanted.has(AnnotationField::FS), sor = wanted.has(AnnotationField::SOR);
  if ((!fs && !sor) || context.gvcf) return;
  const size_t kept = countKept(*context.site);
  // A pileup tells bases, not alleles, apart: it is asked only when there is one alternate.
  if (kept == 0 || (kept > 1 && !context.hasRows())) return;

  StrandTable table, good;
  if (context.hasRows()) {
    table = collectTable(context, [](const SiteRead&) { return true; });
  } else {
    table = collectTable(context, isUsable);
    if (fs) good = collectTable(context, isGood);
  }
  if (table.total() == 0) return;  // then `good` is empty as well
  if (fs) {
    double p = fisherP(table);
    if (good.total() > 0) p = std::max(p, fisherP(good));
    record.addInfo("FS", "%.3f", std::max(0.0, -10 * std::log10(p)));
  }
  if (sor) record.addInfo("SOR", "%.3f", strandOddsRatio(table));
}
