// indel_candidates.h - which insertions and deletions the CIGARs of the reads speak for.
//
//   per sample   indels are counted at each place; those at a place where they reach no quarter of the reads are noise
//   soft clips   support the insertions whose bases they begin (clip on the right) or end (on the left) with
//   in the end   at least 5 insertions or 5 deletions at the place, and 5 reads for the allele
//
// The place of an indel is the base before it, once it is shifted to the left as far as the reference allows: one indel
// that aligners put at several places of a repeat is one candidate, written as `bcftools norm` would leave it. A read
// counts only where its aligned bases reach from that base over the indel's first place (a clip on the left: from the
// base behind it), so that a place knows its reads without a look at what lies further along the contig.
//
// Not candidates: indels that with their shift span more than kMaxIndelSpan bases, those within 80 bases of the ends of
// the reference window (which is the contig's end, for the rest of the window's margin is wider), and alleles with
// letters other than A, C, G, T. Of a place the alleles with the most reads are kept, kMaxAlleles at most.
//
// Coords   zero-based half open.
// Owns     the candidates hold copies of the bases.
// Threads  one object per thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "algo/vcall/given_alleles.h"
#include "algo/vcall/reference_window.h"
#include "readdata/bam/read.h"

class IndelCandidates {
 public:
  static constexpr uint32_t kMaxIndelSpan = 190;  // bases; less than the margin of the reference window
  static constexpr size_t kMaxAlleles = 6;        // alternates of one place

  // By position, in the form of given alleles: a place has one record, whose alternates are sorted by length, then text.
  using Map = std::map<uint32_t, std::vector<GivenAlleles::Record>>;

  explicit IndelCandidates(uint32_t min_base_qual, size_t max_alleles = kMaxAlleles)
      : min_base_qual_(min_base_qual), max_alleles_(std::min(max_alleles, kMaxAlleles)) {}

  // The candidates at positions [start, end). `samples` holds for each sample the reads that overlap [start, end + 1),
  // the one base more for reads that begin, clipped, behind an insertion at the last position. The window reaches 200
  // bases beyond the region, or to the contig's ends. The result does not depend on how a contig is cut into regions.
  Map find(const std::vector<std::vector<Read*>>& samples, const ReferenceWindow& window, uint32_t start,
           uint32_t end);

 private:
  uint32_t min_base_qual_;
  size_t max_alleles_;
};
