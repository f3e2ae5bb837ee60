// hardy_weinberg.h - are there more heterozygotes than random mating explains?
// Threads  pure functions.
#pragma once

#include <cstdint>

// The diploid samples at a site by genotype class.
struct GenotypeClassCounts {
  int32_t homRef, het, homAlt;
};

// The probability of at least as many heterozygotes, given the samples and the copies of each allele. 1 without
// samples; 0 only when it is too small for a double.
// Source   Wigginton, Cutler and Abecasis, Am. J. Hum. Genet. 76 (2005), 887: the exact test, by recursion from the
//          most likely number of heterozygotes outwards.
double excessHetP(const GenotypeClassCounts& counts);
