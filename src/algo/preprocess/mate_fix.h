// mate_fix.h - what a read's record should say of its mate.
// Coords   zero-based half open.
// Threads  pure functions.
#pragma once

#include <cstdint>

#include "algo/preprocess/mate_info.h"
#include "readdata/bam/read.h"

// One read of a pair, as it is.
struct PairSide {
  int32_t contig = -1;
  int64_t start = 0, end = 0;
  uint16_t flags = 0;
};

struct MateFix {
  uint16_t flags = 0;
  int32_t insert_size = 0;
};

PairSide sideOf(const Read& read);
// The mate of `read`, where the read says that it is.
PairSide mateSideOf(const Read& read, const MateSummary& mate);

// The read's flags with the two bits that tell of its mate set anew, and the signed distance to the mate's aligned
// 5-prime end, that base included; 0 unless both are mapped to one contig.
MateFix fixMate(const PairSide& read, const PairSide& mate);
