// allele_priors.h - prior probabilities of the number of alternate chromosomes among all chromosomes at a site.
// Threads  one object per thread: it fills itself on first use.
// Source   the neutral site frequency spectrum, theta / i for i copies.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

// log10 priors of 0..numChr copies. Tells on standard error and throws std::runtime_error "Invalid sum of priors" when
// heterozygosity and chromosomes leave nothing for 0 copies.
std::vector<double> log10AllelePriors(double heterozygosity, int numChr);

class AllelePriors {
 public:
  static constexpr double kSNPHeterozygosity = 0.001, kIndelHeterozygosity = 0.000125;

  // log10AllelePriors(); the reference is valid until the next call. The cache is emptied at kMaxCached values: of a
  // large cohort each site may have another number of chromosomes.
  const std::vector<double>& getPriors(int numChr, bool isSNP);

 private:
  static constexpr size_t kMaxCached = size_t(1) << 22;

  std::unordered_map<int, std::vector<double>> snp_, indel_;
  size_t cached_ = 0;  // values in both
};
