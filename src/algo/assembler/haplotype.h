// haplotype.h - a candidate sequence of a region and the differences that it has from the reference.
// Coords   zero-based half open on the contig; offsets into the reference of the region.
// Owns     its strings.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "readdata/bam/bam_record.h"
#include "readdata/interval/interval.h"

// One difference. Insertions and deletions have the base before them in front of both sequences.
struct HaplotypeEvent {
  enum Type : uint8_t { kSNP, kInsertion, kDeletion };

  uint32_t position = 0;
  std::string ref, alt;
  Type type = kSNP;
  bool operator==(const HaplotypeEvent&) const = default;
};

// The events of a haplotype by position. An insertion or deletion whose base before it is a SNP stands as one event of
// both.
class EventMap : public std::map<uint32_t, HaplotypeEvent> {
 public:
  // Walks the cigar of `bases` against `reference`, which begins at `referenceStart` of the contig; the haplotype begins
  // at `offset` in it. An insertion or deletion with nothing in front of it in the reference is left out.
  void build(std::string_view bases, const Cigar& cigar, std::string_view reference, uint32_t referenceStart,
             uint32_t offset);
};

struct Haplotype {
  std::string bases;
  bool isRef = false;
  Interval locus;              // what it stands for
  Cigar cigar;                 // against the reference
  double score = 0;            // log10, of the path in the graph
  int32_t alignmentStart = 0;  // offset of the first base in the reference
  int32_t kmerSize = 0;        // of the graph it came from
  EventMap eventMap;

  std::string text() const;  // for debug output
};
