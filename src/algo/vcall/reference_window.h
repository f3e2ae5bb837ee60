// reference_window.h - the reference bases around a region, and those around where a thread is at work.
// Coords   zero-based half open.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <string>

#include "readdata/ref/fasta_file.h"

struct ReferenceWindow {
  std::string bases;  // upper case
  uint32_t start = 0;

  uint32_t end() const { return start + static_cast<uint32_t>(bases.size()); }
  bool contains(uint32_t position) const { return position >= start && position < end(); }
  char at(uint32_t position) const { return bases[position - start]; }
  const char* from(uint32_t position) const { return bases.data() + (position - start); }
};

// A window that moves on with the work, and is read ahead.
struct MovingReference : ReferenceWindow {
  std::string contig;

  bool holds(const char* of, uint32_t from, uint32_t to) const {
    return contig == of && from >= start && to <= end();
  }
  // Makes it hold [from, to), which lies within the contig: when it does not, it begins at `from` and goes on behind `to`
  // as far as a batch and the contig reach. Throws std::runtime_error that names contig and file.
  void hold(FastaFile& file, const char* of, uint32_t from, uint32_t to);
};
