// empirical_quality.h - the quality that counted errors speak for.
#pragma once

#include <cstdint>

#include "algo/preprocess/recal_table.h"

// The phred quality 0 to 60 with the highest posterior under a prior around `prior` and a binomial likelihood of the
// errors; the lowest on a tie.
int empiricalQuality(const RecalCounts& counts, double prior);
