// read_clip.h - the part of a read that takes part in an evaluation.
// Coords   offsets in the read and positions on the contig, zero-based half open.
// Owns     nothing.
#pragma once

#include <cstdint>

#include "readdata/bam/read.h"

struct ReadClip {
  Read* read = nullptr;
  int32_t readStart = 0, readEnd = 0;  // offsets of the evaluated bases
  uint32_t refStart = 0, refEnd = 0;   // what that part spans of the reference
  int32_t sample = 0;                  // in the samples of the output

  int32_t length() const { return readEnd - readStart; }
};

// Phred of a base; one without quality counts with the mapping quality of its read.
inline uint8_t qualityAt(const Read& read, int32_t offset) {
  constexpr uint8_t kAbsent = 0xFF;
  return read.quals[offset] == kAbsent ? read.mapq : read.quals[offset];
}
