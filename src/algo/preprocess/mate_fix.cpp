#include "algo/preprocess/mate_fix.h"

namespace {

int64_t alignedFivePrime(const PairSide& side) {
  return side.flags & FLAG_REVERSE ? side.end - 1 : side.start;
}

int64_t insertSize(const PairSide& read, const PairSide& mate) {
  if ((read.flags | mate.flags) & FLAG_UNMAPPED || read.contig != mate.contig) return 0;
  const int64_t from = alignedFivePrime(read), to = alignedFivePrime(mate);
  return from == to ? 0 : from < to ? to - from + 1 : to - from - 1;
}

}  // namespace

PairSide sideOf(const Read& read) {
  return {read.ref_id, read.start, read.end, read.flag};
}

PairSide mateSideOf(const Read& read, const MateSummary& mate) {
  return {read.mate_ref_id, read.mate_start, mate.end, static_cast<uint16_t>(mate.flags)};
}

MateFix fixMate(const PairSide& read, const PairSide& mate) {
  unsigned flags = read.flags & ~unsigned{FLAG_MATE_UNMAPPED | FLAG_MATE_REVERSE};
  if (mate.flags & FLAG_UNMAPPED) flags |= FLAG_MATE_UNMAPPED;
  if (mate.flags & FLAG_REVERSE) flags |= FLAG_MATE_REVERSE;
  return {static_cast<uint16_t>(flags), static_cast<int32_t>(insertSize(read, mate))};
}
