#include "readdata/vcf/allele.h"

#include <cstring>

namespace {

constexpr int kCodes = 32;

struct CodeTable {
  char bytes[kCodes] = {};  // bytes[k] is k, and its address stands for the code
  const char* texts[kCodes] = {};

  constexpr CodeTable() {
    for (char code = 0; code <= 25; ++code) bytes[static_cast<int>(code)] = code;
    texts[static_cast<int>(kDeletionCode)] = "<*:DEL>";
    texts[static_cast<int>(kNonRefCode)] = "<NON_REF>";
  }
};

constexpr CodeTable kTable;

}  // namespace

const char* symbolicAlleleText(uint8_t code) {
  return code < kCodes ? kTable.texts[code] : nullptr;
}

const char* findSymbolicAllele(const char* text, size_t length) {
  for (int code = 0; code < kCodes; ++code)
    if (kTable.texts[code] && strncmp(kTable.texts[code], text, length) == 0) return &kTable.bytes[code];
  return &kTable.bytes[0];
}

Allele parseAllele(const char* text, size_t length) {
  if (length >= 3 && text[0] == '<' && text[length - 1] == '>') return {findSymbolicAllele(text, length), 1};
  return {text, static_cast<int32_t>(length)};
}
