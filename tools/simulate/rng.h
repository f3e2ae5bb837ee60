// rng.h - the one source of chance: xoshiro256** (Blackman and Vigna) seeded through splitmix64.
// The same seed gives the same numbers on every machine: integers only, no library distribution. Streams are
// keyed, so that what one fragment draws does not depend on how much another one drew.
// Threads  a value type; one owner each.
#pragma once

#include <cassert>
#include <cstdint>

// A probability as a threshold for 32 random bits; 2^32 is certainty.
using Chance = uint64_t;
constexpr Chance kCertain = Chance(1) << 32;
inline Chance chanceOf(double probability) {
  return static_cast<Chance>(probability * static_cast<double>(kCertain));
}

inline uint64_t splitmix64(uint64_t& state) {
  uint64_t z = (state += 0x9E3779B97F4A7C15u);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

class Rng {
 public:
  // `stream` and `item` name a purpose and a thing within it: other keys, independent numbers.
  explicit Rng(uint64_t seed, uint64_t stream = 0, uint64_t item = 0) {
    uint64_t state = seed;
    state = splitmix64(state) ^ stream;
    state = splitmix64(state) ^ item;
    for (uint64_t& word : state_) word = splitmix64(state);
  }

  uint64_t next() {
    uint64_t result = rotate(state_[1] * 5, 7) * 9;
    uint64_t t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = rotate(state_[3], 45);
    return result;
  }
  uint32_t bits32() { return static_cast<uint32_t>(next() >> 32); }

  // Uniform in [0, limit), by multiplication; the bias is below limit / 2^32.
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>((uint64_t(bits32()) * limit) >> 32); }
  // Uniform in [from, to], both included.
  int32_t between(int32_t from, int32_t to) {
    assert(from <= to);
    return from + static_cast<int32_t>(below(static_cast<uint32_t>(to - from) + 1));
  }
  bool happens(Chance chance) { return bits32() < chance; }
  bool oneIn(uint32_t n) { return below(n) == 0; }

  // Nearly normal: the sum of twelve uniform numbers, whose standard deviation is one.
  int32_t normal(int32_t mean, int32_t sd) {
    int64_t sum = 0;
    for (int i = 0; i < 3; ++i)
      for (uint64_t word = next(), k = 0; k < 4; ++k, word >>= 16) sum += static_cast<int64_t>(word & 0xFFFF);
    int64_t scaled = (sum - 6 * 65536) * sd;
    return mean + static_cast<int32_t>((scaled + (scaled < 0 ? -32768 : 32768)) / 65536);
  }

 private:
  static uint64_t rotate(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }
  uint64_t state_[4] = {};
};
