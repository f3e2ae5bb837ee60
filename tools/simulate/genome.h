// genome.h - a made-up reference genome with the features that trouble real ones.
// Coords   zero-based half open.
// Threads  constant once made.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "options.h"

struct Span {
  uint32_t start = 0, end = 0;
};

// A stretch that occurs a second time, with few differences: an aligner cannot tell the copies apart.
struct RepeatCopy {
  Span here;
  uint32_t other_contig = 0;
  uint32_t other_start = 0;
};

struct GenomeContig {
  std::string name;
  std::string bases;                // upper case, N where nothing is known
  std::vector<Span> masked;         // written in lower case; sorted, disjoint
  std::vector<RepeatCopy> repeats;  // sorted by start, disjoint
  uint32_t known_bases = 0;         // other than N

  uint32_t length() const { return static_cast<uint32_t>(bases.size()); }
  // The repeat that holds all of [start, end), or null.
  const RepeatCopy* repeatAround(uint32_t start, uint32_t end) const;
};

struct Genome {
  std::vector<GenomeContig> contigs;
  uint64_t homopolymers = 0, tandem_repeats = 0, repeat_pairs = 0;  // put in on purpose

  uint64_t length() const;
};

// Homopolymers, short tandem repeats, stretches of N at both ends and inside, soft-masked stretches, GC
// content that changes along a contig, and pairs of near-identical stretches within and between contigs.
Genome makeGenome(uint64_t seed, const std::vector<ContigPlan>& plans);
