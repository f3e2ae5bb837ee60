#include "algo/vcall/annotate/annotators.h"

void InbreedingAnnotator::annotate(VariantContext&, const SiteContext&, const AnnotationSet&) const {}
