#include "algo/preprocess/read_end.h"

#include <algorithm>

namespace {

constexpr uint8_t kLeastCountedQual = 15;
constexpr uint8_t kAbsentQual = 0xff;

bool isClip(uint32_t word) {
  return cigarOp(word) == CIGAR_S || cigarOp(word) == CIGAR_H;
}

int64_t softClipped(uint32_t word) {
  return cigarOp(word) == CIGAR_S ? cigarLength(word) : 0;
}

}  // namespace

int32_t unclippedFivePrime(const Read& read) {
  int64_t clipped = 0;
  if (read.isReverse()) {
    for (uint32_t i = read.n_cigar; i > 0 && isClip(read.cigarWord(i - 1)); --i)
      clipped += softClipped(read.cigarWord(i - 1));
    return static_cast<int32_t>(int64_t{read.end} + clipped - 1);
  }
  for (uint32_t i = 0; i < read.n_cigar && isClip(read.cigarWord(i)); ++i)
    clipped += softClipped(read.cigarWord(i));
  return static_cast<int32_t>(int64_t{read.start} - clipped);
}

int32_t qualityScore(Read& read) {
  const uint8_t* quals = read.getQuals();
  uint64_t sum = 0;
  for (int32_t i = 0; i < read.length; ++i)
    sum += quals[i] >= kLeastCountedQual && quals[i] != kAbsentQual ? quals[i] : 0;
  return static_cast<int32_t>(std::min<uint64_t>(sum, INT32_MAX));
}
