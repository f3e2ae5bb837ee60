// allele.h - alleles of a variant, and the one-byte codes that stand for symbolic ones.
// Owns     nothing: `bases` points into a line, a reference or the table of codes.
// Threads  plain values; the table is constant.
#pragma once

#include <cstdint>
#include <string>

struct Allele {
  const char* bases = nullptr;
  int32_t length = 0;  // bytes; callers drop a candidate by setting it to 0
  // When it is above 0 and below the record's reference length, the last `refSuffix` bases of REF belong to the
  // allele as well: it may be shortened while REF is not.
  int32_t refSuffix = 0;
  bool isRef = false;  // set by callers that keep the reference among the candidates

  // One byte below 32: a code of the table.
  bool isSymbolic() const { return length == 1 && static_cast<uint8_t>(*bases) < 32; }
};

// Whether it is "*": the place is deleted by a record further up.
inline bool isSpanningDeletion(const Allele& allele) {
  return allele.length == 1 && *allele.bases == '*';
}

inline constexpr char kDeletionCode = 4;  // <*:DEL>
inline constexpr char kNonRefCode = 14;   // <NON_REF>

// The text of a code, null for one that has none.
const char* symbolicAlleleText(uint8_t code);

// The stable address of the code whose text begins with the `length` bytes at `text`; of code 0 when there is none.
const char* findSymbolicAllele(const char* text, size_t length);

// The allele that a word of an ALT column means: of length 1, pointing at its code, when the word is symbolic (at least
// three bytes, in angle brackets), else the bytes at `text`.
Allele parseAllele(const char* text, size_t length);
