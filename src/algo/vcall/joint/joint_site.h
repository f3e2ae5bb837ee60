// joint_site.h - one position of a joint run: what each input says of it, and the alleles that they share.
//
//   RecordCursor   which of an input's records applies
//   Event          one input's record, cut into REF and alternates
//   AlleleUnion    the alternates of all of them in one list, and for each Event which of the list its alleles are
//
// Coords   zero-based half open.
// Owns     an Event points into its line; the union owns the bases of what it had to put together.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "readdata/vcf/allele.h"
#include "readdata/vcf/vcf_line.h"

// Goes through the records of a window, in order of position, with positions that only grow. Its cost is that of the
// records, however far they reach.
class RecordCursor {
 public:
  void restart(std::span<const VCFLine> records);
  // The first of the records that start at `position`, without one the first that covers it; null for none.
  const VCFLine* at(int32_t position);

 private:
  std::span<const VCFLine> records_;
  size_t next_ = 0;
  // Those that may be the first to cover a position: each reaches further than the one before. From front_ on.
  std::vector<const VCFLine*> covering_;
  size_t front_ = 0;
};

// Whether a record has an alternate made of bases.
bool hasBaseAlternate(const VCFLine& line);

// An alternate of an input's record.
struct EventAllele {
  Allele
      allele;  // as written; symbolic ones as their code; length 0 for what is neither code nor bases nor "*"
  int32_t index = kDead;  // in the union: 0 the reference; -1 (kDead) for one that takes no part

  static constexpr int32_t kDead = -1;

  bool isNonRef() const { return allele.length == 1 && *allele.bases == kNonRefCode; }
};

struct Event {
  const VCFLine* line = nullptr;  // null: the input has nothing at the position
  const char* ref = nullptr;
  int32_t refLength = 0;
  bool starts = false;   // at the position; else it covers it
  bool isBlock = false;  // the record has END
  std::vector<EventAllele> alts;
  int32_t nonRef = -1;  // place of <NON_REF> in `alts`, -1 without

  // Takes what `line` says, null for nothing, at `position`. Storage is used again. An ALT of "." has no alleles.
  void assign(const VCFLine* line, int32_t position);
};

class AlleleUnion {
 public:
  // The alleles of `events` at a position whose reference bases are `ref`, as long as the longest REF that starts here,
  // and sets their indexes. <NON_REF> is never in the list; "*", of what is deleted by a record further up, is its last
  // entry. Throws std::runtime_error for alleles that are too long and too many to be put together.
  void build(std::vector<Event>& events, const char* ref, int32_t refLength);

  // Keeps the `limit` alternates of the lowest scores, in their order; what is dropped is dead in the events. Of equals
  // the first in the list stay. `scores` is by allele, 0 the reference.
  void keepBest(std::vector<Event>& events, const std::vector<double>& scores, size_t limit);

  const Allele& ref() const { return ref_; }
  // Whole alleles, as long as REF makes them: no suffix. Valid until the next build().
  const std::vector<Allele>& alts() const { return alts_; }

 private:
  static constexpr size_t kMaxScratch = size_t(1) << 26;  // bytes

  void reserveScratch(const std::vector<Event>& events);
  int32_t find(const Event& event, const Allele& allele);

  Allele ref_;
  std::vector<Allele> alts_;
  std::unordered_map<std::string_view, int32_t> places_;  // of texts, 0 the reference
  std::string scratch_;                                   // bases of alleles with a tail of REF
};

// Adds to `scores`, by allele of the union, how much better (phred, zero or negative) the best genotype with a listed
// alternate is than the homozygous reference, for each sample of the output: `sampleMap` is negative for others. Throws
// as SampleColumns::likelihoods() does.
void sumLikelihoods(const Event& event, const std::vector<int>& sampleMap, uint32_t maxPloidy,
                    std::vector<double>& scores);
