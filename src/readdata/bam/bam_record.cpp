// bam_record.cpp - memory, checks, positions and bases of a record.
#include "readdata/bam/bam_record.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "readdata/stream/genome_bins.h"

static_assert(offsetof(bam_record, tlen) + sizeof(int32_t) == bam_record::kFixedSize);

bam_record::~bam_record() {
  free(data);
}

void bam_record::swap(bam_record& other) noexcept {
  uint8_t fixed[kFixedSize];
  memcpy(fixed, fixedBlock(), kFixedSize);
  memcpy(fixedBlock(), other.fixedBlock(), kFixedSize);
  memcpy(other.fixedBlock(), fixed, kFixedSize);
  std::swap(l_aux, other.l_aux);
  std::swap(data_len, other.data_len);
  std::swap(data_capacity, other.data_capacity);
  std::swap(data, other.data);
}

uint32_t bam_record::cigarWord(uint32_t i) const {
  uint32_t word;
  memcpy(&word, cigarBytes() + 4 * size_t(i), sizeof word);
  return word;
}

void bam_record::growData(size_t capacity) {
  if (capacity <= size_t(data_capacity)) return;
  if (capacity > INT32_MAX) throw std::bad_alloc();
  size_t room = std::min<size_t>(std::bit_ceil(capacity), INT32_MAX);
  void* grown = realloc(data, room);
  if (!grown) throw std::bad_alloc();
  data = static_cast<uint8_t*>(grown);
  data_capacity = int32_t(room);
}

namespace {

const char* checkCigar(const bam_record& record) {
  const uint8_t* bytes = record.cigarBytes();
  int64_t bases = 0, end = record.pos;
  int64_t furthest = end + (record.n_cigar == 0);  // a read without CIGAR takes one base
  for (uint32_t i = 0; i < record.n_cigar; ++i, bytes += 4) {
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    if (cigarOp(word) > CIGAR_B) return "unknown CIGAR operator";
    int64_t length = cigarLength(word);
    if (consumesRead(word)) bases += length;
    if (consumesReference(word)) end += length;
    if (cigarOp(word) == CIGAR_B) end -= length;
    furthest = std::max(furthest, end);
  }
  if (bases != record.l_seq && record.l_seq > 0 && record.n_cigar > 0)
    return "CIGAR and sequence differ in length";
  if (furthest > INT32_MAX) return "alignment end out of range";
  return nullptr;
}

}  // namespace

const char* check(bam_record& record) {
  if (record.l_read_name == 0) return "name length 0";
  if (record.l_seq < 0) return "sequence length is negative";
  if (record.pos < -1) return "position out of range";
  int64_t used = record.l_read_name + 4 * int64_t(record.n_cigar);
  if (used > record.data_len) return "name and CIGAR are longer than the record";
  used += (int64_t(record.l_seq) + 1) / 2 + record.l_seq;
  if (used > record.data_len) return "sequence is longer than the record";
  if (record.data[record.l_read_name - 1] != 0) return "name without terminating zero";
  record.l_aux = int32_t(record.data_len - used);
  return checkCigar(record);
}

void copy_record(bam_record& to, const bam_record& from) {
  if (&to == &from) return;
  if (to.data_capacity < from.data_len) {
    to.data_len = 0;
    free(std::exchange(to.data, nullptr));  // nothing of the old contents need be moved
    to.data_capacity = 0;
    to.growData(from.data_len);
  }
  memcpy(to.fixedBlock(), from.fixedBlock(), bam_record::kFixedSize);
  to.l_aux = from.l_aux;
  to.data_len = from.data_len;
  if (from.data_len > 0) memcpy(to.data, from.data, from.data_len);
}

int64_t alignment_end(const bam_record& record) {
  int64_t end = record.pos;
  for (uint32_t i = 0; i < record.n_cigar; ++i) {
    uint32_t word = record.cigarWord(i);
    if (consumesReference(word)) end += cigarLength(word);
    if (cigarOp(word) == CIGAR_B) end -= cigarLength(word);
  }
  return std::max<int64_t>(end, record.pos);
}

uint16_t bin_of(uint32_t start, uint32_t end) {
  if (start > INT32_MAX) return 4680;
  return uint16_t(smallestBin(start, end));
}

std::string cigarString(const uint8_t* words, uint32_t count) {
  std::string text;
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t word;
    memcpy(&word, words + 4 * size_t(i), sizeof word);
    text += std::to_string(cigarLength(word));
    text += cigarOp(word) <= CIGAR_B ? kCigarOps[cigarOp(word)] : '?';
  }
  return text;
}

int64_t compare_pair(const bam_record& a, const bam_record& b) {
  if ((a.flag | b.flag) & FLAG_UNMAPPED || a.ref_id != b.ref_id || a.ref_id < 0) return 0;
  auto fivePrime = [](const bam_record& r) {
    return r.flag & FLAG_REVERSE ? alignment_end(r) : int64_t(r.pos);
  };
  return fivePrime(b) - fivePrime(a);
}

namespace {

struct LetterPair {
  char letters[2];
};

constexpr std::array<LetterPair, 256> makeLetterPairs() {
  std::array<LetterPair, 256> pairs{};
  for (int byte = 0; byte < 256; ++byte) pairs[byte] = {{kBaseCodes[byte >> 4], kBaseCodes[byte & 15]}};
  return pairs;
}

constexpr std::array<uint8_t, 256> makeBaseCodeOfLetter() {
  std::array<uint8_t, 256> codes{};
  for (uint8_t& code : codes) code = 15;
  for (int code = 0; code < 16; ++code) {
    codes[uint8_t(kBaseCodes[code])] = uint8_t(code);
    if (code > 0) codes[uint8_t(kBaseCodes[code] + 'a' - 'A')] = uint8_t(code);
  }
  return codes;
}

constexpr auto kLetterPairs = makeLetterPairs();
constexpr auto kCodeOfLetter = makeBaseCodeOfLetter();

}  // namespace

void decodeBases(const uint8_t* packed, size_t length, char* letters) {
  size_t pairs = length / 2;
  for (size_t i = 0; i < pairs; ++i) memcpy(letters + 2 * i, kLetterPairs[packed[i]].letters, 2);
  if (length & 1) letters[length - 1] = kBaseCodes[packed[pairs] >> 4];
}

void bam_seq_encode(const char* letters, size_t length, uint8_t* packed) {
  size_t pairs = length / 2;
  auto code = [letters](size_t i) { return kCodeOfLetter[uint8_t(letters[i])]; };
  for (size_t i = 0; i < pairs; ++i) packed[i] = uint8_t(code(2 * i) << 4 | code(2 * i + 1));
  if (length & 1) packed[pairs] = uint8_t(code(length - 1) << 4);
}
