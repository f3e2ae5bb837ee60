// activity_profile.h - what the aligned bases say of each position: likelihoods of 0, 1, ... copies of anything else than
// the reference, depth, and whether there is a reason to look closer.
//
// A read of at least minMapQual counts inside its adapterFreeWindow(). Each of its bases A, C, G or T of at least
// minBaseQual over such a base of the reference is an observation: for the reference when it is equal, else against it,
// with the error of its quality, which is taken as no better than that of the mapping. Against the reference, and a mark
// of their position, are also
// - bases beside an insertion, a deletion or a soft clip, whatever they are: the alignment is uncertain there;
// - deleted positions, at a quality of 30.
// A clip counts when it has usable bases, and does not lie behind the end of the fragment (adapter).
//
// The doubt beside indels and clips is a reason to look closer, but no evidence of another base: the likelihoods of
// reference confidence take these bases, too, for what they are.
//
// A position cannot speak for the reference more clearly than its depth, of at most 40, in matching bases of quality 30:
// where the reference is ahead of the best of the others by more, these likelihoods stand in place of the sums.
//
// All values are the same to the last bit whichever region was asked for around a position.
//
// Coords   zero-based half open; likelihoods are log10.
// Owns     its sums; memory grows with the longest region and is kept.
// Threads  one object per thread.
// Cost     linear in the aligned bases inside the region; nothing is allocated per read.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "algo/vcall/model/genotype_likelihoods.h"
#include "algo/vcall/reference_window.h"
#include "readdata/bam/read.h"

class ActivityProfile {
 public:
  // `confidence`: likelihoods() are asked for.
  ActivityProfile(size_t samples, uint32_t ploidy, uint32_t minBaseQual, uint32_t minMapQual,
                  bool confidence);

  // Walks the reads (those that overlap, in order, filtered by flag) over [start, end), which `reference` covers.
  // `sampleOf` is by read group.
  void build(const std::vector<Read*>& reads, std::span<const int32_t> sampleOf,
             const ReferenceWindow& reference, uint32_t start, uint32_t end);
  void clear(uint32_t start, uint32_t end);  // outside the targets: as if there were no reads

  // Of reference confidence: ploidy + 1 values, all 0 without data; those of the positions behind follow.
  const double* likelihoods(size_t sample, uint32_t position) const {
    return confidence_.data() + at(sample, position) * (ploidy_ + 1);
  }
  // Observations; those of the positions behind follow.
  const int32_t* depths(size_t sample, uint32_t position) const {
    return depth_.data() + at(sample, position);
  }
  int32_t depth(size_t sample, uint32_t position) const { return *depths(sample, position); }

  bool isMarked(uint32_t position) const { return marks_[position - start_]; }
  // Usable bases of a clip, over the reads of all samples that are clipped there; 0 without.
  double meanSoftClip(uint32_t position) const;
  // What decides on activity: less the best and rounded to 0.1, of activityPloidy(); empty without data.
  void activityLikelihoods(size_t sample, uint32_t position, GenotypeLikelihoods& likelihoods) const;
  uint32_t activityPloidy() const { return wide_ploidy_; }  // at least 2: of one copy, too, a part may differ

 private:
  struct Span;
  struct Clip {
    uint32_t reads = 0;
    uint64_t bases = 0;
  };

  size_t size() const { return end_ - start_; }
  size_t at(size_t sample, uint32_t position) const { return sample * size() + (position - start_); }
  void fillTables();
  void reset(const ReferenceWindow& reference, uint32_t start, uint32_t end);
  void addRead(Read& read, size_t sample);
  void addBases(const Read& read, Span window, uint32_t place, int32_t offset, uint32_t count, bool left_edge,
                bool right_edge, double* sums);
  void addMatches(double* cell, const uint8_t* quals, uint32_t count, uint8_t cap) const;
  void addEdge(const Read& read, uint32_t position, int32_t offset, double* sums);
  void addDeletion(Span window, int64_t start, int64_t end, int32_t* deleted);
  uint32_t usableBases(const Read& read, int32_t from, int32_t to) const;
  void addClip(uint32_t position, uint32_t bases);
  void finishSample(size_t sample);
  void takeConfidence(const double* row, const double* regained, int32_t depth, double* confidence) const;
  void limit(double* row, uint32_t ploidy, const double* standard, int32_t depth) const;
  uint8_t capOf(const Read& read) const;

  const size_t samples_;
  const uint32_t ploidy_, wide_ploidy_, min_base_qual_, min_map_qual_;
  const bool keeps_confidence_;
  const uint32_t stride_;  // of a row of sums: wide_ploidy_ + 1 likelihoods, the depth, and up to one 0
  std::vector<double> match_, differ_;  // by quality, rows to be added to the sums
  std::vector<double> regain_;          // match_ less differ_
  std::vector<double> standard_, haploid_standard_;

  uint32_t start_ = 0, end_ = 0;
  std::vector<char> reference_;     // of the region, 0 for what is not A, C, G or T
  std::vector<double> rows_;        // [sample][position]: the sums, then wide_ploidy_ + 1 likelihoods
  std::vector<double> regained_;    // [sample][position], as the sums: of edges that match, for confidence
  std::vector<double> confidence_;  // [sample][position]: ploidy_ + 1 likelihoods
  std::vector<int32_t> depth_;      // [sample][position]
  std::vector<int32_t> deleted_;    // [sample][position and one more]: changes from position to position
  std::vector<uint8_t> marks_;
  std::vector<Clip> clips_;
};
