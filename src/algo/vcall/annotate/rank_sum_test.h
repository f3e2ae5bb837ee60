// rank_sum_test.h - does one list of values tend to be larger than another?
// Threads  pure functions.
#pragma once

#include <cstdint>
#include <vector>

// The Z value of the Mann-Whitney-Wilcoxon test by the normal approximation, positive when `values` tend to be larger
// than `others`: equal values share their mean rank, the variance is corrected for them, and there is no correction for
// continuity. 0 when all values are equal or a list is empty. Sorts the lists; O(n log n).
// Source   Mann and Whitney, Ann. Math. Statist. 18 (1947), 50; Lehmann, Nonparametrics (1975), 1.4 for ties.
double rankSumZ(std::vector<int32_t>& values, std::vector<int32_t>& others);
