// read_alignment.cpp - which bases of a read lie on which part of the reference.
#include <algorithm>
#include <cassert>
#include <climits>

#include "readdata/bam/read.h"

bool Read::getAlignment(Locus from, Locus to, int& start_offset, int& end_offset) const {
  if (from.contig > ref_id || to.contig < ref_id || length == 0 || n_cigar == 0) return false;
  const int64_t low = from.contig < ref_id ? 0 : from.position;
  const int64_t high = to.contig > ref_id ? INT32_MAX : to.position;
  if (low >= high || low >= end || high <= start) return false;

  int64_t place = start, offset = 0, soff = -1, eoff = 0;
  for (uint32_t i = 0; i < n_cigar && place < high; ++i) {
    const uint32_t word = cigarWord(i);
    const int64_t span = consumesReference(word) ? cigarLength(word) : 0;
    const int64_t count = consumesRead(word) ? cigarLength(word) : 0;
    if (span > 0) {
      const bool gap = count == 0;
      if (soff < 0 && place + span > low) soff = offset + (gap ? 0 : std::max<int64_t>(0, low - place));
      eoff = offset + (gap ? 0 : std::min(span, high - place));
    }
    place += span;
    offset += count;
  }
  if (soff < 0) return false;
  assert(eoff <= length && "eoff <= len");
  start_offset = int(soff);
  end_offset = int(eoff);
  return true;
}

namespace {

// Calls visit(place, span, offset, count) for each stretch of the read that lies on the reference, soft clips
// at the ends included: they lie where their bases would if the read went on without a gap. A gap has count
// 0.
template <typename Visit>
void walkStretches(const Read& read, Visit visit) {
  auto isClip = [&read](uint32_t i) {
    const uint32_t op = cigarOp(read.cigarWord(i));
    return op == CIGAR_S || op == CIGAR_H;
  };
  auto clippedBases = [&read](uint32_t i) {
    return cigarOp(read.cigarWord(i)) == CIGAR_S ? int64_t(cigarLength(read.cigarWord(i))) : 0;
  };
  uint32_t body = 0, body_end = read.n_cigar;
  int64_t place = read.start, offset = 0;
  for (; body < body_end && isClip(body); ++body) place -= clippedBases(body);
  while (body_end > body && isClip(body_end - 1)) --body_end;
  if (body == body_end) return;

  for (uint32_t i = 0; i < read.n_cigar; ++i) {
    const uint32_t word = read.cigarWord(i);
    const int64_t count = consumesRead(word) ? cigarLength(word) : 0;
    int64_t span = consumesReference(word) ? cigarLength(word) : 0;
    if (i < body || i >= body_end) span = count;
    if (span > 0) visit(place, span, offset, count);
    place += span;
    offset += count;
  }
}

struct Limits {
  int64_t low = INT64_MIN / 2, high = INT64_MAX / 2;
};

// Where the insert of a forward-reverse pair ends on the far side of this read: what lies beyond is adaptor.
Limits insertLimits(const Read& read) {
  constexpr uint16_t kBothMapped = FLAG_PAIRED | FLAG_UNMAPPED | FLAG_MATE_UNMAPPED;
  Limits limits;
  const bool mate_reverse = read.flag & FLAG_MATE_REVERSE;
  if ((read.flag & kBothMapped) != FLAG_PAIRED || read.isReverse() == mate_reverse || read.tlen == 0 ||
      read.mate_ref_id != read.ref_id)
    return limits;
  if (read.isReverse()) {
    if (read.end > int64_t(read.mate_start)) limits.low = read.mate_start;
  } else if (read.tlen > 0 && read.start <= int64_t(read.mate_start) + read.tlen) {
    limits.high = int64_t(read.start) + read.tlen;
  }
  return limits;
}

}  // namespace

bool Read::effectiveRegion(int min_base_qual, bool keep_adaptor, Region& region) const {
  if (!isMapped() || n_cigar == 0 || end <= start) return false;
  int64_t first = 0, last = length;
  if (quals) {
    while (first < last && quals[first] < min_base_qual) ++first;
    while (last > first && quals[last - 1] < min_base_qual) --last;
  }

  if (!keep_adaptor) {
    const Limits limits = insertLimits(*this);
    int64_t low_offset = -1, high_offset = 0, leftmost = INT64_MAX, rightmost = INT64_MIN;
    walkStretches(*this, [&](int64_t place, int64_t span, int64_t offset, int64_t count) {
      leftmost = std::min(leftmost, place);
      rightmost = place + span;
      if (low_offset < 0 && place + span > limits.low)
        low_offset = offset + std::min(count, std::max<int64_t>(0, limits.low - place));
      if (place < limits.high) high_offset = offset + std::min(count, limits.high - place);
    });
    if (limits.low > leftmost) first = std::max(first, low_offset < 0 ? length : low_offset);
    if (limits.high < rightmost) last = std::min(last, high_offset);
  }
  if (first >= last) return false;

  int64_t span_start = -1, span_end = -1;
  bool found = false;
  walkStretches(*this, [&](int64_t place, int64_t, int64_t offset, int64_t count) {
    if (count == 0 || offset >= last || offset + count <= first) return;
    if (!found) span_start = place + std::max<int64_t>(0, first - offset);
    found = true;
    span_end = place + std::min(count, last - offset);
  });
  span_start = std::max<int64_t>(span_start, 0);
  if (!found || span_end <= span_start || span_end > INT32_MAX) return false;
  region = {uint32_t(span_start), uint32_t(span_end), int32_t(first), int32_t(last)};
  return true;
}
