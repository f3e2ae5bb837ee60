// seeded_generator.h - draws that depend on a place alone: the same on every machine and at any thread count.
// Source   SplitMix64: Steele, Lea, Flood, OOPSLA 2014.
#pragma once

#include <cstdint>

class SeededGenerator {
 public:
  // The name and the number, hashed by FNV-1a.
  SeededGenerator(const char* name, uint32_t number) {
    const auto mix = [this](uint8_t byte) { state_ = (state_ ^ byte) * 0x100000001b3; };
    for (; *name != 0; ++name) mix(uint8_t(*name));
    for (int shift = 0; shift < 32; shift += 8) mix(uint8_t(number >> shift));
  }

  uint64_t below(uint64_t bound) {
    uint64_t z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
    z = (z ^ z >> 27) * 0x94d049bb133111eb;
    return (z ^ z >> 31) % bound;
  }

 private:
  uint64_t state_ = 0xcbf29ce484222325;
};
