// bases.h - the four bases as indexes.
// Threads  pure functions over a constant table.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

inline constexpr uint8_t kNoBase = 4;

inline constexpr std::array<uint8_t, 256> kBaseIndexes = [] {
  std::array<uint8_t, 256> indexes{};
  indexes.fill(kNoBase);
  for (uint8_t i = 0; i < 4; ++i) indexes[static_cast<uint8_t>("ACGT"[i])] = i;
  return indexes;
}();

// The index in "ACGT"; kNoBase for every other byte, lower case too.
constexpr uint8_t baseIndex(char base) {
  return kBaseIndexes[static_cast<uint8_t>(base)];
}
constexpr bool isBase(char base) {
  return baseIndex(base) != kNoBase;
}
constexpr bool allBases(std::string_view text) {
  for (char c : text)
    if (!isBase(c)) return false;
  return true;
}
