#include "cigar_edit.h"

#include <algorithm>

void appendOp(Cigar& cigar, CigarOp op, uint32_t length) {
  if (length == 0) return;
  if (!cigar.empty() && cigarOp(cigar.back()) == op)
    cigar.back() += length << 4;
  else
    cigar.push_back(length << 4 | op);
}

uint32_t readLength(const Cigar& cigar) {
  uint32_t sum = 0;
  for (uint32_t word : cigar)
    if (consumesRead(word)) sum += cigarLength(word);
  return sum;
}

uint32_t referenceLength(const Cigar& cigar) {
  uint32_t sum = 0;
  for (uint32_t word : cigar)
    if (consumesReference(word)) sum += cigarLength(word);
  return sum;
}

namespace {

bool isClip(uint32_t word) {
  return cigarOp(word) == CIGAR_S || cigarOp(word) == CIGAR_H;
}

}  // namespace

uint32_t clipAtStart(const Cigar& cigar) {
  uint32_t sum = 0;
  for (auto word = cigar.begin(); word != cigar.end() && isClip(*word); ++word) sum += cigarLength(*word);
  return sum;
}

uint32_t clipAtEnd(const Cigar& cigar) {
  uint32_t sum = 0;
  for (auto word = cigar.rbegin(); word != cigar.rend() && isClip(*word); ++word) sum += cigarLength(*word);
  return sum;
}

bool hasOp(const Cigar& cigar, CigarOp op) {
  return std::any_of(cigar.begin(), cigar.end(), [&](uint32_t word) { return cigarOp(word) == op; });
}

Cigar withClips(const Cigar& cigar, CigarOp op) {
  Cigar out;
  for (uint32_t word : cigar) appendOp(out, isClip(word) ? op : CigarOp(cigarOp(word)), cigarLength(word));
  return out;
}

void softClipStart(Cigar& cigar, uint32_t bases, uint32_t min_match, uint32_t& ref_start) {
  Cigar kept;
  uint32_t clipped = 0;
  size_t i = 0;
  for (; i < cigar.size(); ++i) {
    uint32_t word = cigar[i], length = cigarLength(word);
    bool is_match = cigarOp(word) == CIGAR_M;
    uint32_t left = clipped < bases ? bases - clipped : 0;
    if (is_match && length >= left && (length - left >= min_match || i + 1 == cigar.size()) &&
        length > left) {
      if (left > 0) {
        clipped += left;
        ref_start += left;
      }
      appendOp(kept, CIGAR_S, clipped);
      appendOp(kept, CIGAR_M, length - left);
      break;
    }
    if (consumesRead(word)) clipped += length;
    if (consumesReference(word)) ref_start += length;
  }
  if (i == cigar.size()) appendOp(kept, CIGAR_S, clipped);
  for (++i; i < cigar.size(); ++i) appendOp(kept, CigarOp(cigarOp(cigar[i])), cigarLength(cigar[i]));
  cigar = std::move(kept);
}

void softClipEnd(Cigar& cigar, uint32_t bases, uint32_t min_match) {
  std::reverse(cigar.begin(), cigar.end());
  uint32_t ignored = 0;
  softClipStart(cigar, bases, min_match, ignored);
  std::reverse(cigar.begin(), cigar.end());
}

void findDifferences(const Cigar& cigar, const char* bases, const char* reference, Differences& out) {
  out.edit_distance = 0;
  out.text.clear();
  uint32_t matched = 0;
  for (uint32_t word : cigar) {
    uint32_t length = cigarLength(word);
    if (cigarOp(word) == CIGAR_M) {
      for (uint32_t i = 0; i < length; ++i) {
        // An N in read or reference matches nothing.
        if (bases[i] == reference[i] && bases[i] != 'N') {
          ++matched;
          continue;
        }
        out.text += std::to_string(matched);
        out.text += reference[i];
        matched = 0;
        ++out.edit_distance;
      }
    } else if (cigarOp(word) == CIGAR_D) {
      out.text += std::to_string(matched);
      out.text += '^';
      out.text.append(reference, length);
      matched = 0;
      out.edit_distance += static_cast<int32_t>(length);
    } else if (cigarOp(word) == CIGAR_I) {
      out.edit_distance += static_cast<int32_t>(length);
    }
    if (consumesRead(word)) bases += length;
    if (consumesReference(word)) reference += length;
  }
  out.text += std::to_string(matched);
}
