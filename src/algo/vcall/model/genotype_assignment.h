// genotype_assignment.h - from likelihoods and reads to GT, PL, GQ, AD, DP and SB of each sample.
// Units    likelihoods log10; PL and GQ phred. A likelihood of NaN in front counts as no data.
// Threads  pure functions, but for Read::getBases().
// Cost     linear in reads and in genotypes.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "algo/vcall/model/site_context.h"
#include "readdata/vcf/variant_context.h"

// How far the best allele of a read must be ahead of the second to be its allele, log10.
inline constexpr double kInformativeMargin = 0.2;
// A sample of a ploidy other than 2 has no PL where there are more genotypes.
inline constexpr size_t kMaxWrittenGenotypes = 100;

// The evidence of the site's pileup, one for each of its reads: the allele is the one that the read's base stands for,
// of the reference and of the alternates that replace a single base and are kept. `sampleOf` is by read group; a read of
// another group gets sample -1.
void collectPileup(const Site& site, std::span<const int32_t> sampleOf, std::vector<SiteRead>& reads);
// The evidence of the site's rows; rows that begin with NaN are left out. The allele is the best of those kept, when it
// is ahead of the second by the margin.
void collectRows(const Site& site, std::vector<SiteRead>& reads);

struct GQStatistics {
  double mean, stddev;  // NaN with no value, with fewer than two
};

// Writes the samples' columns to `record`, and sets `calls`. `rows` and `pileup` are what the functions above made of
// the site. Alleles in GT and AD are numbered over the kept ones only.
//   GT   no call without data, or when all genotypes are equal and there is an alternate
//   PL   with an alternate, at most 100 genotypes or a diploid sample with reads; GQ the second smallest, at most 99
//   AD   reads by allele; DP reads with A, C, G or T at the position, and no fewer than AD sums to
//   SB   mode gvcf: forward and reverse reads of the reference, then of all alternates
//   PGT  where it stands already, "1|1" for a diploid sample that is homozygous for an alternate
GQStatistics assignGenotypes(const Site& site, std::span<const SiteRead> rows,
                             std::span<const SiteRead> pileup, const std::vector<std::string>& samples,
                             bool gvcf, VariantContext& record, std::vector<GenotypeCall>& calls);
