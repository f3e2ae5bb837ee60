// fragments.h - which pieces of which haplotype were sequenced, before any base is looked at. A plan of a
// million pairs takes little memory; reads are made from it one fragment at a time, in genome order.
// Coords   zero-based half open, on the haplotype unless the name says otherwise.
#pragma once

#include <cstdint>
#include <vector>

#include "genome.h"
#include "haplotype.h"
#include "options.h"

// The haplotypes of one sample in bases: by haplotype number, then by contig.
using HaplotypeSet = std::vector<std::vector<Haplotype>>;

enum class FragmentKind : uint8_t { kNormal, kChimera, kHalfMapped, kUnmapped };

// A stretch of haplotype; `reversed` when the fragment holds its reverse complement.
struct Piece {
  uint32_t contig = 0, start = 0, end = 0;
  bool reversed = false;
  uint32_t length() const { return end - start; }
};

// Where on the flow cell a cluster is. No two fragments of a sample share a place.
struct Cluster {
  uint16_t group = 0;  // read group, and so lane
  uint16_t tile = 0;
  uint32_t x = 0, y = 0;
};

struct Fragment {
  FragmentKind kind = FragmentKind::kNormal;
  uint8_t haplotype = 0;
  bool first_at_end = false;  // the pair's first read begins at the end of the fragment, not at its start
  bool lost_end = false;      // of a half-mapped pair: which end (1: the fragment's end) has no alignment
  bool qc_fail = false;
  bool is_copy = false;  // a duplicate of an earlier fragment
  uint8_t pieces = 1;    // 2 for a chimera
  Piece piece[2];
  Cluster cluster;
  uint64_t serial = 0;    // names the fragment, and keys what it draws
  uint64_t molecule = 0;  // the serial of what it is a copy of, or its own
  // No record of the fragment begins before this place in the reference; UINT32_MAX: no place at all.
  uint32_t first_contig = 0, first_place = 0;
};

struct FragmentCounts {
  uint64_t pairs = 0, pcr_copies = 0, optical_copies = 0, short_inserts = 0, chimeras = 0, split_chimeras = 0;
};

// All fragments of one sample, in the order of their first place. `sample` is its number.
std::vector<Fragment> planFragments(const SimulateOptions& options, const Genome& genome,
                                    const Sample& sample_alleles, size_t sample,
                                    const HaplotypeSet& haplotypes, FragmentCounts& counts);
