#include "algo/assembler/cigar_utils.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "algo/assembler/smith_waterman.h"
#include "base/bases.h"
#include "base/text.h"

namespace CigarUtils {
namespace {

// Around both sequences, so that the ends of the alignment lie outside of them.
constexpr char kPad[] = "NNNNNNNNNN";
constexpr uint32_t kPadLength = sizeof kPad - 1;

bool isGap(const CigarElement& element) {
  return *element.second == kOpI || *element.second == kOpD;
}

// The reference with the gaps of `cigar` in it: what reads its bases when every mismatch is taken for an
// error. False when it does not lie within the sequences.
bool spell(const CigarElements& cigar, const char* ref, size_t refLen, const char* read, size_t readLen,
           size_t refIndex, size_t readIndex, std::string& bases) {
  bases.clear();
  if (refIndex > refLen || readIndex > readLen || cigarReferenceLength(cigar) > refLen - refIndex ||
      cigarReadLength(cigar) > readLen - readIndex)
    return false;
  for (const auto& [length, op] : cigar) {
    if (op->consumesRead && op->consumesReference)
      bases.append(ref + refIndex, length);
    else if (op->consumesRead)
      bases.append(read + readIndex, length);
    if (op->consumesReference) refIndex += length;
    if (op->consumesRead) readIndex += length;
  }
  return true;
}

// Sequences of one length with so few mismatches that every alignment with a gap, or off the diagonal, scores
// less than one without. Both have A, C, G and T only: others may match the padding, or what they are not.
bool differsByFewBases(const char* ref, const char* alt, size_t length) {
  constexpr int32_t match = SMITHWATERMAN::haplotypeAlignScores[0];
  constexpr int32_t mismatch = SMITHWATERMAN::haplotypeAlignScores[1];
  constexpr int32_t open = SMITHWATERMAN::haplotypeAlignScores[2];
  constexpr int kFew = 2;
  // An insertion and a deletion of one base; a gap next to an end, and a base beside the padding.
  static_assert(kFew * (match - mismatch) < match - 2 * open);
  static_assert(kFew * (match - mismatch) < match - open + (match - mismatch));
  int mismatches = 0;
  for (size_t i = 0; i < length; ++i) {
    if (!isBase(ref[i]) || !isBase(alt[i])) return false;
    if (ref[i] != alt[i] && ++mismatches > kFew) return false;
  }
  return true;
}

}  // namespace

bool computeCigar(const char* ref, size_t refLen, const char* alt, size_t altLen, CigarElements& cigar) {
  SMITHWATERMAN::SWPairwiseAlignment aligner;
  return computeCigar(aligner, ref, refLen, alt, altLen, cigar);
}

bool computeCigar(SMITHWATERMAN::SWPairwiseAlignment& aligner, const char* ref, size_t refLen,
                  const char* alt, size_t altLen, CigarElements& cigar, const SMITHWATERMAN::Scores& scores) {
  cigar.clear();
  if (altLen == 0 || refLen == 0) {
    if (refLen == 0) fprintf(stderr, "Warning in Smith-Waterman: zero ref length\n");
    if (std::max(refLen, altLen) > SMITHWATERMAN::SmithWaterman::kMaxLength) return false;
    appendElement(cigar, static_cast<uint32_t>(refLen), kOpD);
    appendElement(cigar, static_cast<uint32_t>(altLen), kOpI);
    return true;
  }
  if (refLen == altLen && refLen <= SMITHWATERMAN::SmithWaterman::kMaxLength &&
      differsByFewBases(ref, alt, refLen)) {
    appendElement(cigar, static_cast<uint32_t>(refLen), kOpM);
    return true;
  }
  const std::string padded_ref = kPad + std::string(ref, refLen) + kPad;
  const std::string padded_alt = kPad + std::string(alt, altLen) + kPad;
  aligner.align(padded_ref.data(), padded_ref.size(), padded_alt.data(), padded_alt.size(), scores,
                SMITHWATERMAN::OVERHANG_CLIP, SMITHWATERMAN::ALIGN_END_TO_END);
  const SMITHWATERMAN::AlignmentResult& result = aligner.result();
  if (result.score <= 0) return false;
  for (const auto& element : result.cigar)
    if (*element.second == kOpS) return false;

  // Where the first base of `alt` lies on the padded reference, behind deletions that lie within the padding.
  uint64_t first_base = static_cast<uint64_t>(result.alignmentOffset);
  uint32_t padding = kPadLength;
  for (const auto& [length, op] : result.cigar) {
    if (padding == 0) break;
    const uint32_t part = op->consumesRead ? std::min(padding, length) : length;
    if (op->consumesReference) first_base += part;
    if (op->consumesRead) padding -= part;
  }
  // Bases of `alt` that were aligned to the padding are none of the reference.
  if (first_base < kPadLength) return false;
  appendElement(cigar, static_cast<uint32_t>(first_base - kPadLength), kOpD);
  for (const auto& [length, op] : trimCigar(result.cigar, kPadLength, altLen + kPadLength - 1))
    appendElement(cigar, length, *op);
  const uint64_t used = cigarReferenceLength(cigar);
  if (used > refLen) {
    cigar.clear();
    return false;
  }
  appendElement(cigar, static_cast<uint32_t>(refLen - used), kOpD);
  return true;
}

CigarElements trimCigar(const CigarElements& cigar, size_t start, size_t end) {
  CigarElements trimmed;
  uint64_t position = 0;  // in the read
  for (const auto& [length, op] : cigar) {
    if (*op == kOpH || *op == kOpP) throw std::runtime_error("Unsupported cigar operator in trimCigar");
    if (!op->consumesRead) {
      if (position >= start && position <= uint64_t{end} + 1) appendElement(trimmed, length, *op);
      continue;
    }
    const uint64_t from = std::max<uint64_t>(position, start);
    const uint64_t to = std::min<uint64_t>(position + length, uint64_t{end} + 1);
    if (from < to) appendElement(trimmed, static_cast<uint32_t>(to - from), *op);
    position += length;
  }
  return trimmed;
}

void leftAlignIndel(CigarElements& piece, const char* ref, const char* read, size_t refIndex,
                    size_t readIndex) {
  if (piece.size() < 2 || !isGap(piece.back())) return;
  CigarElement& before = piece[piece.size() - 2];
  if (*before.second != kOpM && *before.second != kOpEq) return;
  const CigarElement gap = piece.back();
  const size_t ref_end = refIndex + cigarReferenceLength(piece);
  const size_t read_end = readIndex + cigarReadLength(piece);
  // The last base in front of the gap, and the last of the gap itself.
  const bool deletes = *gap.second == kOpD;
  const char* last_of_gap = deletes ? ref + ref_end - 1 : read + read_end - 1;
  const char* ref_base = ref + ref_end - 1 - (deletes ? gap.first : 0);
  const char* read_base = read + read_end - 1 - (deletes ? 0 : gap.first);
  uint32_t moved = 0;
  while (moved < before.first && ref_base[-int64_t{moved}] == read_base[-int64_t{moved}] &&
         ref_base[-int64_t{moved}] == last_of_gap[-int64_t{moved}])
    ++moved;
  if (moved == 0) return;
  const CigarOperator& pair = *before.second;
  before.first -= moved;
  piece.emplace_back(moved, &pair);
  piece = consolidate(piece);
}

CigarElements leftAlignCigarSequentially(const CigarElements& cigar, const char* ref, size_t refLen,
                                         const char* read, size_t readLen, size_t refIndex,
                                         size_t readIndex) {
  std::string before, after;
  CigarElements aligned;
  bool good = spell(cigar, ref, refLen, read, readLen, refIndex, readIndex, before);
  if (good) {
    CigarElements piece;
    size_t ref_start = refIndex, read_start = readIndex;
    // All of the piece but what the next gap may move over.
    auto take = [&](size_t count) {
      for (size_t i = 0; i < count; ++i) {
        const auto& [length, op] = piece[i];
        appendElement(aligned, length, *op);
        if (op->consumesReference) ref_start += length;
        if (op->consumesRead) read_start += length;
      }
      piece.erase(piece.begin(), piece.begin() + static_cast<ptrdiff_t>(count));
    };
    for (const auto& [length, op] : cigar) {
      appendElement(piece, length, *op);
      if (piece.empty() || !isGap(piece.back())) continue;
      leftAlignIndel(piece, ref, read, ref_start, read_start);
      take(isGap(piece.back()) ? piece.size() : piece.size() - 1);
    }
    take(piece.size());
    good = spell(aligned, ref, refLen, read, readLen, refIndex, readIndex, after) && before == after;
  }
  if (good) return aligned;
  fprintf(stderr, "leftAlignCigarSequentially failed for %s \n", cigarText(cigar).c_str());
  return cigar;
}

CigarElements consolidate(const CigarElements& cigar) {
  CigarElements joined;
  for (const auto& [length, op] : cigar) appendElement(joined, length, *op);
  return joined;
}

CigarElements fromWords(const Cigar& words) {
  CigarElements cigar;
  cigar.reserve(words.size());
  for (uint32_t word : words) {
    if (cigarOp(word) > CIGAR_X)
      throw std::runtime_error(format("Unsupported cigar operator code %u", cigarOp(word)));
    cigar.emplace_back(cigarLength(word), &kCigarOperators[cigarOp(word)]);
  }
  return cigar;
}

Cigar toWords(const CigarElements& cigar) {
  Cigar words;
  words.reserve(cigar.size());
  for (const auto& [length, op] : cigar) {
    if (length >> 28 != 0) throw std::runtime_error(format("Cigar element of %u bases is too long", length));
    words.push_back(length << 4 | static_cast<uint32_t>(op - kCigarOperators));
  }
  return words;
}

}  // namespace CigarUtils
