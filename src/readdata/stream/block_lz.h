// block_lz.h - deflate blocks in one pass, with Huffman codes that were made beforehand from data of the same kind:
// the kernel of the fast path. Looks only for matches of several bytes, and at ever fewer places where none turn up.
// Source   the deflate format, RFC 1951; a hash table of last places and growing steps as in other fast LZ77
//          compressors.
// Threads  codes may be used by many threads; a finder belongs to one at a time.
// Bytes    depend on codes and input alone, not on the processor.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Last place in the input of what hashes alike.
class MatchFinder {
 public:
  static constexpr int kHashBits = 14;
  std::array<uint16_t, size_t(1) << kHashBits> last_place;
};

// The bits of a stream that do not fill a byte yet, the first one lowest.
struct BitTail {
  uint32_t bits = 0;
  uint32_t count = 0;  // at most 7
};

// True when the processor has the BMI2 instructions, with which the kernel is some percent faster. Read once.
bool cpuHasBmi2();

// Deflate codes that fit data like a sample, whatever that is: all symbols have one.
class FastLzTables {
 public:
  static constexpr size_t kMaxInput = 65536;  // of a deflate block, and of the sample
  static constexpr size_t kMaxHeader = 384;   // bytes that tell the codes
  static constexpr size_t kSlack = 32;        // for a match, the end, and words written whole
  static constexpr size_t kSafeRoom = kMaxHeader + 2 * kMaxInput + kSlack;  // output that surely suffices

  FastLzTables(const uint8_t* sample, size_t size);

  // Makes a deflate block behind the bits of `tail`, and leaves those of the last begun byte there, unless the block
  // is the last one, which fills it up. The bytes made, or 0 with nothing changed but the output when the room might
  // not suffice. `bmi2` needs cpuHasBmi2().
  size_t compress(const uint8_t* input, size_t size, bool last, BitTail* tail, uint8_t* output, size_t room,
                  MatchFinder* finder, bool bmi2) const;

  class Counter;
  class Writer;

 private:
  static constexpr int kMaxMatch = 258;

  void makeHeader(const uint8_t* lengths);

  // In a word: the bits of a code and its extra bits, their number above.
  std::array<uint32_t, 257> literals_;  // the last one ends the block
  std::array<uint32_t, kMaxMatch + 1> lengths_;
  std::array<uint32_t, 30> distances_;                // without extra bits
  std::array<uint32_t, kMaxHeader / 4> header_ = {};  // in the order of bits; not of a last block
  uint32_t header_bits_ = 0;
};
