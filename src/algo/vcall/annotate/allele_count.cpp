#include <cinttypes>

#include "algo/vcall/annotate/annotators.h"
#include "algo/vcall/annotate/site_evidence.h"

void AlleleCountAnnotator::annotate(VariantContext& record, const SiteContext& context,
                                    const AnnotationSet& wanted) const {
  const Site& site = *context.site;
  int64_t chromosomes = 0;
  for (size_t i = 0; i < context.calls.size(); ++i)
    if (isCalled(context, i)) chromosomes += site.likelihoods[i].ploidy;
  if (chromosomes == 0) return;
  if (wanted.has(AnnotationField::AN)) record.addInfo("AN", "%" PRId64, chromosomes);

  const bool has_mle = context.model && context.model->mleCounts.size() == site.alts.size();
  for (size_t alt = 0; alt < site.alts.size(); ++alt) {
    if (!isKept(site.alts[alt])) continue;
    int64_t copies = 0;
    for (size_t i = 0; i < context.calls.size(); ++i)
      if (isCalled(context, i)) copies += context.calls[i].counts[alt + 1];
    if (wanted.has(AnnotationField::AC)) record.addInfo("AC", "%" PRId64, copies);
    if (wanted.has(AnnotationField::AF))
      record.addInfo("AF", "%.3f", static_cast<double>(copies) / static_cast<double>(chromosomes));
    if (!has_mle) continue;
    const int32_t likely = context.model->mleCounts[alt];
    if (wanted.has(AnnotationField::MLEAC)) record.addInfo("MLEAC", "%d", likely);
    if (wanted.has(AnnotationField::MLEAF))
      record.addInfo("MLEAF", "%.3f", likely / static_cast<double>(chromosomes));
  }
}
