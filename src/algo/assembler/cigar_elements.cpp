#include "algo/assembler/cigar_elements.h"

void appendElement(CigarElements& cigar, uint32_t length, const CigarOperator& op) {
  if (length == 0) return;
  if (!cigar.empty() && *cigar.back().second == op)
    cigar.back().first += length;
  else
    cigar.emplace_back(length, &op);
}

uint64_t cigarReadLength(const CigarElements& cigar) {
  uint64_t length = 0;
  for (const auto& [count, op] : cigar)
    if (op->consumesRead) length += count;
  return length;
}

uint64_t cigarReferenceLength(const CigarElements& cigar) {
  uint64_t length = 0;
  for (const auto& [count, op] : cigar)
    if (op->consumesReference) length += count;
  return length;
}

std::string cigarText(const CigarElements& cigar) {
  std::string text;
  for (const auto& [count, op] : cigar) text += std::to_string(count) + op->byte;
  return text;
}
