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

#include "algo/assembler/assembly_read.h"
#include "algo/assembler/assembly_result.h"

class ReadThreadingAssembler {
 public:
  enum DebugFlag : uint32_t {
    kWriteDot = 2,              // dot files of each step, in the working folder
    kKeepThreadingGraphs = 32,  // and of threading
  };

  bool debugGraphs = false;  // tells on standard error what becomes of each size
  uint32_t debugFlags = 0;
  bool recoverDanglingHeads = true;
  int minBranchLength = 4;             // of a dangling path
  int pruneFactor = 2;                 // reads of one sample that make a path credible; 0 takes all
  bool allowRepeatKmersInRef = false;  // repeats in the reference alone do not refuse a size
  std::vector<int> kmerSizes = {10, 25};
  int pruneSampleCount = 1;
  bool dropUnconnectedPaths = true;
  bool simplifyGraph = true;
  int minBaseQual = 10;
  int maxHaplotypes = 128;  // per graph

  // `refHaplotype` holds the region's reference in upper case, with its locus. Never fails for what the reads are: at
  // worst the set has the reference alone. Without a graph from kmerSizes the largest of them + 10, + 20, .. + 60 are
  // tried until one gives a graph; the last may have cycles and non-unique k-mers. When that was not
  // needed, those of kmerSizes that gave none are tried again, with the k-mers that the reference repeats allowed.
  std::unique_ptr<AssemblyResultSet> assemble(std::span<const AssemblyRead> reads,
                                              const Haplotype& refHaplotype) const;

  // The graph for one k-mer size; kFailed with a null graph when the size is refused, or above the reference's length.
  // Throws std::runtime_error, for k < 1 "bad minkKmerSize".
  std::shared_ptr<AssemblyResult> createGraph(std::span<const AssemblyRead> reads,
                                              const Haplotype& refHaplotype, int k, bool allowLowComplexity,
                                              bool allowCycles) const;

  std::string text() const;

 private:
  void addSizes(std::span<const AssemblyRead> reads, const Haplotype& refHaplotype,
                AssemblyResultSet& set) const;
  // Adds the haplotypes of a size to `set`; false when there is no graph.
  bool addSize(std::span<const AssemblyRead> reads, const Haplotype& refHaplotype, int k, bool allowAll,
               AssemblyResultSet& set) const;
};
