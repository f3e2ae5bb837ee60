#include "algo/vcall/annotate/annotators.h"

void AlleleCountAnnotator::annotate(VariantContext&, const SiteContext&, const AnnotationSet&) const {}
