#include "algo/vcall/read_window.h"

#include <algorithm>

namespace {

// Inserts above this are not looked at: their reads seldom run through.
constexpr int64_t kLongestCutInsert = 100;

bool isClip(uint32_t word) {
  return cigarOp(word) == CIGAR_S || cigarOp(word) == CIGAR_H;
}

}  // namespace

ReadWindow adapterFreeWindow(const Read& read) {
  constexpr uint16_t kPairBits = FLAG_PAIRED | FLAG_UNMAPPED | FLAG_MATE_UNMAPPED;
  const int64_t insert = std::llabs(read.tlen), mate = read.mate_start;
  ReadWindow window{read.start, read.end};
  if ((read.flag & kPairBits) != FLAG_PAIRED || read.isReverse() == bool(read.flag & FLAG_MATE_REVERSE) ||
      insert == 0 || insert > kLongestCutInsert)
    return window;
  if (read.isReverse()) {
    if (read.end > mate + 1) window.start = uint32_t(std::max<int64_t>(read.start, mate));
  } else if (read.start <= read.tlen + mate) {
    window.end = uint32_t(std::min<int64_t>(read.end, read.start + insert + 1));
  }
  return window;
}

ClippedAdapter clippedAdapter(const Read& read) {
  constexpr uint16_t kPairBits = FLAG_PAIRED | FLAG_UNMAPPED | FLAG_MATE_UNMAPPED;
  const bool faces_mate = (read.flag & kPairBits) == FLAG_PAIRED && read.mate_ref_id == read.ref_id &&
                          read.isReverse() != bool(read.flag & FLAG_MATE_REVERSE);
  if (!faces_mate || read.tlen == 0) return {};
  if (read.isReverse()) return {read.tlen < 0 && int64_t(read.start) <= read.mate_start, false};
  return {false, read.tlen > 0 && int64_t(read.end) >= int64_t(read.start) + read.tlen};
}

bool clipRead(Read& read, ReadWindow window, uint32_t start, uint32_t end, ReadClip& clip) {
  if (read.length == 0 || window.start >= window.end) return false;
  uint32_t body = 0, body_end = read.n_cigar;
  int64_t place = read.start, offset = 0;
  for (; body < body_end && isClip(read.cigarWord(body)); ++body)
    if (cigarOp(read.cigarWord(body)) == CIGAR_S) place -= cigarLength(read.cigarWord(body));
  while (body_end > body && isClip(read.cigarWord(body_end - 1))) --body_end;
  if (body == body_end) return false;

  // A side on which the window cuts nothing leaves the clipped bases there.
  const int64_t low = std::max<int64_t>(window.start > read.start ? window.start : 0, start);
  const int64_t high = std::min<int64_t>(window.end < read.end ? window.end : INT64_MAX, end);
  int64_t first = -1, last = 0, ref_start = 0, ref_end = 0;
  const int64_t leftmost = place;
  for (uint32_t i = 0; i < read.n_cigar; ++i) {
    const uint32_t word = read.cigarWord(i);
    const int64_t count = consumesRead(word) ? cigarLength(word) : 0;
    const int64_t span = i < body || i >= body_end ? count : consumesReference(word) ? cigarLength(word) : 0;
    if (count > 0 && span > 0 && place < high && place + span > low) {
      const int64_t cut = std::max<int64_t>(0, low - place), kept = std::min(span, high - place);
      if (first < 0) {
        first = offset + cut;
        ref_start = place + cut;
      }
      last = offset + kept;
      ref_end = place + kept;
    }
    place += span;
    offset += count;
  }
  if (first < 0 || first >= last) return false;
  if (leftmost >= low) first = 0;  // insertions at an end that is not cut
  if (place <= high) last = read.length;
  clip = {};
  clip.read = &read;
  clip.readStart = int32_t(first);
  clip.readEnd = int32_t(last);
  clip.refStart = uint32_t(ref_start);
  clip.refEnd = uint32_t(ref_end);
  return true;
}
