#include "algo/vcall/annotate/rank_sum_test.h"

#include <algorithm>
#include <cmath>

double rankSumZ(std::vector<int32_t>& values, std::vector<int32_t>& others) {
  if (values.empty() || others.empty()) return 0;
  std::sort(values.begin(), values.end());
  std::sort(others.begin(), others.end());

  int64_t ranked = 0, rank_sum2 = 0;  // twice the ranks of `values`
  double ties = 0;                    // of t^3 - t over groups of t equal values
  size_t i = 0, j = 0;
  while (i < values.size()) {
    const int32_t value = j < others.size() ? std::min(values[i], others[j]) : values[i];
    const size_t i0 = i, j0 = j;
    while (i < values.size() && values[i] == value) ++i;
    while (j < others.size() && others[j] == value) ++j;
    const int64_t mine = static_cast<int64_t>(i - i0), equal = mine + static_cast<int64_t>(j - j0);
    rank_sum2 += mine * (2 * ranked + equal + 1);
    ranked += equal;
    const double t = static_cast<double>(equal);
    ties += t * t * t - t;
  }
  while (j < others.size()) {  // these have no more ranks to give, but ties
    const size_t j0 = j;
    while (j < others.size() && others[j] == others[j0]) ++j;
    const double t = static_cast<double>(j - j0);
    ties += t * t * t - t;
  }

  const int64_t n1 = static_cast<int64_t>(values.size()), n2 = static_cast<int64_t>(others.size());
  const int64_t deviation2 = rank_sum2 - n1 * (n1 + 1) - n1 * n2;  // of U from its mean, doubled
  if (deviation2 == 0) return 0;
  const double n = static_cast<double>(n1 + n2), product = static_cast<double>(n1) * static_cast<double>(n2);
  const double variance = product / 12 * (n + 1 - ties / (n * (n - 1)));
  return 0.5 * static_cast<double>(deviation2) / std::sqrt(variance);
}
