// random_cigar.h - valid CIGARs of any shape for tests, from a seed.
#pragma once

#include <random>
#include <string>

#include "read_builder.h"

// Clips at the ends, between them up to `ops` random operators of `letters`, each of 1 to `longest`.
inline Cigar randomCigar(std::mt19937& random, int ops, uint32_t longest, const std::string& letters) {
  auto number = [&random](uint32_t from, uint32_t to) {
    return std::uniform_int_distribution<uint32_t>(from, to)(random);
  };
  Cigar words;
  auto add = [&](uint32_t op) { words.push_back(number(1, longest) << 4 | op); };
  if (number(0, 3) == 0) add(CIGAR_H);
  if (number(0, 2) == 0) add(CIGAR_S);
  for (uint32_t left = number(1, uint32_t(ops)); left > 0; --left)
    add(uint32_t(strchr(kCigarOps, letters[number(0, uint32_t(letters.size()) - 1)]) - kCigarOps));
  if (number(0, 2) == 0) add(CIGAR_S);
  if (number(0, 3) == 0) add(CIGAR_H);
  return words;
}
