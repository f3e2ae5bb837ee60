#include "readdata/stream/block_lz.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

#include "readdata/stream/huffman_code.h"

namespace {

constexpr int kMinMatch = 8;  // bytes that are hashed, and equal at the least
constexpr int kMaxBack = 64;  // bytes by which a match grows to the front
constexpr int kTail = 12;     // bytes at the end where no match begins
constexpr uint32_t kWindow = 32768;
constexpr int kStepShift = 5;   // a step is one byte longer after every 32 failures in a row
constexpr int kCodeShift = 24;  // in a word: code below, its length above
constexpr uint32_t kCodeMask = (1u << kCodeShift) - 1;
constexpr uint64_t kHashFactor = 0x9E3779B97F4A7C15;

constexpr size_t kLiteralCodes = 286, kDistanceCodes = 30, kLengthCodes = 19;
constexpr size_t kEndOfBlock = 256, kFirstLength = 257;
constexpr int kCodeLimit = 14;  // four literals and 7 waiting bits in 63
constexpr int kLengthCodeLimit = 7;
constexpr uint32_t kMaxDistanceExtra = 13, kMaxLengthExtra = 5;
static_assert(4 * kCodeLimit + 7 <= 63);
static_assert(2 * kCodeLimit + kMaxDistanceExtra + kMaxLengthExtra + 7 <= 63);
static_assert(kCodeLimit + kMaxLengthExtra <= kCodeShift);

uint64_t load64(const uint8_t* at) {
  uint64_t value;
  memcpy(&value, at, sizeof value);
  return value;
}

uint32_t codeWord(uint32_t code, uint32_t length) {
  return code | length << kCodeShift;
}

struct Symbol {
  uint32_t symbol, extra_bits, extra;
};

[[gnu::always_inline]] inline Symbol distanceSymbol(uint32_t distance) {
  const uint32_t value = distance - 1;
  if (value < 4) return {value, 0, 0};
  const uint32_t bits = uint32_t(std::bit_width(value)) - 2;
  return {2 * bits + (value >> bits), bits, value & ((1u << bits) - 1)};
}

Symbol lengthSymbol(uint32_t length) {
  if (length == 258) return {285, 0, 0};
  const uint32_t value = length - 3;
  if (value < 8) return {uint32_t(kFirstLength) + value, 0, 0};
  const uint32_t bits = uint32_t(std::bit_width(value)) - 3;
  return {uint32_t(kFirstLength) + 4 * bits + (value >> bits), bits, value & ((1u << bits) - 1)};
}

// Where the equal bytes from `a` and `b` on end, in terms of `a`, at `end` at the latest.
[[gnu::always_inline]] inline const uint8_t* matchEnd(const uint8_t* a, const uint8_t* b,
                                                      const uint8_t* end) {
  for (; end - a >= 8; a += 8, b += 8)
    if (uint64_t difference = load64(a) ^ load64(b)) return a + (std::countr_zero(difference) >> 3);
  while (a < end && *a == *b) ++a, ++b;
  return a;
}

// Cuts the input into literals and matches, which go to `sink`. False when that has no more room.
template <class Sink>
[[gnu::always_inline]] inline bool parse(const uint8_t* input, size_t size, MatchFinder& finder, Sink& sink) {
  uint16_t* const last_place = finder.last_place.data();
  finder.last_place.fill(0);
  const uint8_t *literals = input, *const end = input + size;
  if (size <= kTail + 1) return sink.literals(literals, end);
  constexpr int kUnhashed = 64 - 8 * kMinMatch;
  auto slot = [last_place](uint64_t bytes) {
    return last_place + ((bytes << kUnhashed) * kHashFactor >> (64 - MatchFinder::kHashBits));
  };
  auto remember = [&](const uint8_t* place) { *slot(load64(place)) = uint16_t(place - input); };
  const uint8_t* const limit = end - kTail;
  for (const uint8_t* at = input + 1; at < limit;) {
    const uint8_t* match;
    for (uint32_t failures = 1u << kStepShift;;) {
      const uint64_t bytes = load64(at);
      uint16_t* place = slot(bytes);
      match = input + *place;
      *place = uint16_t(at - input);
      if ((load64(match) ^ bytes) << kUnhashed == 0 && uint32_t(at - match) <= kWindow) break;
      at += failures++ >> kStepShift;
      if (at >= limit) return sink.literals(literals, end);
    }
    const uint8_t* const back_limit = at - std::min<ptrdiff_t>({kMaxBack, at - literals, match - input});
    while (at > back_limit && at[-1] == match[-1]) --at, --match;
    const uint8_t* begin = at;
    at = matchEnd(at + kMinMatch, match + kMinMatch, begin + std::min<ptrdiff_t>(end - begin, 258));
    if (!sink.literals(literals, begin)) return false;
    sink.match(uint32_t(at - begin), uint32_t(begin - match));
    literals = at;
    if (at >= limit) break;
    for (int offset : {1, 2, 4}) {
      remember(begin + offset);
      remember(at - offset);
    }
  }
  return sink.literals(literals, end);
}

}  // namespace

class FastLzTables::Counter {
 public:
  bool literals(const uint8_t* from, const uint8_t* to) {
    for (; from < to; ++from) ++symbols[*from];
    return true;
  }
  void match(uint32_t length, uint32_t distance) {
    ++symbols[lengthSymbol(length).symbol];
    ++symbols[kLiteralCodes + distanceSymbol(distance).symbol];
  }

  std::array<uint32_t, kLiteralCodes + kDistanceCodes> symbols;
};

// Puts codes into the output, whole bytes at a time; up to 7 bits wait.
class FastLzTables::Writer {
 public:
  [[gnu::always_inline]] Writer(const FastLzTables& tables, BitTail tail, uint8_t* output, size_t room)
      : tables_(tables), next_(output), end_(output + room), bits_(tail.bits), waiting_(tail.count) {}

  [[gnu::always_inline]] void header(bool last) {
    put(last, 1);
    flush();
    uint32_t left = tables_.header_bits_;
    for (const uint32_t* word = tables_.header_.data(); left > 0; ++word) {
      const uint32_t count = std::min(left, 32u);
      put(*word, count);
      flush();
      left -= count;
    }
  }

  // Leaves room for a match and the end.
  [[gnu::always_inline]] bool literals(const uint8_t* from, const uint8_t* to) {
    if (size_t(end_ - next_) < 2 * size_t(to - from) + kSlack) return false;
    for (; to - from >= 4; from += 4) {
      const uint32_t a = tables_.literals_[from[0]], b = tables_.literals_[from[1]];
      const uint32_t c = tables_.literals_[from[2]], d = tables_.literals_[from[3]];
      const uint32_t ab = (a >> kCodeShift) + (b >> kCodeShift), cd = (c >> kCodeShift) + (d >> kCodeShift);
      put(both(a, b) | both(c, d) << ab, ab + cd);
      flush();
    }
    for (; from < to; ++from) putWord(tables_.literals_[*from]);
    flush();
    return true;
  }

  [[gnu::always_inline]] void match(uint32_t length, uint32_t distance) {
    putWord(tables_.lengths_[length]);
    const Symbol symbol = distanceSymbol(distance);
    putWord(tables_.distances_[symbol.symbol]);
    put(symbol.extra, symbol.extra_bits);
    flush();
  }

  // The end of the bytes made.
  [[gnu::always_inline]] uint8_t* finish(bool last, BitTail* tail) {
    putWord(tables_.literals_[kEndOfBlock]);
    flush();
    *tail = last ? BitTail{} : BitTail{uint32_t(bits_), waiting_};
    return next_ + (last && waiting_ > 0);
  }

 private:
  [[gnu::always_inline]] static uint64_t both(uint32_t a, uint32_t b) {
    return (a & kCodeMask) | uint64_t(b & kCodeMask) << (a >> kCodeShift);
  }
  [[gnu::always_inline]] void put(uint64_t bits, uint32_t count) {
    bits_ |= bits << waiting_;
    waiting_ += count;
  }
  [[gnu::always_inline]] void putWord(uint32_t word) { put(word & kCodeMask, word >> kCodeShift); }
  [[gnu::always_inline]] void flush() {
    memcpy(next_, &bits_, sizeof bits_);
    next_ += waiting_ >> 3;
    bits_ >>= waiting_ & ~7u;
    waiting_ &= 7;
  }

  const FastLzTables& tables_;
  uint8_t* next_;
  uint8_t* end_;
  uint64_t bits_;
  uint32_t waiting_;
};

namespace {

struct Job {
  const uint8_t* input;
  size_t size;
  bool last;
  BitTail* tail;
  uint8_t* output;
  size_t room;
};

[[gnu::always_inline]] inline size_t makeBlock(const FastLzTables& tables, const Job& job,
                                               MatchFinder& finder) {
  FastLzTables::Writer writer(tables, *job.tail, job.output, job.room);
  writer.header(job.last);
  if (!parse(job.input, job.size, finder, writer)) return 0;
  return size_t(writer.finish(job.last, job.tail) - job.output);
}

// The same code, compiled twice: shifts by a variable are what it mostly does, and they are cheaper with BMI2.
size_t makeBlockPlain(const FastLzTables& tables, const Job& job, MatchFinder& finder) {
  return makeBlock(tables, job, finder);
}

[[gnu::target("bmi,bmi2")]] size_t makeBlockBmi2(const FastLzTables& tables, const Job& job,
                                                 MatchFinder& finder) {
  return makeBlock(tables, job, finder);
}

}  // namespace

bool cpuHasBmi2() {
  static const bool has = __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
  return has;
}

FastLzTables::FastLzTables(const uint8_t* sample, size_t size) {
  auto finder = std::make_unique<MatchFinder>();
  Counter counter;
  counter.symbols.fill(1);
  parse(sample, std::min(size, kMaxInput), *finder, counter);
  std::array<uint8_t, kLiteralCodes + kDistanceCodes> lengths;
  std::array<uint16_t, kLiteralCodes + kDistanceCodes> codes;
  auto makeCodes = [&](size_t from, size_t count) {
    huffmanLengths(counter.symbols.data() + from, count, kCodeLimit, lengths.data() + from);
    huffmanCodes(lengths.data() + from, count, codes.data() + from);
  };
  makeCodes(0, kLiteralCodes);
  makeCodes(kLiteralCodes, kDistanceCodes);
  for (size_t i = 0; i < literals_.size(); ++i) literals_[i] = codeWord(codes[i], lengths[i]);
  lengths_.fill(0);
  for (uint32_t length = 3; length <= kMaxMatch; ++length) {
    const Symbol symbol = lengthSymbol(length);
    const uint32_t bits = lengths[symbol.symbol];
    lengths_[length] = codeWord(codes[symbol.symbol] | symbol.extra << bits, bits + symbol.extra_bits);
  }
  for (size_t i = 0; i < kDistanceCodes; ++i)
    distances_[i] = codeWord(codes[kLiteralCodes + i], lengths[kLiteralCodes + i]);
  makeHeader(lengths.data());
}

// All that stands before the first code, but for the mark of the last block. Code lengths are themselves written in
// a Huffman code, whose symbol 16 repeats the one before 3 to 6 times.
void FastLzTables::makeHeader(const uint8_t* lengths) {
  auto put = [this](uint32_t bits, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i, ++header_bits_)
      header_[header_bits_ / 32] |= (bits >> i & 1) << header_bits_ % 32;
  };
  constexpr uint32_t kDynamicCodes = 2, kRepeat = 16, kMinRepeat = 3, kMaxRepeat = 6;
  constexpr size_t kCount = kLiteralCodes + kDistanceCodes;
  auto tell = [lengths](auto&& symbol) {
    for (size_t i = 0; i < kCount;) {
      size_t run = 0;
      while (i > 0 && run < kMaxRepeat && i + run < kCount && lengths[i + run] == lengths[i - 1]) ++run;
      if (run >= kMinRepeat) {
        symbol(kRepeat, uint32_t(run - kMinRepeat), 2);
        i += run;
      } else {
        symbol(lengths[i++], 0, 0);
      }
    }
  };
  uint32_t counts[kLengthCodes] = {};
  uint8_t code_lengths[kLengthCodes];
  uint16_t codes[kLengthCodes] = {};
  tell([&](uint32_t symbol, uint32_t, uint32_t) { ++counts[symbol]; });
  huffmanLengths(counts, kLengthCodes, kLengthCodeLimit, code_lengths);
  huffmanCodes(code_lengths, kLengthCodes, codes);
  put(kDynamicCodes, 2);
  put(kLiteralCodes - 257, 5);
  put(kDistanceCodes - 1, 5);
  put(kLengthCodes - 4, 4);
  constexpr uint8_t kOrder[kLengthCodes] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
  for (uint8_t symbol : kOrder) put(code_lengths[symbol], 3);
  tell([&](uint32_t symbol, uint32_t extra, uint32_t extra_bits) {
    put(codes[symbol], code_lengths[symbol]);
    put(extra, extra_bits);
  });
}

size_t FastLzTables::compress(const uint8_t* input, size_t size, bool last, BitTail* tail, uint8_t* output,
                              size_t room, MatchFinder* finder, bool bmi2) const {
  if (size > kMaxInput || room < kMaxHeader + kSlack) return 0;
  const Job job = {input, size, last, tail, output, room};
  return (bmi2 ? makeBlockBmi2 : makeBlockPlain)(*this, job, *finder);
}
