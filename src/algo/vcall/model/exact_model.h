// exact_model.h - the exact distribution of the number of alternate chromosomes among the samples at a site, and from
// it the confidence in each alternate allele and in the site.
// Units    log10 throughout.
// Threads  the models have no state. growLogTables(chromosomes of all samples + 1) comes before; tables that are too
//          small end in an assertion.
// Cost     samples times the alternate chromosomes that are likely present; not the square of the samples.
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

// Of one alternate allele. `samples` are those with data, and one whose likelihoods sum to -0.1 or more is left out of
// the count; `log10Priors` holds the priors of 0..chromosomes copies. The pairs of likelihoods and of posteriors come
// normalised, so that each sums to 1.
struct BiAllelicDiploidACModel {  // every sample of ploidy 2
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};
struct BiAllelicACModel {  // any ploidy, also mixed
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};

// Of one or more alternate alleles, which are taken as independent: each has a model of its own with the other alleles
// as reference, and the n-th likely of them needs the n-th power of the prior. The scalars are those of the site, where
// all alternates are one.
struct DiploidExactModel {
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};
struct GeneralExactModel {
  static void compute(const std::vector<const GenotypeLikelihoods*>& samples, int alts,
                      const std::vector<double>& log10Priors, AlleleCountResult& result);
};
