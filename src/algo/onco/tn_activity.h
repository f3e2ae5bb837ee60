// tn_activity.h - where the tumor's reads have something that the reference and the normal lack: per position the log odds
// of one kind of alternate at its own fraction, from the bases as they are aligned.
//
// A read of at least minMapQual that is no supplementary alignment counts inside its adapterFreeWindow(). Kinds of
// alternates are the four bases, and gaps: the aligned bases beside an insertion, a deletion or a soft clip that is no
// adapter. A base has the error of its quality, with the cap that the sample's likelihoods have. What matches the reference
// is counted whatever its quality, and taken as sure: for where to look that is enough, and it spares a look at each base.
//
// Coords   zero-based half open; log odds are log10.
// Owns     its counts; memory grows with the longest window and is kept.
// Threads  one object per thread.
// Cost     linear in the aligned bases; results do not depend on the order of reads.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "algo/onco/locus_reads.h"
#include "algo/vcall/debug_positions.h"
#include "algo/vcall/reference_window.h"

class TNActivity {
 public:
  struct Limits {
    uint32_t minBaseQual = 10, minMapQual = 20;
    double minTumorLod = 4.0;
    bool checksNormal = true;
    double minNormalLod = 0.5;  // log10 odds of no alternate against one of two chromosomes
    int maxNormalAlt = 10;      // reads of the normal with the alternate
    // By sample, of a base's quality; 0: that of the read's mapping.
    std::array<uint8_t, 2> mapQualCap = {60, 0};
  };

  TNActivity(const Limits& limits, const DebugPositions& debug);

  // Walks the reads (those that overlap, filtered by flag) over [start, end), which `reference` covers. `sampleOf` is by
  // read group.
  void build(const std::vector<Read*>& reads, std::span<const int32_t> sampleOf,
             const ReferenceWindow& reference, uint32_t start, uint32_t end);
  void clear(uint32_t start, uint32_t end);  // outside the targets: as if there were no reads

  // Appends the active positions of the window, ascending.
  void findActive(const char* contig, std::vector<uint32_t>& active);

 private:
  enum Kind : uint32_t { kGap = 4, kKinds = 5 };

  // A base against the reference: position, sample, kind and quality in one number, which sorts in that order.
  using Observation = uint64_t;
  static Observation pack(uint32_t position, int32_t sample, uint32_t kind, uint32_t quality) {
    return uint64_t(position) << 32 | uint64_t(sample) << 16 | kind << 8 | quality;
  }
  static uint32_t positionOf(Observation seen) { return uint32_t(seen >> 32); }

  // Of one sample at one position.
  struct Counts {
    int32_t depth = 0, alts = 0;                          // all kinds
    std::array<std::span<const Observation>, kKinds> of;  // by kind
    int32_t refs() const { return depth > alts ? depth - alts : 0; }
  };

  void addRead(Read& read, int32_t sample);
  void addBlock(const Read& read, int32_t sample, int64_t from, int64_t to, int32_t offset);
  void observe(const Read& read, int32_t sample, int64_t position, int32_t offset, uint32_t kind);
  void addDepth(int32_t sample, int64_t from, int64_t to);
  // Of the reads of a sample, log10; those of the reference are certain of it.
  struct Likelihoods {
    double alternate = 0, reference = 0;
    double lod() const { return alternate - reference; }
  };
  bool isActive(const Counts* counts, const char* contig, uint32_t position) const;
  bool passesNormal(const Counts& normal, uint32_t kind, const char* contig, uint32_t position) const;
  Likelihoods likelihoodsOf(const Counts& counts, uint32_t kind, double fraction) const;

  const Limits limits_;
  const DebugPositions& debug_;
  // By quality, of a base that shows the alternate.
  struct BaseOdds {
    double odds;       // how much likelier it is with the alternate than with the reference
    double reference;  // log10 of its likelihood with the reference
  };
  std::array<BaseOdds, 256> odds_;

  const ReferenceWindow* reference_ = nullptr;
  uint32_t start_ = 0, end_ = 0;
  std::array<std::vector<int32_t>, 2> depth_changes_;  // by sample, from position to position
  std::vector<Observation> seen_;
};
