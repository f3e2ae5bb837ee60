#include "algo/vcall/fold_back.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "base/bases.h"
#include "readdata/bam/bam_record.h"

namespace {

std::string complement(std::string bases) {
  for (char& base : bases)
    if (isBase(base)) base = "TGCA"[baseIndex(base)];
  return bases;
}

// Of the first 8 bytes, how many differ.
size_t differencesOf8(const char* a, const char* b) {
  uint64_t x, y;
  memcpy(&x, a, 8);
  memcpy(&y, b, 8);
  constexpr uint64_t kOnes = 0x0101010101010101, kLow = 0x7f * kOnes;
  x ^= y;
  x = ((x & kLow) + kLow) | x;  // the top bit of each byte that is not 0
  return size_t((x >> 7 & kOnes) * kOnes >> 56);
}

bool matches(std::string_view a, std::string_view b) {
  static_assert(kFoldBackLeast >= 8);
  const size_t most = a.size() / 10;                            // mismatches
  if (differencesOf8(a.data(), b.data()) > most) return false;  // nearly always
  size_t differences = 0;
  for (size_t i = 0; i < a.size(); ++i) differences += a[i] != b[i];
  return differences <= most;
}

// Of bases and a text that read from the end of a read inwards: how far beyond bases[0, clipped) a copy reaches into
// bases[clipped, end), or kNone.
int32_t reach(std::string_view bases, size_t clipped, std::string_view text) {
  int32_t most = FoldBacks::kNone;
  for (size_t at = 0; at + clipped <= text.size(); ++at) {
    if (!matches(bases.substr(0, clipped), text.substr(at))) continue;
    size_t i = clipped;
    while (i < bases.size() && at + i < text.size() && bases[i] == text[at + i]) ++i;
    most = std::max(most, int32_t(i - clipped));
  }
  return most;
}

}  // namespace

FoldBacks findFoldBacks(const Read& read, const ReferenceWindow& reference) {
  FoldBacks found;
  for (const bool front : {true, false}) {
    uint32_t i = 0;
    const auto word = [&] { return i < read.n_cigar ? read.cigarWord(front ? i : read.n_cigar - 1 - i) : 0; };
    if (cigarOp(word()) == CIGAR_H) ++i;
    const size_t clip = cigarOp(word()) == CIGAR_S ? cigarLength(word()) : 0;
    ++i;
    const size_t aligned = cigarOp(word()) == CIGAR_M ? cigarLength(word()) : 0;
    if (clip < kFoldBackLeast || clip + aligned > size_t(read.length)) continue;
    const size_t compared = std::min(clip, kFoldBackMost), from = clip - compared;
    std::string bases(front ? read.bases + from : read.bases + read.length - clip - aligned,
                      compared + aligned);
    // Both strands of the reference, in the direction of the bases and against it.
    std::string ahead = reference.bases, back(ahead.rbegin(), ahead.rend());
    if (!front) {
      std::reverse(bases.begin(), bases.end());
      ahead.swap(back);
    }
    if (reach(std::string_view(bases).substr(0, compared), compared, ahead) == FoldBacks::kNone)
      (front ? found.front : found.back) = reach(bases, compared, complement(back));
  }
  return found;
}
