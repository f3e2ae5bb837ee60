// read_window.h - which part of an aligned read callers look at.
// Coords   zero-based half open.
// Threads  pure functions; but see Read::getBases().
#pragma once

#include <cstdint>

#include "algo/vcall/pairhmm/read_clip.h"
#include "readdata/bam/read.h"

struct ReadWindow {
  uint32_t start, end;  // on the contig; empty when start >= end
};

// The span of a read without what lies beyond its fragment's end: of a pair whose mates face each other on an insert of
// at most 100 bases, the bases past the mate's start are adapter.
ReadWindow adapterFreeWindow(const Read& read);

// The part of `read` inside `window` and [start, end), with soft-clipped bases counted as if the read went on along
// the reference. False when nothing is left, or when the read does not reach there.
bool clipRead(Read& read, ReadWindow window, uint32_t start, uint32_t end, ReadClip& clip);
