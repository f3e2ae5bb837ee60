// shard.h - the piece of the genome that one thread walks at a time.
// Coords   zero-based half open.
#pragma once

#include <cstdint>

#include "readdata/interval/interval.h"

// An entry of the run's contig or interval list: what the pieces that are traversed were cut from.
struct TargetEntry : Interval {
  // End of the entry before, when that lies on the same contig, else 0: a read that starts before it belongs
  // there.
  uint32_t previous_end = 0;
};

// A piece of an entry to be traversed; pieces of one entry follow each other.
struct Target {
  const char* contig = nullptr;
  uint32_t start = 0, end = 0;
  int32_t contig_number = 0;  // index of the entry in its list
  const TargetEntry* entry = nullptr;
};

struct Shard {
  const char* contig = nullptr;
  uint32_t start = 0, end = 0;
  int32_t contig_number = 0;
  int32_t sequence = 0;  // counts the shards in the order in which they are cut
  const TargetEntry* entry = nullptr;

  // Reads that start before this do not belong to the steps of the shard that begin at `from`.
  uint32_t firstOwnStart(uint32_t from) const { return from == entry->start ? entry->previous_end : from; }
};
