#include "algo/vcall/annotate/annotators.h"

void RankSumAnnotator::annotate(VariantContext&, const SiteContext&, const AnnotationSet&) const {}
