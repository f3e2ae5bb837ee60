// read_window.h - which part of an aligned read callers look at.
// Coords   zero-based half open.
// Threads  pure functions; but see Read::getBases().
#pragma once

#include <cstdint>

#include "algo/vcall/pairhmm/read_clip.h"
#include "readdata/bam/read.h"

// What words of a CIGAR are to who counts bases.
inline bool isAligned(uint32_t word) {
  return consumesRead(word) && consumesReference(word);
}
inline bool isIndel(uint32_t word) {
  return cigarOp(word) == CIGAR_I || cigarOp(word) == CIGAR_D;
}

struct ReadWindow {
  uint32_t start, end;  // on the contig; empty when start >= end
};

// The span of a read without what lies beyond its fragment's end: of a pair whose mates face each other on an insert of
// at most 100 bases, the bases past the mate's start are adapter.
ReadWindow adapterFreeWindow(const Read& read);

// Which soft clips are adapter: those behind an end where the fragment ends, too.
struct ClippedAdapter {
  bool left = false, right = false;
};

ClippedAdapter clippedAdapter(const Read& read);

// The part of `read` inside [start, end), and inside `window` where that is narrower than the aligned span. Soft-clipped
// bases count as if the read went on along the reference. Inserted bases at a border that cuts the read are left out;
// a border inside a deletion leaves the bases behind it. Sets all fields of `clip` but the sample; the reference span is
// that of the first to the last kept base. False when nothing is left, or when the read does not reach there.
bool clipRead(Read& read, ReadWindow window, uint32_t start, uint32_t end, ReadClip& clip);
