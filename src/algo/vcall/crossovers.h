// crossovers.h - haplotypes that few reads show, put together from those that were assembled.
// Of two variants on one haplotype, and one of them on the other, a graph of large k-mers has a path for each combination
// that enough reads span. Without the others a read that shows one would contradict all haplotypes alike, and be lost.
// Coords   zero-based half open on the contig.
// Threads  a pure function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/vcall/activity_tracker.h"
#include "algo/vcall/pairhmm/read_clip.h"
#include "algo/vcall/reference_window.h"

// What better qualities a read must agree with in the new haplotype, but with none of the known ones.
inline constexpr int kCrossoverGain = 20;  // phred
// Of so many reads, evenly chosen, combinations are looked for: of more the assembler has found them.
inline constexpr size_t kCrossoverReads = 1000;

// The haplotypes lie over `interval`, their cigars begin and end with matched bases. Where they differ is cut into stretches
// with bases between them that all share. A read is laid along the stretches from where it agrees with the reference,
// without gaps but those of the haplotypes. If a combination of their alleles is better for it than any haplotype by
// kCrossoverGain, counting bases of at least `minBaseQual`, then that is added: on the stretches that the read does not
// reach, it is the haplotype that is best for the read. At most `limit` haplotypes come of it, those of most reads first.
// The new ones are behind the others, in no order of bases.
void addCrossovers(std::vector<std::unique_ptr<Haplotype>>& haplotypes, const std::vector<ReadClip>& reads,
                   const ReferenceWindow& reference, ActiveRegion interval, int minBaseQual, size_t limit);
