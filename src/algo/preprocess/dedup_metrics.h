// dedup_metrics.h - what duplicate marking counts of each library, and the files that tell it.
// Source   the library size follows Lander and Waterman, Genomics 1988: of a library of X different fragments, N
//          random draws show X * (1 - exp(-N / X)) different ones.
// Threads  one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "algo/preprocess/histogram.h"

// In the order of their names.
enum DedupCounter : int {
  kChimericPaired,
  kDuped,
  kDupedChimericPaired,
  kDupedPaired,
  kDupedUnpaired,
  kInsertSizeErrors,
  kOpticalDup,
  kPaired,
  kReads,
  kSecondarySupplementary,
  kUnmapped,
  kUnpaired,
  kMateReverseErrors,
  kMateUnmappedErrors,
  kDedupCounters
};

using DedupCounts = std::array<int64_t, kDedupCounters>;

struct LibraryMetrics {
  std::map<std::string, int64_t> counts;  // by name; a counter that is absent is 0
  LocusStat::Histogram optical;           // of groups with optical duplicates, by the number of these

  // Adds the counters that are not 0.
  void add(const DedupCounts& counted);
  void add(const LibraryMetrics& other);
  int64_t count(DedupCounter counter) const;
};

// Different pairs in the library, estimated from pairs seen; 0 when nothing can be said.
int64_t estimateLibrarySize(int64_t pairs, int64_t duplicate_pairs, int64_t optical_pairs);

// The libraries of a run, in their order.
struct DedupMetrics {
  std::vector<std::string> names;
  std::vector<LibraryMetrics> libraries;  // as many as names

  std::string table() const;  // the metrics file of a whole run
  std::string part() const;   // that of a run over some shards
  // Adds the counters of a file that holds part(); the first file gives the names. Throws std::invalid_argument whose
  // text begins with "Dedup: ".
  void addPart(const std::string& path);
};
