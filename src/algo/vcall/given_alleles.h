// given_alleles.h - the alleles that a caller is told to evaluate.
// Coords   zero-based half open.
// Owns     copies of the bases: they stay valid when the cache moves on.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "readdata/vcf/vcf_cache.h"

struct GivenAlleles {
  struct Record {
    std::string ref;                // upper case, common suffix cut, at least one base
    std::vector<std::string> alts;  // upper case; letters A, C, G, T, N only; distinct

    bool operator==(const Record&) const = default;
  };
  // By position, in the order of the file; a record that repeats the one before it is left out. SNPs: the reference and
  // all alternates are one base.
  std::map<uint32_t, std::vector<Record>> snps, others;

  bool empty() const { return snps.empty() && others.empty(); }
  void clear();
  // Takes the records with FILTER "." or "PASS" that start in [start, end). The cache stands on the contig.
  void load(VCFCache& cache, uint32_t start, uint32_t end);
};
