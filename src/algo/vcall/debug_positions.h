// debug_positions.h - the positions of which a run tells on standard error what it does there.
// Coords   one-based in text, zero-based half open in memory.
// Threads  constant once made. All that is told is told under debugMutex().
// Errors   std::invalid_argument that shows the text and what is wrong with it.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "readdata/ref/fasta_file.h"

enum DebugLevel {
  kNoDebug = -1,
  kDebugRegions = 0,    // the way of the region: its reads, haplotypes, chunks
  kDebugAssembly = 1,   // also each k-mer size and haplotype
  kDebugGraphs = 2,     // also dot files of each step, in the working folder
  kDebugThreading = 3,  // also those of threading
};

class DebugPositions {
 public:
  // Of none.
  DebugPositions() = default;
  // "contig:position[#level],...": a level of 0 to 3, 0 without one.
  explicit DebugPositions(std::string_view text);
  // Those of the environment variable dbgloc.
  static DebugPositions ofEnvironment();

  bool empty() const { return positions_.empty(); }
  // The highest level among the positions of [start, end); kNoDebug without one.
  int levelIn(const char* contig, uint32_t start, uint32_t end) const;
  // Throws when there is one that the reference does not have.
  void check(const FastaFile& reference) const;

 private:
  struct Position {
    uint32_t place;
    int level;
  };

  std::map<std::string, std::vector<Position>, std::less<>> positions_;  // by contig
};

// Held by who writes debug output, for as long as it is to stand in one piece.
std::mutex& debugMutex();
// printf to standard error under the mutex.
[[gnu::format(printf, 1, 2)]] void debugPrint(const char* form, ...);
