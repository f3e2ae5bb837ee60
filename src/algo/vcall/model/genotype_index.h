// genotype_index.h - a cursor over all genotypes of a ploidy and a number of alleles, in VCF order: for two alleles
// 0/0, 0/1, 1/1, for three 0/0, 0/1, 1/1, 0/2, 1/2, 2/2.
// Threads  plain values.
// Source   the order of the GL field in the VCF 4.2 format document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct GenotypeIndex {
  int32_t index = -1;           // of the current genotype in a vector of likelihoods; -1 when exhausted
  uint32_t ploidy = 0;          // chromosomes
  std::vector<int32_t> counts;  // copies per allele, reference first; they sum to the ploidy

  // Stands on the first genotype, all reference; exhausted from the start for ploidy 0.
  GenotypeIndex(uint32_t ploidy, size_t alleles);

  bool exhausted() const { return index < 0; }
  void next();
  void set(size_t allele, int c);  // then recalc()
  void recalc();                   // index from counts

  // The number of genotypes; cut at 2^31 - 1.
  static size_t count(uint32_t ploidy, size_t alleles);
};
