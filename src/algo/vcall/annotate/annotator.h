// annotator.h - INFO fields of a record, each served by one of a few annotators.
// Threads  annotators have no state and are shared.
// Errors   none: a field that the site has no data for is not written.
#pragma once

#include <bitset>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "algo/vcall/model/site_context.h"
#include "readdata/vcf/variant_context.h"

// In byte order of their names, as kAnnotationDefs.
enum class AnnotationField : uint8_t {
  AC,
  AF,
  AN,
  BaseQRankSum,
  ClippingRankSum,
  DP,
  ExcessHet,
  FS,
  GQ_MEAN,
  GQ_STDDEV,
  InbreedingCoeff,
  MIN_DP,
  MLEAC,
  MLEAF,
  MQ,
  MQ0,
  MQRankSum,
  NBQ,
  QD,
  RAW_MQ,
  ReadPosEndDist,
  ReadPosRankSum,
  SB,
  SOR,
  kCount
};

// The fields that a run was asked for.
class AnnotationSet {
 public:
  void add(AnnotationField field) { fields_.set(static_cast<size_t>(field)); }
  void remove(AnnotationField field) { fields_.reset(static_cast<size_t>(field)); }
  bool has(AnnotationField field) const { return fields_.test(static_cast<size_t>(field)); }

 private:
  std::bitset<static_cast<size_t>(AnnotationField::kCount)> fields_;
};

class Annotator {
 public:
  virtual ~Annotator() = default;
  // Adds those of its fields that are `wanted` and that the site has the data for.
  virtual void annotate(VariantContext& record, const SiteContext& site,
                        const AnnotationSet& wanted) const = 0;
};

struct AnnotationDef {
  const char* name;
  const char *number, *type, *description;  // of the header line; the description with its double quotes
  const char* annotator;                    // class name: annotators run in the order of these
  const Annotator* object;
  bool perSample = false;  // the line is a FORMAT line: the values stand in the samples' columns
};

// Null for an unknown name.
const AnnotationDef* findAnnotation(std::string_view name);
const AnnotationDef& annotationDef(AnnotationField field);
AnnotationField annotationField(const AnnotationDef& def);

struct AnnotatorOrder {
  bool operator()(const AnnotationDef* a, const AnnotationDef* b) const {
    return std::string_view(a->annotator) < b->annotator;
  }
};
// One def per annotator, in the order in which they run.
using AnnotatorList = std::set<const AnnotationDef*, AnnotatorOrder>;
