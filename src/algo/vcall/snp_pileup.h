// snp_pileup.h - the likelihoods of all genotypes at every position of a region, summed over the bases of the reads.
//
// A read counts inside its adapterFreeWindow(). With a pair table, the reads of a fragment that both cover a position
// count there as one observation of it. They are found by name and read group; supplementary alignments, and reads whose
// mate is not among the region's, count alone. A base without quality counts with the mapping quality of its read.
//
// The sums at a position are made in the order of the reads that cover it, the pair in the place of its later read: they
// do not depend, to the last bit, on where the region begins and ends.
//
// Coords   zero-based half open.
// Owns     its sums; memory grows with the longest region and the most reads, and is kept.
// Threads  one object per thread.
// Cost     linear in the aligned bases inside the region; nothing is allocated per read.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "algo/name_table.h"
#include "algo/vcall/read_window.h"
#include "algo/vcall/snp_lookup_table.h"
#include "readdata/bam/read.h"

class SNPPileup {
 public:
  // The table outlives the pileup. `pairs`: it has rows for pairs.
  SNPPileup(const SNPLookupTable& table, size_t samples, bool pairs);

  // Of the region [start, end); empties all sums.
  void reset(uint32_t start, uint32_t end);
  // The reads that overlap the region, in order; `sampleOf` is by read group, and every read has one. First
  // findOverlaps(), which without pairs has nothing to do, then addReads().
  void findOverlaps(const std::vector<Read*>& reads);
  void addReads(const std::vector<Read*>& reads, std::span<const int32_t> sampleOf);

  // stride() values of the table; all 0 without data.
  const double* likelihoods(size_t sample, uint32_t position) const {
    return sums_.data() + (sample * size() + (position - start_)) * table_.stride();
  }
  // Reads with a base there, of all samples, whatever the base and its quality; reads with a deletion there.
  uint32_t good(uint32_t position) const { return good_[position - start_]; }
  uint32_t bad(uint32_t position) const { return bad_[position - start_]; }

 private:
  struct Span {
    uint32_t start, end;
  };
  // A base of the earlier read of a pair over a position; `offset` -1: it has none there.
  using Offsets = std::vector<int32_t>;

  size_t size() const { return end_ - start_; }
  double* sums(size_t sample) { return sums_.data() + sample * size() * table_.stride(); }
  Span spanOf(const Read& read) const;
  void addSingle(Read& read, Span span, double* sums);
  void addBases(Read& read, uint32_t position, int32_t offset, uint32_t count, double* sums);
  void addPair(Read& earlier, Read& later, Span overlap, double* sums);
  void count(const Read& read, Span span);
  const double* rowOf(const Read& read, int32_t offset) const;

  const SNPLookupTable& table_;
  const size_t samples_;
  const bool pairs_;
  uint32_t start_ = 0, end_ = 0;
  std::vector<double> sums_;          // [sample][position][genotype]
  std::vector<uint32_t> good_, bad_;  // while reads are added: changes from position to position, modulo 2^32
  std::vector<int32_t> mates_;        // by read: its mate among the region's reads, -1 none
  NameTable names_;
  Offsets offsets_;
};
