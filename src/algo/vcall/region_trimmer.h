// region_trimmer.h - reduces an assembled region to what its variants need.
// Coords   zero-based half open on the contig.
// Threads  pure functions.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/vcall/activity_tracker.h"
#include "algo/vcall/reference_window.h"

namespace RegionTrimmer {

using Haplotypes = std::vector<std::unique_ptr<Haplotype>>;

inline constexpr uint32_t kSNPPadding = 20, kIndelPadding = 150;     // around the variants
inline constexpr uint32_t kExtension = 25, kExtensionOfGiven = 300;  // of the active interval, at most
// The read model drops reads of up to 50 bases for one good base that no haplotype has, longer ones for two.
inline constexpr uint32_t kWideSNPPadding = kSNPPadding + kExtension;

// The span of the events that begin in `active`, padded: by `snpPadding`, or kIndelPadding when one of them is no SNP, but not further
// than kExtension from `active` and, of the events, at least by kSNPPadding; within `window`. False without such events.
bool variantInterval(const Haplotypes& haplotypes, ActiveRegion active, ActiveRegion window, bool given,
                     uint32_t snpPadding, ActiveRegion& trimmed);

// The haplotype over [from, to), which lies within `reference`. Its cigar begins and ends with matched bases: what
// leads over a border, or lies on it, takes the reference's bases, but for an insertion or deletion at the end of the
// reference.
std::unique_ptr<Haplotype> cut(const Haplotype& haplotype, const ReferenceWindow& reference, uint32_t from,
                               uint32_t to);

// Cuts all to `interval`. Leaves one of those that have become the same: the best.
void cutAll(Haplotypes& haplotypes, const ReferenceWindow& reference, ActiveRegion interval);

// The reference first, then by bases; of several with the same bases the best. At most `limit`, by score; the reference
// is one of them.
void sortUnique(Haplotypes& haplotypes, size_t limit);

}  // namespace RegionTrimmer
