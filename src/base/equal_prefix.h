// equal_prefix.h - how far two texts are equal.
// Threads  pure function.
#pragma once

#include <bit>
#include <cstdint>
#include <emmintrin.h>

// The number of leading bytes that `a` and `b`, of `length` bytes each, have in common.
inline uint32_t equalPrefix(const char* a, const char* b, uint32_t length) {
  uint32_t i = 0;
  for (; i + 16 <= length; i += 16) {
    const __m128i left = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
    const __m128i right = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
    const uint32_t equal = uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(left, right)));
    if (equal != 0xFFFF) return i + uint32_t(std::countr_one(equal));
  }
  while (i < length && a[i] == b[i]) ++i;
  return i;
}
