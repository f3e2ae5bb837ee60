#include "algo/vcall/annotate/annotators.h"

void StrandBiasAnnotator::annotate(VariantContext&, const SiteContext&, const AnnotationSet&) const {}
