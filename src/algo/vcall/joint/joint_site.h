// joint_site.h - one position of a joint run: what each input says of it, and the alleles that they share.
//
//   Event          one input's record, cut into REF and alternates
//   AlleleUnion    the alternates of all of them in one list, and for each Event which of the list its alleles are
//
// Coords   zero-based half open.
// Owns     an Event points into its line; the union owns the bases of what it had to put together.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "readdata/vcf/allele.h"
#include "readdata/vcf/vcf_line.h"

// An alternate of an input's record.
struct EventAllele {
  Allele allele;          // as written; symbolic ones as their code
  int32_t index = kDead;  // in the union: 0 the reference; -1 (kDead) for one that takes no part

  static constexpr int32_t kDead = -1;
};

struct Event {
  const VCFLine* line = nullptr;  // null: the input has nothing at the position
  const char* ref = nullptr;
  int32_t refLength = 0;
  bool starts = false;  // at the position; else it covers it
  std::vector<EventAllele> alts;
  int32_t nonRef = -1;  // place of <NON_REF> in `alts`, -1 without

  // Takes what `line` says, null for nothing, at `position`. Storage is used again. An ALT of "." has no alleles.
  void assign(const VCFLine* line, uint32_t position);
};

class AlleleUnion {
 public:
  // The alleles of `events` at a position whose reference bases are `ref`, at least as long as the longest REF that
  // starts here, and sets their indexes. <NON_REF> is never in the list; "*", of what is deleted by a record further up,
  // is its last entry.
  void build(std::vector<Event>& events, const char* ref, int32_t refLength);

  // Keeps the `limit` alternates that the samples' likelihoods speak for most, in their order; what is dropped is dead in
  // the events. Of equals the first in the list stay.
  void limitAlternates(std::vector<Event>& events, size_t limit);

  const Allele& ref() const { return ref_; }
  // Whole alleles, as long as REF makes them: no suffix. Valid until the next build().
  const std::vector<Allele>& alts() const { return alts_; }

 private:
  Allele ref_;
  std::vector<Allele> alts_;
  std::string scratch_;         // bases of alleles with a tail of REF
  std::vector<double> scores_;  // by allele, 0 the reference
};

// Adds to `scores`, by allele of the union, how much better (phred, zero or negative) each sample's best genotype with a
// listed alternate is than its homozygous reference.
void sumLikelihoods(const Event& event, std::vector<double>& scores);
