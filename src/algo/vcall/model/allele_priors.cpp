#include "algo/vcall/model/allele_priors.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

std::vector<double> log10AllelePriors(double heterozygosity, int numChr) {
  std::vector<double> priors(size_t(numChr) + 1);
  double sum = 0;
  for (int i = 1; i <= numChr; ++i) {
    priors[size_t(i)] = std::log10(heterozygosity / i);
    sum += heterozygosity / i;
  }
  if (sum > 1.0) {
    fprintf(stderr, "The heterozygosity value is set too high, please reduce it to below %g\n",
            heterozygosity / sum);
    throw std::runtime_error("Invalid sum of priors");
  }
  priors[0] = std::log10(1 - sum);
  return priors;
}

const std::vector<double>& AllelePriors::getPriors(int numChr, bool isSNP) {
  auto& cache = isSNP ? snp_ : indel_;
  if (const auto found = cache.find(numChr); found != cache.end()) return found->second;
  if (cached_ >= kMaxCached) {
    snp_.clear();
    indel_.clear();
    cached_ = 0;
  }
  cached_ += size_t(numChr) + 1;
  const double heterozygosity = isSNP ? kSNPHeterozygosity : kIndelHeterozygosity;
  return cache.emplace(numChr, log10AllelePriors(heterozygosity, numChr)).first->second;
}
