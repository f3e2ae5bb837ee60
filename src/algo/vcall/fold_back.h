// fold_back.h - ends of reads that come from a fragment folded back on itself.
// A single strand pairs with a complement of itself nearby, and repair of its end copies what lies there: the fragment
// goes on with the reverse complement of a neighbouring stretch, which aligners clip. Enzymatic fragmentation makes many
// of them. They begin where strands pair well, so that different fragments agree and look like a variant.
// Threads  pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "algo/vcall/reference_window.h"
#include "readdata/bam/read.h"

// The clipped bases that are compared with the reference, next to the alignment; a mismatch in ten is allowed.
inline constexpr size_t kFoldBackLeast = 10, kFoldBackMost = 20;

struct FoldBacks {
  static constexpr int32_t kNone = -1;

  // Aligned bases at the ends that the copy may have begun with; kNone for an end without a copy.
  int32_t front = kNone, back = kNone;
};

// Looks for the soft-clipped ends of `read` in the reverse complement of `reference`. What the reference holds as it is,
// too, is no copy: a repeat of two letters that got longer, for one. A copy reaches over the aligned bases, at most over
// the first or last M of the CIGAR, as far as these go on alike: there are as many where the strands paired.
FoldBacks findFoldBacks(const Read& read, const ReferenceWindow& reference);
