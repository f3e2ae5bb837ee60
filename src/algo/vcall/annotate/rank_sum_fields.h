// rank_sum_fields.h - what the reads of the alternates are compared by with those of the reference.
// Threads  pure functions.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "algo/vcall/annotate/annotator.h"

// One value of a read, of its base at the site or of the whole of it.
struct RankSumField {
  AnnotationField field;
  const char* name;
  int32_t (*value)(const SiteRead&);
};
extern const std::array<RankSumField, 5> kRankSumFields;

// Whether a read is one to compare: with a base at the site that says something, and a mapping quality.
bool isComparable(const SiteRead& read);
// Distance of the base at the site from the nearer end of the read, soft clips counted.
int32_t readEndDistance(const SiteRead& read);
// Mean phred of the neighbours of the base at the site, up to five on either side; NaN when there are none.
// Source   Altshuler et al., Nature 407 (2000), 513, the neighbourhood quality standard.
double neighbourQuality(const std::vector<const SiteRead*>& reads);
