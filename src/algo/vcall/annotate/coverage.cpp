#include "algo/vcall/annotate/annotators.h"

void CoverageAnnotator::annotate(VariantContext&, const SiteContext&, const AnnotationSet&) const {}
