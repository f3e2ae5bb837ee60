#include "algo/vcall/model/genotype_index.h"

#include <algorithm>
#include <cassert>
#include <limits>

namespace {
constexpr uint64_t kMaxIndex = std::numeric_limits<int32_t>::max();

// "n choose k", cut at kMaxIndex; n below 2^33.
uint64_t choose(uint64_t n, uint64_t k) {
  k = std::min(k, n - k);
  uint64_t result = 1;
  for (uint64_t i = 1; i <= k && result < kMaxIndex; ++i) result = result * (n - k + i) / i;
  return std::min(result, kMaxIndex);
}
}  // namespace

GenotypeIndex::GenotypeIndex(uint32_t ploidy, size_t alleles) : ploidy(ploidy), counts(alleles) {
  if (ploidy == 0 || alleles == 0) return;
  assert(ploidy <= kMaxIndex);
  counts[0] = int32_t(ploidy);
  index = 0;
}

void GenotypeIndex::next() {
  if (index < 0) return;
  size_t from = 0;
  while (from < counts.size() && counts[from] == 0) ++from;
  if (from + 1 >= counts.size()) {
    counts.back() = 0;
    index = -1;
    return;
  }
  // All but one of the chromosomes of the lowest allele fall back to the reference, that one moves up.
  int32_t back = counts[from] - 1;
  counts[from] = 0;
  counts[0] = back;
  ++counts[from + 1];
  ++index;
}

void GenotypeIndex::set(size_t allele, int c) {
  assert(c >= 0);
  counts[allele] = c;
}

void GenotypeIndex::recalc() {
  // The m-th lowest chromosome, of allele a, stands behind the C(a + m - 1, m) choices of m lower ones.
  uint64_t sum = 0, m = 0;
  for (size_t allele = 0; allele < counts.size(); ++allele)
    for (int32_t c = 0; c < counts[allele]; ++c) {
      ++m;
      if (allele > 0) sum = std::min(sum + choose(allele + m - 1, m), kMaxIndex + 1);
    }
  index = sum > kMaxIndex ? -1 : int32_t(sum);
  assert(index >= 0);
}

size_t GenotypeIndex::count(uint32_t ploidy, size_t alleles) {
  if (alleles == 0) return 0;
  return choose(uint64_t(ploidy) + alleles - 1, ploidy);
}
