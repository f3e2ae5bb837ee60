// gq_block.h - a stretch of positions without a variant, whose genotype qualities lie in one band.
// Coords   zero-based half open.
// Threads  plain values.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "readdata/stream/io_handle.h"

struct GQBlock {
  int32_t low = -1, high = -1;  // bounds of GQ, `high` exclusive; -1 for an empty block
  uint32_t start = 0, end = 0;
  std::vector<int32_t> minPL;  // smallest value of each genotype over the block, phred
  std::vector<int32_t> GQ;     // one per position, as DP and ref
  std::vector<int32_t> DP;
  std::vector<char> ref;

  bool empty() const { return start >= end; }
  void reset(uint32_t position);      // empty, at `position`; storage is kept
  void cutStart(uint32_t new_start);  // drops the positions before `new_start`; minPL stays as it is
  void cutEnd(uint32_t new_end);      // drops the positions from `new_end` on
};

// Joins two blocks of which b1 is the earlier. What is joined ends up in b2, and b1 is then empty at b2's new start.
// Blocks that do not touch, or are of different bands, both stay; b1 keeps what both cover. Throws std::logic_error
// with the text of the broken condition.
void mergeGQBlock(GQBlock& b1, GQBlock& b2);

// The line "#FGQB..." by which a block travels through a file of text, with its newline.
std::string formatFGQB(const GQBlock& block, const std::string& contig);

using ContigLengths = std::map<std::string, int64_t>;  // bases

// Reads such a line where `stream` stands. When there is none the stream is put back, `block` is empty, `contig` too,
// and the result is true. False for a line that is not exactly as formatFGQB() writes it, or, when `lengths` are given,
// for a block that reaches beyond its contig. A short line may stand for as many positions as the contig has.
bool readFGQB(GQBlock& block, IOHandle& stream, std::string& contig, const ContigLengths* lengths = nullptr);
