// haplotype.h - a candidate sequence of a region and the differences that it has from the reference.
// Coords   zero-based half open on the contig; offsets into the reference of the region.
// Owns     its strings.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "readdata/bam/bam_record.h"
#include "readdata/interval/interval.h"

// One difference: in place of the reference bases `ref` at `position` the haplotype has `alt`. Insertions and
// deletions have the reference base before them in front of both.
struct HaplotypeEvent {
  enum Type : uint8_t {
    kSNP,
    kInsertion,
    kDeletion,
    kReplacement,  // an insertion next to a deletion of the same length
  };

  uint32_t position = 0;
  std::string ref, alt;
  Type type = kSNP;
  bool operator==(const HaplotypeEvent&) const = default;
};

// The events of a haplotype by position. Neighbouring events are never joined while their positions differ: a
// SNP in front of the base before an indel, or on the first base behind it, has a record of its own. What
// falls on one position is one event, the only form in which all of it can be an allele of that position:
// - an indel whose base before it is a SNP has the base of the haplotype in front of `alt`
//   (reference ACC, A changed to G and CC deleted: ACC -> G), and is typed as the indel;
// - an insertion next to a deletion has the bases of both, and is typed by which is longer.
// Put into the reference, from the last to the first, the events give the bases of the haplotype.
class EventMap : public std::map<uint32_t, HaplotypeEvent> {
 public:
  // Takes the place of what was there: the events that walking the cigar of `bases` against `reference`
  // meets. The reference begins at `referenceStart` of the contig, the first base of the haplotype at
  // `offset` in it. An indel at the very start of the reference, with no base in front of it, is left out.
  // Bases are compared as bytes. Throws std::runtime_error when the cigar leads out of one of the sequences.
  void build(std::string_view bases, const Cigar& cigar, std::string_view reference, uint32_t referenceStart,
             uint32_t offset);

 private:
  void addIndel(uint32_t position, std::string_view ref, std::string_view alt);
};

// How the bases lie on the reference, and what differs then.
struct HaplotypeAlignment {
  Cigar cigar;
  EventMap eventMap;
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
  std::optional<HaplotypeAlignment> other;  // another way to align it, if there was a choice

  // For debug output. The locus is one-based inclusive, isRef 'T' or 'F', the score in thousandths.
  std::string text() const;
};

// Of a haplotype with two alignments the one stays with fewer events of its own: an event that another haplotype surely
// has came into being once for both. Of equally many the one with fewer events, then with fewer gaps: genomes have several
// substitutions for each insertion or deletion.
void chooseAlignments(const std::vector<std::unique_ptr<Haplotype>>& haplotypes);
