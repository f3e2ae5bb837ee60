// cigar_elements.h - CIGARs as pairs of length and operator, the form in which alignments are computed and
// edited. Operators are constant objects; the address of one is its identity.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class CigarOperator {
 public:
  constexpr CigarOperator(bool read, bool reference, char letter)
      : consumesRead(read), consumesReference(reference), byte(letter) {}
  CigarOperator(const CigarOperator&) = delete;
  CigarOperator& operator=(const CigarOperator&) = delete;

  const bool consumesRead, consumesReference;
  const char byte;
};

inline bool operator==(const CigarOperator& a, const CigarOperator& b) {
  return &a == &b;
}

// In the order of the codes in BAM files.
inline constexpr CigarOperator kCigarOperators[9] = {
    {true, true, 'M'},   {true, false, 'I'},  {false, true, 'D'}, {false, true, 'N'}, {true, false, 'S'},
    {false, false, 'H'}, {false, false, 'P'}, {true, true, '='},  {true, true, 'X'}};
inline constexpr const CigarOperator& kOpM = kCigarOperators[0];
inline constexpr const CigarOperator& kOpI = kCigarOperators[1];
inline constexpr const CigarOperator& kOpD = kCigarOperators[2];
inline constexpr const CigarOperator& kOpN = kCigarOperators[3];
inline constexpr const CigarOperator& kOpS = kCigarOperators[4];
inline constexpr const CigarOperator& kOpH = kCigarOperators[5];
inline constexpr const CigarOperator& kOpP = kCigarOperators[6];
inline constexpr const CigarOperator& kOpEq = kCigarOperators[7];
inline constexpr const CigarOperator& kOpX = kCigarOperators[8];

using CigarElement = std::pair<uint32_t, const CigarOperator*>;  // length, operator (never null)
using CigarElements = std::vector<CigarElement>;

// Adds an element at the end: joined to the last one when that has the same operator, nothing for length 0.
void appendElement(CigarElements& cigar, uint32_t length, const CigarOperator& op);

uint64_t cigarReadLength(const CigarElements& cigar);       // bases of the read, clipped ones included
uint64_t cigarReferenceLength(const CigarElements& cigar);  // bases of the reference
std::string cigarText(const CigarElements& cigar);          // "%u%c" per element
