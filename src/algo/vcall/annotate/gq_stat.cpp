#include "algo/vcall/annotate/annotators.h"

void GQStatAnnotator::annotate(VariantContext&, const SiteContext&, const AnnotationSet&) const {}
