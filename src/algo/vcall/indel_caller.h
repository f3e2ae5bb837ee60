// indel_caller.h - what the reads over a position say of candidate indels there.
//
//   haplotypes    the reference 200 bases to each side of the position, with each allele in turn
//   rows          PairHMM: each read, with 3 bases of a soft clip at most, under each haplotype, cut to the read's span
//                 and a margin of 3 bases and the longest deletion: that far aside lies a read without the gap
//   likelihoods   of each sample's genotypes, from its rows
//
// Coords   zero-based half open; likelihoods are log10.
// Owns     alleles, clips and rows of the last site: a Site made by prepare() is valid until the next call.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "algo/vcall/given_alleles.h"
#include "algo/vcall/model/site_context.h"
#include "algo/vcall/pairhmm/pair_hmm.h"
#include "algo/vcall/reference_window.h"

class IndelCaller {
 public:
  IndelCaller(uint32_t ploidy, uint32_t min_base_qual, size_t samples);

  // Makes the site of `record`, whose REF is the reference at `position`: alleles, likelihoods and rows. `reads` overlap
  // the position or begin right behind it; they become the site's pileup. `sample_of_group` is by Read::read_group.
  // False when an allele reaches beyond what is known of the reference, or when there is no alternate.
  // Reads with hundreds of inserted bases beside the position are left out: their rows would take memory without bound.
  // A sample without usable reads has an empty likelihood vector. Alternates beyond maxAlternates() are left out.
  bool prepare(uint32_t position, const GivenAlleles::Record& record, const ReferenceWindow& window,
               const std::vector<Read*>& reads, std::span<const int32_t> sample_of_group, Site& site);

  static constexpr size_t kMaxGenotypes = 1000, kMaxAlternates = 50;

  // How many alternates a site may have, so that there are no more than kMaxGenotypes genotypes; at least 1, and
  // kMaxAlternates at most.
  static size_t maxAlternates(uint32_t ploidy);

 private:
  // The steps of prepare().
  bool setHaplotypes(uint32_t position, const GivenAlleles::Record& record, const ReferenceWindow& window);
  void clipReads(uint32_t position, const std::vector<Read*>& reads,
                 std::span<const int32_t> sample_of_group);
  void evaluate();

  uint32_t ploidy_, min_base_qual_;
  size_t samples_, max_alternates_;
  PairHMM hmm_;
  GivenAlleles::Record record_;
  uint32_t low_ = 0, high_ = 0;    // what the haplotypes span of the reference
  uint32_t longest_deletion_ = 0;  // bases
  std::vector<std::string> haplotypes_;
  std::vector<ReadClip> clips_;
  std::vector<double> values_;
  ReadLikelihoodRows rows_;
};
