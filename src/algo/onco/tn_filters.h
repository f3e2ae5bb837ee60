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
  double minTumorAlleleFrac = 0.01;
  int maxNormalAltCnt = 2, maxNormalAltQsum = 20;
  double maxNormalAltFrac = 0.03;
  bool filterStrContraction = false;
};

// What the filters of one position look at.
struct TNCall {
  bool hasNormal = false, isKnown = false, isCosmic = false, inPanel = false;  // known: at a dbSNP site
  int numPass = 0;  // alternates that pass the candidate test
  TumorNormalLod lod;
  AlleleEvidence tumor, normal;
  TandemRepeat repeat;
  bool debug = false;  // the threshold of the normal is told on standard error
};

// Adds the filters that the call fails, in this order; without a normal those of the normal never are.
//   germline_risk         NLOD < minNormalLod; < minDbsnpNormalLod at a known site that is not in the cosmic file
//   triallelic_site       numPass is not 1
//   t_lod_fstar           TLOD < minTumorLod
//   low_t_alt_frac        AF of the tumor < minTumorAlleleFrac
//   panel_of_normals      inPanel
//   alt_allele_in_normal  (reads of the alternate in the normal >= maxNormalAltCnt, or their fraction >=
//                         maxNormalAltFrac), and the sum of their base qualities > maxNormalAltQsum
//   str_contraction       filterStrContraction, and the event is a contraction
// True when the normal shows the alternate by count or fraction, its quality sum aside.
bool addFilters(const TNCall& call, const TNThresholds& thresholds, VariantContext& record);

// The records of one region, in order of position, each a position of its own: writes ECNT, MAX_ED and MIN_ED, adds the
// filters of the region, and PASS to a record that has none. `altInNormal` is by record what addFilters() returned. Of
// two records and more:
//   multi_event_alt_allele_in_normal  altInNormal, but without alt_allele_in_normal
//   homologous_mapping_event          neither of these two, and three records or more
//   clustered_events                  three records or more
// A distance is the difference of the positions of neighbours; of a single record it is ".".
void addRegionFilters(const std::vector<VariantContext*>& records, const std::vector<bool>& altInNormal);
