// smith_waterman_kernel.h - the rows of an alignment matrix, filled one after the other.
// Shape    h and e hold one row: element j is column j + 1. Rows have `stride` elements, a multiple of 4;
//          those behind the read are computed too, and mean nothing. h, e and the profile are 16-byte
//          aligned.
// Result   both kernels write the same in every byte.
#pragma once

#include <cstddef>
#include <cstdint>

namespace SMITHWATERMAN {

// Far enough from the end of the range that adding some gap scores does not wrap.
inline constexpr int32_t kMinusInfinity = -1073741824;

// Four cells share a word of directions, and one of ties: bit k of each group of 4 belongs to cell k.
enum DirectionBit : uint32_t {
  kDeletionBest = 1 << 0,   // a deletion beats a pair
  kInsertionBest = 1 << 4,  // an insertion beats both
  kDeletionGoesOn = 1 << 8,
  kInsertionGoesOn = 1 << 12,
};
enum TieBit : uint32_t {
  kDeletionTies = 1 << 0,   // with a pair
  kInsertionTies = 1 << 4,  // with the better of pair and deletion
};

// Diagonals, row - column, in order.
struct Band {
  int32_t first, last;
};

struct FillJob {
  const char* reference;
  size_t reference_length, read_length, stride;
  const uint8_t* profile_row;  // of each of 256 reference bases
  const int32_t* profile;      // rows of scores against each read base
  int32_t open, extend;
  // What is filled of a row: the words that hold cells of these diagonals. The last row and column have what was there
  // where it is not filled, and cells at the edge see that above them and nothing to their left.
  Band band;
  const int32_t* first_column;  // of row 0 and all others: reference_length + 1
  int32_t* last_column;         // filled from row 1 on
  int32_t* h;                   // row 0 on entry, the last row on return
  int32_t* e;                   // minus infinity on entry
  uint16_t* directions;         // stride / 4 words per row, from row 1 on
  uint8_t* ties;                // likewise; null when not wanted
};

// The first cell that is filled of a row (0 for the first), and the word behind the last.
inline size_t firstCell(const FillJob& job, size_t row) {
  const int64_t cell = static_cast<int64_t>(row) - job.band.last;
  return cell > 0 ? static_cast<size_t>(cell) / 4 * 4 : 0;
}
inline size_t endWord(const FillJob& job, size_t row) {
  const int64_t cell = static_cast<int64_t>(row) - job.band.first;
  return cell < static_cast<int64_t>(job.stride) ? static_cast<size_t>(cell) / 4 + 1 : job.stride / 4;
}

void fillScalar(const FillJob& job);
// REQUIRES: a processor with SSE4.1, and open < extend: only then can an insertion not follow an insertion.
void fillSse41(const FillJob& job);

}  // namespace SMITHWATERMAN
