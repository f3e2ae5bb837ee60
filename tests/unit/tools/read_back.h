// read_back.h - what simulated files hold, as a reader of them sees it.
#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "base/text.h"
#include "readdata/bam/bam_impl.h"

inline std::string fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

struct ReadBack {
  int32_t contig, start;
  uint16_t flag;
  Cigar cigar;
  std::string bases;
  std::string name;

  int32_t end() const {
    int32_t end = start;
    for (uint32_t word : cigar)
      if (consumesReference(word)) end += static_cast<int32_t>(cigarLength(word));
    return end;
  }
};

// The reads of a BAM by which a genotype is judged.
inline std::vector<ReadBack> readBam(const std::string& path) {
  constexpr uint16_t kPassed = FLAG_UNMAPPED | FLAG_DUPLICATE | FLAG_SECONDARY | FLAG_SUPPLEMENTARY;
  BAMImpl bam(path);
  bam.open("r");
  bam.readHeader();
  std::vector<ReadBack> reads;
  for (bam_record record; bam.readRecord(record) > 0;) {
    if ((record.flag & kPassed) != 0) continue;
    ReadBack& read =
        reads.emplace_back(ReadBack{record.ref_id, record.pos, record.flag, {}, "", record.name()});
    for (uint32_t i = 0; i < record.n_cigar; ++i) read.cigar.push_back(record.cigarWord(i));
    read.bases.resize(size_t(record.l_seq));
    decodeBases(record.packedBases(), read.bases.size(), read.bases.data());
  }
  return reads;
}

// The columns of every line that is no header line.
inline std::vector<std::vector<std::string>> readVcf(const std::string& path) {
  BGZFHandle file;
  EXPECT_TRUE(file.openFile(path.c_str(), "r"));
  std::string text(1 << 22, 0);
  text.resize(static_cast<size_t>(file.read(text.data(), text.size())));
  std::vector<std::vector<std::string>> lines;
  for (const std::string& line : split(text, '\n'))
    if (!line.empty() && line[0] != '#') lines.push_back(split(line, '\t'));
  return lines;
}

// What a read says at a site: the sequence it has in place of `ref`, when it covers the site with room on
// both sides; else empty.
inline std::string alleleOf(const ReadBack& read, int32_t start, size_t ref_length) {
  constexpr int32_t kRoom = 6;
  auto stop = start + static_cast<int32_t>(ref_length);
  if (read.start > start - kRoom || read.end() < stop + kRoom) return "";
  std::string allele;
  int32_t place = read.start;
  size_t at = 0;
  for (uint32_t word : read.cigar) {
    for (uint32_t i = 0; i < cigarLength(word); ++i) {
      // An inserted base belongs to the reference base before it.
      int32_t belongs = consumesReference(word) ? place : place - 1;
      if (consumesRead(word) && cigarOp(word) != CIGAR_S && belongs >= start && belongs < stop)
        allele += read.bases[at];
      at += consumesRead(word);
      place += consumesReference(word) ? 1 : 0;
    }
  }
  return allele;
}

// Where in its bases a read has the base of a place in the reference, or -1.
inline int32_t offsetOf(const ReadBack& read, int32_t place) {
  int32_t at = 0, here = read.start;
  for (uint32_t word : read.cigar) {
    auto length = static_cast<int32_t>(cigarLength(word));
    if (consumesReference(word)) {
      if (place >= here && place < here + length) return consumesRead(word) ? at + place - here : -1;
      here += length;
    }
    if (consumesRead(word)) at += length;
  }
  return -1;
}
