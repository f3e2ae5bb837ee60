// gvcf_bands.h - positions without a variant gathered into blocks by the band of their genotype quality.
// Coords   zero-based half open.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "readdata/vcf/gvcf_writer.h"

// The bounds that a list like "1-60,60-99/10,99" stands for, ascending: a number, a range of numbers below its end, a
// range in steps. Empty for a list that is not one.
std::vector<int32_t> parseGQBands(const std::string& text);

// Makes the blocks of one shard and keeps to what a GVCFWriter::Result must hold: the first block goes to the result
// when no record was before it, the last when none is behind it, all others to the writer.
class BandCollector {
 public:
  explicit BandCollector(std::vector<int32_t> bounds) : bounds_(std::move(bounds)) {}

  void startShard(GVCFWriter& writer, uint32_t start);  // the writer is open, its contig begun
  // The positions [start, end): `likelihoods` holds ploidy + 1 log10 values per position for 0, 1, ... copies of
  // anything else than the reference, `depth` the reads and `refBases` the base of each. Those that are written already
  // are passed over.
  void addRefConfidence(uint32_t start, uint32_t end, const char* refBases, const double* likelihoods,
                        const int32_t* depth, int ploidy);
  // Before a record at [start, end) is written: ends the open block at `start`; the positions up to `end` count as
  // written.
  void beforeRecord(uint32_t start, uint32_t end);
  void finishShard(GVCFWriter::Result& result);

 private:
  std::vector<int32_t> bounds_;
  GVCFWriter* writer_ = nullptr;
  GQBlock head_, open_;
  uint32_t written_ = 0;  // all before has a record or a block
  uint32_t lastRecordStart_ = 0, shardStart_ = 0;
  bool anyRecord_ = false, anyBlock_ = false;
};
