// genotype_from_rows.h - from the likelihoods of reads under alleles to those of each sample's genotypes.
// Units    log10.
// Threads  pure functions.
#pragma once

#include <span>
#include <vector>

#include "algo/vcall/model/genotype_likelihoods.h"
#include "algo/vcall/pairhmm/read_clip.h"

// What a read that cannot be has in a row. No value is lower: rows are finite, but for those that begin with NaN.
inline constexpr double kImpossibleRead = -2000;

// Brings every value up to kImpossibleRead. NaN stays.
void makeRowsFinite(std::span<double> values);

// Sets the likelihoods of `samples`, one entry for each sample of the output, from reads.size() rows of `alleles` values:
// the product over the reads of the mean over a genotype's chromosomes. Rounded to 0.1 below the best genotype; empty for
// a sample without rows. Rows that begin with NaN, and reads of no sample, are left out. The others must be finite.
void genotypeLikelihoods(std::span<const ReadClip> reads, const double* rows, size_t alleles, uint32_t ploidy,
                         std::span<GenotypeLikelihoods> samples);
