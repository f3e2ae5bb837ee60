// genotype_assignment.h - from likelihoods and reads to GT, PL, GQ, AD, DP and SB of each sample.
// Threads  pure functions, but for Read::getBases().
#pragma once

#include <span>
#include <string>
#include <vector>

#include "algo/vcall/model/site_context.h"
#include "readdata/vcf/variant_context.h"

// How far the best allele of a read must be ahead of the second to be its allele, log10.
inline constexpr double kInformativeMargin = 0.2;

// The evidence of the site's pileup: every read over the position. `sampleOf` is by read group.
void collectPileup(const Site& site, std::span<const int32_t> sampleOf, std::vector<SiteRead>& reads);
// The evidence of the site's rows; rows that begin with NaN are left out. The allele is the best of those kept, when it
// is ahead of the second by the margin.
void collectRows(const Site& site, std::vector<SiteRead>& reads);

struct GQStatistics {
  double mean, stddev;  // NaN with no value, with fewer than two
};

// Writes the samples' columns to `record`, and sets `calls`. Alleles count over the kept ones only.
GQStatistics assignGenotypes(const Site& site, std::span<const SiteRead> rows,
                             std::span<const SiteRead> pileup, const std::vector<std::string>& samples,
                             bool gvcf, VariantContext& record, std::vector<GenotypeCall>& calls);
