// read_sampling.h - fewer reads of a region, the same on every machine and at any thread count.
// Threads  pure function.
// Source   selection sampling: Knuth, The Art of Computer Programming, volume 2, 3.4.2, algorithm S.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "algo/vcall/pairhmm/read_clip.h"

// Leaves limits[sample] reads of each sample, or all when it has fewer, in their order. The draw depends on the order of
// the reads, the name and the position.
void sampleReads(std::vector<ReadClip>& reads, std::span<const size_t> limits, const char* contig,
                 uint32_t regionStart);
