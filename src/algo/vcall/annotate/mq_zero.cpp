#include "algo/vcall/annotate/annotators.h"

void MQZeroAnnotator::annotate(VariantContext&, const SiteContext&, const AnnotationSet&) const {}
