// emission.h - when a read base and a haplotype base agree.
#pragma once

#include <cstdint>

inline constexpr uint8_t kAnyBase = 'N';

inline bool basesMatch(uint8_t a, uint8_t b) {
  return a == b || a == kAnyBase || b == kAnyBase;
}
