// bam_files.h - BAM files put together byte by byte, with zlib alone, to judge our own reader and writer by.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "zlib_blocks.h"

struct RawContig {
  std::string name;
  int32_t length;
};

// A record as plain values. Sequence and qualities are made from the name.
struct RawRead {
  std::string name = "r";
  int32_t ref_id = 0, pos = 0;
  std::vector<uint32_t> cigar;  // length << 4 | op
  uint16_t flag = 0;
  int32_t l_seq = 0;
  int32_t next_ref_id = -1, next_pos = -1, tlen = 0;
  std::string aux;

  int64_t end() const {
    int64_t span = 0;
    for (uint32_t word : cigar)
      if (std::string_view("\0\2\3\7\x8", 5).find(static_cast<char>(word & 15)) != std::string_view::npos)
        span += word >> 4;
    return pos + std::max<int64_t>(span, 1);
  }
  bool overlaps(int32_t contig, int64_t from, int64_t to) const {
    return ref_id == contig && pos < to && end() > from;
  }
  // With the block size in front.
  std::string bytes() const {
    std::string tail = name + '\0';
    for (uint32_t word : cigar) tail += littleBytes(word, 4);
    for (int32_t i = 0; i < (l_seq + 1) / 2; ++i) tail += static_cast<char>(0x11 << (name.size() + i) % 4);
    for (int32_t i = 0; i < l_seq; ++i) tail += static_cast<char>(2 + (name.back() + i) % 40);
    tail += aux;
    std::string fixed = littleBytes(ref_id, 4) + littleBytes(pos, 4) +
                        littleBytes(static_cast<uint32_t>(name.size() + 1), 1) + littleBytes(60, 1) +
                        littleBytes(ref_id < 0 ? 4680 : bin(), 2) +
                        littleBytes(static_cast<uint32_t>(cigar.size()), 2) + littleBytes(flag, 2) +
                        littleBytes(l_seq, 4) + littleBytes(next_ref_id, 4) + littleBytes(next_pos, 4) +
                        littleBytes(tlen, 4);
    return littleBytes(static_cast<uint32_t>(fixed.size() + tail.size()), 4) + fixed + tail;
  }
  // The smallest bin that holds the read, looked for from the narrow ones up.
  uint32_t bin() const {
    int64_t first = pos, last = end() - 1;
    uint32_t offset = 4681, count = 32768;
    for (int shift = 14; shift < 29; shift += 3) {
      if (first >> shift == last >> shift) return offset + static_cast<uint32_t>(first >> shift);
      count >>= 3;
      offset -= count;
    }
    return 0;
  }
};

inline std::string headerBytes(const std::vector<RawContig>& contigs, const std::string& text) {
  std::string bytes = "BAM\1" + littleBytes(static_cast<uint32_t>(text.size()), 4) + text +
                      littleBytes(static_cast<uint32_t>(contigs.size()), 4);
  for (const RawContig& contig : contigs)
    bytes += littleBytes(static_cast<uint32_t>(contig.name.size() + 1), 4) + contig.name + '\0' +
             littleBytes(contig.length, 4);
  return bytes;
}

inline std::string headerText(const std::vector<RawContig>& contigs) {
  std::string text = "@HD\tVN:1.5\tSO:coordinate\n";
  for (const RawContig& contig : contigs)
    text += "@SQ\tSN:" + contig.name + "\tLN:" + std::to_string(contig.length) + "\n";
  return text + "@RG\tID:g\tSM:s\n";
}

// The bytes as blocks of `block` bytes, records crossing their borders, with the end marker.
inline std::string inBlocks(const std::string& bytes, size_t block = 0xff00) {
  std::string file;
  for (size_t at = 0; at < bytes.size(); at += block) file += zlibBlock(bytes.substr(at, block));
  return file + endMarker();
}

inline std::string rawBam(const std::vector<RawContig>& contigs, const std::vector<RawRead>& reads) {
  std::string bytes = headerBytes(contigs, headerText(contigs));
  for (const RawRead& read : reads) bytes += read.bytes();
  return bytes;
}

// Contigs of all sizes; the second, fourth and last get no reads.
inline const std::vector<RawContig>& sampleContigs() {
  static const std::vector<RawContig> contigs = {{"big", 3000000}, {"none", 500},       {"small", 70000},
                                                 {"void", 90000},  {"wide", 200000000}, {"tiny", 151},
                                                 {"last", 40000}};
  return contigs;
}

// Sorted reads: crowds and gaps, deletions, reads that skip 300 kb, placed reads without CIGAR, and
// `unplaced` reads at the end. Names are their numbers.
inline std::vector<RawRead> sampleReads(size_t count, size_t unplaced, uint32_t seed) {
  std::mt19937 random(seed);
  const int32_t used[] = {0, 2, 4, 5};
  std::vector<RawRead> reads;
  uint32_t crowd = 0;
  for (size_t i = 0; i < count; ++i) {
    RawRead read;
    read.ref_id = used[random() % 4];
    auto length = static_cast<uint32_t>(sampleContigs()[read.ref_id].length);
    if (random() % 50 == 0) crowd = random();
    read.pos =
        static_cast<int32_t>((random() % 3 != 0 ? crowd % length + random() % 300 : random()) % length);
    read.l_seq = 20 + static_cast<int32_t>(random() % 100);
    uint32_t bases = read.l_seq;
    switch (random() % 12) {
      case 0:
        read.flag = 4;  // placed beside its mate
        break;
      case 1:
        read.cigar = {5 << 4 | 4, (bases - 10) << 4 | 0, 7 << 4 | 2, 5 << 4 | 0};
        break;
      case 2:
        if (random() % 4 == 0) {
          read.cigar = {10 << 4 | 0, 300000 << 4 | 3, (bases - 10) << 4 | 7};
          break;
        }
        [[fallthrough]];
      default:
        read.cigar = {bases << 4 | 0};
    }
    reads.push_back(read);
  }
  std::stable_sort(reads.begin(), reads.end(), [](const RawRead& a, const RawRead& b) {
    return a.ref_id != b.ref_id ? a.ref_id < b.ref_id : a.pos < b.pos;
  });
  for (size_t i = 0; i < unplaced; ++i) {
    RawRead read;
    read.ref_id = read.pos = -1;
    read.flag = 4;
    read.l_seq = 50;
    reads.push_back(read);
  }
  for (size_t i = 0; i < reads.size(); ++i) {
    reads[i].name = std::to_string(i);
    reads[i].aux = std::string("RGZg", 5);
  }
  return reads;
}
