// empirical_quality.h - the quality that counted errors speak for, by themselves and under a prior.
#pragma once

#include "algo/preprocess/recal_table.h"

// The phred quality 0 to 60 with the highest posterior under a prior around `prior` and a binomial likelihood of the
// errors (one more error and two more trials than counted); the lowest on a tie. `prior` is a phred quality.
int empiricalQuality(const RecalCounts& counts, double prior);

// Of a read group: around the quality that its reported ones promise. Of a row: around the read group's. Of a cell of
// a row: around the row's.
inline int empiricalQuality(const RecalSum& sum) {
  return empiricalQuality(sum.counts, sum.reported);
}

// The quality of the error rate as it was counted, with one more error and two more trials: what tables and plots show.
double observedQuality(const RecalCounts& counts);
