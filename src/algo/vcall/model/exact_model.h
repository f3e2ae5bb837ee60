// exact_model.h - the exact distribution of the number of alternate chromosomes among the samples at a site, and from
// it the confidence in each alternate allele and in the site.
// Units    log10 throughout.
// Threads  the models have no state; growLogTables() must have made room for 2 * chromosomes.
// Source   Li, Bioinformatics 27 (2011), 2987: the recursion over samples of the allele count's likelihood.
#pragma once

#include <cstdint>
#include <vector>

#include "algo/vcall/model/genotype_likelihoods.h"

struct AlleleCountResult {
  double log10LikelihoodAC0 = 0, log10LikelihoodACgt0 = 0;  // no alternate chromosome; at least one
  double log10PriorAC0 = 0, log10PriorACgt0 = 0;
  double log10PosteriorAC0 = 0, log10PosteriorACgt0 = 0;
  std::vector<int32_t> mleCounts;  // per alternate allele, the most likely count
  std::vector<double>
      log10PNonRef;  // per alternate allele, posterior that it is absent: close to 0 means absent
};

// Of one alternate allele. `samples` are those with data; `log10Priors` holds numChr + 1 values, of which the model
// uses no more than it has informative chromosomes to count.
struct BiAllelicDiploidACModel {  // every sample of ploidy 2
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};
struct BiAllelicACModel {  // any ploidy, also mixed
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};

// Of any number of alternate alleles, which are taken as independent.
struct DiploidExactModel {
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};
struct GeneralExactModel {
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};
