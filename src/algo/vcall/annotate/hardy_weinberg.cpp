#include "algo/vcall/annotate/hardy_weinberg.h"

#include <algorithm>
#include <cassert>

double excessHetP(const GenotypeClassCounts& counts) {
  const int64_t observed = counts.het, samples = int64_t{counts.homRef} + observed + counts.homAlt;
  assert(counts.homRef >= 0 && counts.het >= 0 && counts.homAlt >= 0);
  if (samples == 0) return 1;
  const int64_t rare = 2 * int64_t{std::min(counts.homRef, counts.homAlt)} + observed;

  // The most likely number; as many rare copies as are not in heterozygotes make pairs.
  int64_t mode = rare * (2 * samples - rare) / (2 * samples);
  mode += (mode ^ rare) & 1;

  // All relative to the mode, until the terms vanish. No subtraction: small tails stay exact.
  double tail = 0, below = 0;
  const auto add = [&](int64_t het, double p) { (het >= observed ? tail : below) += p; };
  const int64_t mode_rare = (rare - mode) / 2, mode_common = samples - mode - mode_rare;
  add(mode, 1);

  double p = 1;
  double rare_homs = static_cast<double>(mode_rare), common_homs = static_cast<double>(mode_common);
  for (int64_t het = mode; het >= 2 && p > 0; het -= 2) {
    p *= static_cast<double>(het) * static_cast<double>(het - 1) / (4 * ++rare_homs * ++common_homs);
    add(het - 2, p);
  }
  p = 1;
  rare_homs = static_cast<double>(mode_rare), common_homs = static_cast<double>(mode_common);
  for (int64_t het = mode; het + 2 <= rare && p > 0; het += 2) {
    p *= 4 * rare_homs-- * common_homs-- / (static_cast<double>(het + 2) * static_cast<double>(het + 1));
    add(het + 2, p);
  }
  return tail / (tail + below);
}
