// annotators.h - the classes behind the annotation names.
// Units    as their header lines say; phred and natural logarithm where not told.
#pragma once

#include "algo/vcall/annotate/annotator.h"

class AlleleCountAnnotator final : public Annotator {
  void annotate(VariantContext& record, const SiteContext& site, const AnnotationSet& wanted) const override;
};

class CoverageAnnotator final : public Annotator {
  void annotate(VariantContext& record, const SiteContext& site, const AnnotationSet& wanted) const override;
};

class GQStatAnnotator final : public Annotator {
  void annotate(VariantContext& record, const SiteContext& site, const AnnotationSet& wanted) const override;
};

class InbreedingAnnotator final : public Annotator {
  void annotate(VariantContext& record, const SiteContext& site, const AnnotationSet& wanted) const override;
};

class MQZeroAnnotator final : public Annotator {
  void annotate(VariantContext& record, const SiteContext& site, const AnnotationSet& wanted) const override;
};

class RankSumAnnotator final : public Annotator {
  void annotate(VariantContext& record, const SiteContext& site, const AnnotationSet& wanted) const override;
};

class StrandBiasAnnotator final : public Annotator {
  void annotate(VariantContext& record, const SiteContext& site, const AnnotationSet& wanted) const override;
};
