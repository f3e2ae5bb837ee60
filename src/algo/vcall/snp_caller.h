// snp_caller.h - which alternate bases a pileup speaks for, and the likelihoods of the genotypes over them.
// Units    log10, less the sample's best, rounded to 0.1.
// Owns     nothing of a Site: alleles point to constant text.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "algo/vcall/model/site_context.h"
#include "algo/vcall/snp_lookup_table.h"
#include "algo/vcall/snp_pileup.h"

// A few bases, in the order in which they were added.
struct BaseList {
  uint8_t count = 0;
  uint8_t bases[4]{};  // indexes in "ACGT"

  bool has(uint8_t base) const;
  void add(uint8_t base);  // once
};

class SNPCaller {
 public:
  SNPCaller(const SNPLookupTable& table, size_t samples) : table_(table), samples_(samples) {}

  // Whether there are bases at the position, and deletions in no more than one of 20 reads.
  static bool isCovered(const SNPPileup& pileup, uint32_t position);

  // The bases other than `ref` of each sample's best genotype; of equal ones that of the reference alone, then the first.
  BaseList alternates(const SNPPileup& pileup, uint32_t position, uint8_t ref) const;
  // The base other than `ref` that is the likeliest to be there.
  uint8_t bestOther(const SNPPileup& pileup, uint32_t position, uint8_t ref) const;

  // Fills position, alleles and likelihoods; a sample without data gets none. With `given` a sample's best is that of
  // these alleles, else that of all four.
  void prepare(const SNPPileup& pileup, uint32_t position, uint8_t ref, const BaseList& alts, bool given,
               Site& site);

 private:
  struct Best {
    uint32_t genotype;
    double likelihood;
  };
  // False when the sample has no data.
  bool findBest(const double* likelihoods, uint8_t ref, Best& best) const;
  // For each genotype over the alleles, its index over "ACGT".
  const std::vector<uint32_t>& genotypesOver(uint8_t ref, const BaseList& alts);

  const SNPLookupTable& table_;
  const size_t samples_;
  std::unordered_map<uint32_t, std::vector<uint32_t>> genotypes_;  // by the alleles
};
