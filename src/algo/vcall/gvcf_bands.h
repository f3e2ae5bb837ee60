// gvcf_bands.h - positions without a variant gathered into blocks by the band of their genotype quality.
// Coords   zero-based half open.
// Threads  one object per thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "readdata/vcf/gvcf_writer.h"

// No bound is higher, and no list longer. Genotype qualities end at 99.
inline constexpr int32_t kMaxGQBound = 1000;

// The bounds that a list like "1-60,60-99/10,99" stands for, ascending: a number, a range of numbers below its end, a
// range in steps. Empty for a list that is not one: also for one that is not ascending, begins below 1 or goes beyond
// kMaxGQBound.
std::vector<int32_t> parseGQBands(const std::string& text);

// Makes the blocks of one shard and keeps to what a GVCFWriter::Result must hold: the first block goes to the result
// when no record was before it, the last when none is behind it, all others to the writer.
//
// A block begins at the first position whose quality leaves the band of the one before, behind a record, and behind
// positions that nothing is known of. Qualities from the last bound on are one band. The positions at a shard's start
// that a deletion of the shard before takes away must not be reported: else the file depends on the cut.
class BandCollector {
 public:
  explicit BandCollector(std::vector<int32_t> bounds) : bounds_(std::move(bounds)) {}

  // The writer is open, its contig begun; the shard is [start, end).
  void startShard(GVCFWriter& writer, uint32_t start, uint32_t end);
  // The positions [start, end): `likelihoods` holds ploidy + 1 log10 values per position for 0, 1, ... copies of
  // anything else than the reference, `depth` the reads and `refBases` the base of each. Those that are written already,
  // and those before the shard, are passed over.
  void addRefConfidence(uint32_t start, uint32_t end, const char* refBases, const double* likelihoods,
                        const int32_t* depth, int ploidy);
  // Before a record at [start, end) is written: ends the open block, and the positions up to `end` count as written.
  // Throws std::logic_error for a record that begins inside a block.
  void beforeRecord(uint32_t start, uint32_t end);
  // Before all others: the positions up to `end` belong to a deletion that the shard before writes.
  void passOver(uint32_t end) { written_ = std::max(written_, end); }
  void finishShard(GVCFWriter::Result& result);

 private:
  void closeBlock();
  void openBlock(uint32_t position, int32_t quality, size_t values);

  std::vector<int32_t> bounds_;
  GVCFWriter* writer_ = nullptr;
  GQBlock head_, open_;
  uint32_t written_ = 0;  // all before has a record or a block
  uint32_t shardStart_ = 0, shardEnd_ = 0, lastRecordStart_ = 0;
  bool anyRecord_ = false, anyBlock_ = false;  // before the open block
};
