// allele_priors.h - prior probabilities of the number of alternate chromosomes among all chromosomes at a site.
// Threads  one object per thread: it fills itself on first use.
// Source   the neutral site frequency spectrum, theta / i for i copies.
#pragma once

#include <unordered_map>
#include <vector>

// log10 priors of 0..numChr copies. Tells on standard error and throws std::runtime_error "Invalid sum of priors" when
// heterozygosity and chromosomes leave nothing for 0 copies.
std::vector<double> log10AllelePriors(double heterozygosity, int numChr);

class AllelePriors {
 public:
  static constexpr double kSNPHeterozygosity = 0.001, kIndelHeterozygosity = 0.000125;

  // log10AllelePriors(); the reference stays valid.
  const std::vector<double>& getPriors(int numChr, bool isSNP);

 private:
  std::unordered_map<int, std::vector<double>> snp_, indel_;
};
