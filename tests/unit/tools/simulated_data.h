// simulated_data.h - one simulation that the tests share, and its files read back with nothing of the
// generator's own.
#pragma once

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/text.h"
#include "readdata/bam/bam_impl.h"
#include "simulate.h"
#include "temp_folder.h"

struct ReadBack {
  std::string name;
  int32_t contig, start, mate_contig, mate_start, tlen;
  uint16_t flag;
  uint8_t mapq;
  Cigar cigar;
  std::string bases;
  std::vector<uint8_t> quals;
  std::map<std::string, std::string> tags;

  bool is(uint16_t bit) const { return (flag & bit) != 0; }
  bool primary() const { return !is(FLAG_SECONDARY) && !is(FLAG_SUPPLEMENTARY); }
  bool has(CigarOp op) const {
    for (uint32_t word : cigar)
      if (cigarOp(word) == op) return true;
    return false;
  }
  std::string cigarText() const {
    return cigarString(reinterpret_cast<const uint8_t*>(cigar.data()), static_cast<uint32_t>(cigar.size()));
  }
  int32_t end() const {
    int32_t end = start;
    for (uint32_t word : cigar)
      if (consumesReference(word)) end += static_cast<int32_t>(cigarLength(word));
    return end;
  }
};

inline ReadBack readBack(const bam_record& record) {
  ReadBack read{record.name(),
                record.ref_id,
                record.pos,
                record.next_ref_id,
                record.next_pos,
                record.tlen,
                record.flag,
                record.mapq,
                {},
                {},
                {},
                {}};
  for (uint32_t i = 0; i < record.n_cigar; ++i) read.cigar.push_back(record.cigarWord(i));
  for (int32_t i = 0; i < record.l_seq; ++i)
    read.bases += kBaseCodes[record.packedBases()[i / 2] >> (i % 2 ? 0 : 4) & 15];
  read.quals.assign(record.quals(), record.quals() + record.l_seq);
  for (const char* tag : {"MC", "MD", "RG", "SA"})
    if (const uint8_t* type = aux_find(record, tag)) read.tags[tag] = aux_text(type);
  for (const char* tag : {"NM", "MQ"})
    if (const uint8_t* type = aux_find(record, tag)) read.tags[tag] = std::to_string(aux_int(type));
  return read;
}

inline std::vector<ReadBack> readBam(const std::string& path, std::string* header_text = nullptr) {
  BAMImpl bam(path);
  bam.open("r");
  bam.readHeader();
  if (header_text != nullptr) *header_text = bam.header->text;
  std::vector<ReadBack> reads;
  for (bam_record record; bam.readRecord(record) > 0;) reads.push_back(readBack(record));
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

inline uint64_t tallied(const Tally& tally, const std::string& what) {
  for (const auto& [name, count] : tally)
    if (name == what) return count;
  ADD_FAILURE() << "no count of " << what;
  return 0;
}

// Three samples (the third the child of the others), four contigs, the third of them without reads.
struct SimulatedData {
  SimulatedData() {
    options =
        parseOptions({"--out-dir", folder.path("a"), "--contigs", "chr1:60000,chr2:20000,chr3:5000,chr4:8000",
                      "--depth", "40", "--samples", "3", "--seed", "11", "--flag-duplicates", "--indel-rate",
                      "0.0008", "--snp-rate", "0.002"});
    summary = simulate(options);
    for (const std::string& sample : options.samples)
      reads.push_back(readBam(OutputPaths(options).sampleBam(sample)));
  }

  static const SimulatedData& get() {
    static const SimulatedData data;
    return data;
  }

  TempFolder folder;
  SimulateOptions options;
  Summary summary;
  std::vector<std::vector<ReadBack>> reads;  // per sample, in file order
};
