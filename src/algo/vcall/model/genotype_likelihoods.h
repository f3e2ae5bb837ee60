// genotype_likelihoods.h - what the reads of one sample say of its genotype at one site.
#pragma once

#include <cstdint>
#include <vector>

struct GenotypeLikelihoods {
  uint32_t ploidy = 2;
  std::vector<double> gl;  // log10, per genotype in the order of GenotypeIndex; empty: no data
};
