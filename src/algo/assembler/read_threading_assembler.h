// read_threading_assembler.h - haplotypes of a region from its reads, by graphs of k-mers with the reference as their
// spine.
// Units    bases; qualities are phred.
// Threads  constant once set up: assemble() may run on several threads.
// Errors   one k-mer size that fails is passed by; see assemble().
// Source   de Bruijn graph assembly; Pevzner, Tang, Waterman, PNAS 98 (2001), 9748.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "algo/assembler/assembly_result.h"
#include "algo/assembler/seq_graph.h"

// A read as the assembler takes it. Sequences of one sample follow one another.
struct AssemblyRead {
  const char* bases = nullptr;
  const uint8_t* quals = nullptr;
  int32_t length = 0;
  int32_t sample = 0;
};

class ReadThreadingAssembler {
 public:
  enum DebugFlag : uint32_t { kWriteDot = 2 };

  bool debugGraphs = false;
  uint32_t debugFlags = 0;
  bool recoverDanglingHeads = true;
  int minBranchLength = 4;
  int pruneFactor = 2;
  bool allowRepeatKmersInRef = false;
  std::vector<int> kmerSizes = {10, 25};
  bool kmerSizesForced = false;
  int pruneSampleCount = 1;
  bool dropUnconnectedPaths = true;
  bool simplifyGraph = true;
  int minBaseQual = 10;
  int maxHaplotypes = 128;  // per graph

  // `refHaplotype` holds the region's reference with its locus. Never fails for what the reads are: at worst the set has
  // the reference alone.
  std::unique_ptr<AssemblyResultSet> assemble(std::span<const AssemblyRead> reads,
                                              const Haplotype& refHaplotype) const;

  // The graph for one k-mer size; with a null graph in it when the size is refused. Throws std::runtime_error.
  std::shared_ptr<AssemblyResult> createGraph(std::span<const AssemblyRead> reads,
                                              const Haplotype& refHaplotype, int k, bool allowLowComplexity,
                                              bool allowCycles) const;

  std::string text() const;
};
