// rank_sum.cpp - do the reads of the alternates differ from those of the reference? NBQ is of all these reads.
#include <cmath>
#include <cstdint>
#include <vector>

#include "algo/vcall/annotate/annotators.h"
#include "algo/vcall/annotate/rank_sum_fields.h"
#include "algo/vcall/annotate/rank_sum_test.h"
#include "algo/vcall/annotate/site_evidence.h"

void RankSumAnnotator::annotate(VariantContext& record, const SiteContext& context,
                                const AnnotationSet& wanted) const {
  if (countKept(*context.site) == 0) return;
  std::vector<const SiteRead*> reads;  // those of the reference first
  const auto file = [&](auto&& supports) {
    for (const SiteRead& read : context.reads)
      if (isComparable(read) && supports(read)) reads.push_back(&read);
  };
  file(supportsReference);
  const size_t references = reads.size();
  file([&](const SiteRead& read) { return supportsAlternate(read, *context.site); });

  if (wanted.has(AnnotationField::NBQ)) {
    const double quality = neighbourQuality(reads);
    if (!std::isnan(quality)) record.addInfo("NBQ", "%.3f", quality);
  }
  if (references == 0 || references == reads.size()) return;
  std::vector<int32_t> reference(references), alternate(reads.size() - references);
  for (const RankSumField& field : kRankSumFields) {
    if (!wanted.has(field.field)) continue;
    for (size_t i = 0; i < reads.size(); ++i)
      (i < references ? reference[i] : alternate[i - references]) = field.value(*reads[i]);
    record.addInfo(field.name, "%.3f", rankSumZ(alternate, reference));
  }
}
