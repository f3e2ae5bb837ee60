// tn_filters.h - which of the tests a somatic call fails.
// Threads  pure functions.
#pragma once

#include <cstdint>
#include <vector>

#include "algo/onco/tn_annotations.h"
#include "readdata/vcf/variant_context.h"

// Thresholds of the run, by their options.
struct TNThresholds {
  double minTumorLod = 6.3, minNormalLod = 2.2, minDbsnpNormalLod = 5.5;
  double minTumorAlleleFrac = 0;
  int maxNormalAltCnt = 2, maxNormalAltQsum = 20;
  double maxNormalAltFrac = 0.03;
  bool filterStrContraction = true;
};

// What the filters of one position look at.
struct TNCall {
  bool hasNormal = false, isKnown = false, isCosmic = false, inPanel = false;  // known: at a dbSNP site
  int numPass = 0;  // alternates that pass the candidate test
  TumorNormalLod lod;
  AlleleEvidence tumor, normal;
  TandemRepeat repeat;
};

// Adds the filters that the call fails, in their order. True when the normal shows the alternate by count or fraction
// (of "alt_allele_in_normal", its quality sum aside).
bool addFilters(const TNCall& call, const TNThresholds& thresholds, VariantContext& record);

// The records of one region, in order of position; writes ECNT, MAX_ED and MIN_ED and adds the region's filters.
// `altInNormal` is by record what addFilters() returned.
void addRegionFilters(const std::vector<VariantContext*>& records, const std::vector<bool>& altInNormal);
