// site_context.h - a site as a caller hands it over, and as annotators see it.
// Coords   zero-based.
// Owns     the vectors of a Site; alleles, reads and likelihood rows belong to the caller.
// Threads  one object per thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "algo/vcall/model/exact_model.h"
#include "algo/vcall/model/genotype_likelihoods.h"
#include "algo/vcall/pairhmm/read_clip.h"
#include "readdata/bam/read.h"
#include "readdata/vcf/allele.h"

// The likelihood of each read under each allele, as PairHMM makes them.
struct ReadLikelihoodRows {
  std::span<const ReadClip> reads;
  const double* values = nullptr;  // log10; reads.size() rows of `alleles`; NaN in front: the read is out
  size_t alleles = 0;              // the reference and every alternate, dropped ones too
};

// What is known of a sample's reads at a site when they are not at hand.
struct SampleCounts {
  std::vector<int32_t> ad;  // by allele, the reference and every alternate, dropped ones too; empty: unknown
  int32_t depth = -1;       // -1: unknown
};

// What a caller knows of a site: candidates, likelihoods and the reads behind them.
struct Site {
  uint32_t position = 0;
  Allele ref;
  std::vector<Allele> alts;                      // length 0: dropped
  std::vector<GenotypeLikelihoods> likelihoods;  // per sample of the output, over ref and all alts
  const std::vector<Read*>* pileup = nullptr;    // reads that overlap the position; null: the caller has none
  const ReadLikelihoodRows* rows = nullptr;      // null: the alleles of reads follow from their bases
  const std::vector<SampleCounts>* counts = nullptr;  // per sample, of a caller that has no reads
  bool isSNP = true;
  bool trims = true;  // the record loses what all its alleles end in
};

// What one read says of a site.
struct SiteRead {
  Read* read = nullptr;
  int32_t sample = 0;
  int32_t offset = -1;  // in the read, of its base at the position; -1: none there
  char base = 0;        // at `offset`, else 0
  uint8_t qual = 0;     // of that base, phred
  int32_t allele = -1;  // which it supports: 0 the reference, i + 1 alternate i; -1 none
};

// The genotype given to one sample.
struct GenotypeCall {
  std::vector<int32_t> counts;   // copies per allele, ref and all alts; empty: no call
  int32_t gq = -1, depth = -1;   // phred, reads; -1: not written
  std::vector<int32_t> adDepth;  // reads per allele, ref and all alts; empty: not written
};

// A site with its genotypes.
struct SiteContext {
  const Site* site = nullptr;
  const AlleleCountResult* model = nullptr;
  double qual = 0;                      // phred
  std::span<const GenotypeCall> calls;  // per sample
  std::span<const SiteRead> reads;      // the evidence: one per row when the site has rows, else the pileup
  std::span<const SiteRead> pileup;     // one per pileup read, empty without
  double gqMean = 0, gqStddev = 0;      // NaN when there are too few
  bool gvcf = false;

  bool hasRows() const { return site->rows != nullptr; }
};
