#include <cmath>

#include "algo/vcall/annotate/annotators.h"

void GQStatAnnotator::annotate(VariantContext& record, const SiteContext& context,
                               const AnnotationSet& wanted) const {
  if (wanted.has(AnnotationField::GQ_MEAN) && !std::isnan(context.gqMean))
    record.addInfo("GQ_MEAN", "%.3f", context.gqMean);
  if (wanted.has(AnnotationField::GQ_STDDEV) && !std::isnan(context.gqStddev))
    record.addInfo("GQ_STDDEV", "%.3f", context.gqStddev);
}
