#include <cinttypes>

#include "algo/vcall/annotate/annotators.h"
#include "algo/vcall/annotate/site_evidence.h"

// Unlike the depth, the reads of samples without a genotype count: mapping quality 0 may be why they have none.
void MQZeroAnnotator::annotate(VariantContext& record, const SiteContext& context,
                               const AnnotationSet& wanted) const {
  if (!wanted.has(AnnotationField::MQ0) || (!context.hasRows() && !context.site->pileup)) return;
  int64_t reads = 0;
  for (const SiteRead& read : coveringReads(context)) reads += covers(read, context) && read.read->mapq == 0;
  record.addInfo("MQ0", "%" PRId64, reads);
}
