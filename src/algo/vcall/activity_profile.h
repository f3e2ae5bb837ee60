// activity_profile.h - what the aligned bases say of each position: likelihoods of 0, 1, ... copies of anything else than
// the reference, depth, and whether there is a reason to look closer.
// Coords   zero-based half open; likelihoods are log10.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "algo/vcall/reference_window.h"
#include "readdata/bam/read.h"

class ActivityProfile {
 public:
  ActivityProfile(size_t samples, uint32_t ploidy, uint32_t minBaseQual, uint32_t minMapQual);

  // Walks the reads (sorted, filtered by flag) over [start, end). `sampleOf` is by read group.
  void build(const std::vector<Read*>& reads, std::span<const int32_t> sampleOf,
             const ReferenceWindow& reference, uint32_t start, uint32_t end);

  // ploidy + 1 values; the depth without the mark.
  const double* likelihoods(size_t sample, uint32_t position) const;
  int32_t depth(size_t sample, uint32_t position) const;
  bool isMarked(uint32_t position) const;        // a mismatch, or a base at an indel's or a clip's edge
  double meanSoftClip(uint32_t position) const;  // bases, over the reads that are clipped there; 0 without
  void clear(uint32_t start, uint32_t end);      // outside the targets: depth 0, no mark

 private:
  size_t samples_;
  uint32_t ploidy_, min_base_qual_, min_map_qual_;
};
