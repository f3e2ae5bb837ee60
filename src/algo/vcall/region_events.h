// region_events.h - from the haplotypes of a region to sites: alleles, the haplotypes that carry them, and the likelihoods
// of reads under them.
// Coords   zero-based half open.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/model/site_context.h"
#include "algo/vcall/reference_window.h"

// A position with its alleles over a common span of the reference.
struct EventSite {
  uint32_t position = 0;
  std::string ref;
  std::vector<std::string> alts;              // distinct, in order of the haplotypes that bring them
  std::vector<std::vector<size_t>> carriers;  // per allele, reference first: indexes of haplotypes

  uint32_t end() const { return position + static_cast<uint32_t>(ref.size()); }
  bool isSNP() const;
};

// The sites that begin in [start, end), by position. With `given` (not null) those of the file, its alleles alone.
std::vector<EventSite> collectEvents(const std::vector<std::unique_ptr<Haplotype>>& haplotypes,
                                     const ReferenceWindow& reference, uint32_t start, uint32_t end,
                                     const GivenAlleles* given);

// The likelihood of each read under each allele: the best of the allele's haplotypes. A row is NaN when the read's is, or
// when the read does not reach over the site with a margin of 2 bases. `nonRef` adds a column for what is neither.
struct AlleleRows {
  std::vector<double> values;
  size_t alleles = 0;
};
void alleleLikelihoods(const EventSite& site, const std::vector<ReadClip>& reads,
                       const std::vector<double>& haplotypeRows, size_t haplotypes, bool nonRef,
                       AlleleRows& rows);

// Keeps the reference and the `limit` alternates that the reads support best.
void limitAlternates(EventSite& site, const AlleleRows& rows, size_t limit);

// Per sample, over all genotypes of the alleles, rounded to 0.1 below the best; a sample without rows has none.
void genotypeLikelihoods(const std::vector<ReadClip>& reads, const double* rows, size_t alleles,
                         uint32_t ploidy, std::vector<GenotypeLikelihoods>& samples);
