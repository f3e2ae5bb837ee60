// assembly_task.h - one region on its way through assembly and calling.
// Coords   zero-based half open, on the contig of the shard.
// Owns     haplotypes and reference; reads belong to the cache of the walker, which keeps them until the task is done.
// Threads  a task belongs to one thread at a time: the one that assembles it, then the walker.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/vcall/activity_tracker.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/pairhmm/read_clip.h"
#include "algo/vcall/reference_window.h"

struct AssemblyTask {
  enum State : int32_t { kNew = 0, kAssembled = 1, kCalled = 2 };

  State state = kNew;
  const char* contig = "";
  ActiveRegion activeInterval;   // records begin in it
  ActiveRegion paddedInterval;   // of the assembly
  ActiveRegion trimmedInterval;  // what the variants need
  bool inactive = false;         // a gap between regions: reference confidence alone
  bool skipFlag = false;         // nothing to call
  ReferenceWindow reference;     // of paddedInterval
  std::vector<Read*> fetched;    // reads over paddedInterval, their letters and gap qualities decoded
  std::vector<ReadClip> reads;   // of assemble(): clipped to trimmedInterval
  std::vector<std::unique_ptr<Haplotype>>
      haplotypes;      // the reference first, then by bases; over trimmedInterval
  GivenAlleles given;  // of a run with a given file
};

struct AssemblyParam {
  uint32_t minBaseQual = 10, minMapQual = 20;
  int pruneFactor = 2;
  std::vector<int> kmerSizes = {10, 25};
  bool kmerSizesForced = false;
  int assembleMode = 1;  // 0 and 1, 3: read threading
  int resampleDepth = 10000, resampleReadLen = 100;
  int trimSoftClip = 0;
  bool hasGiven = false;
};

// The work on a task that any thread may do.
// Threads  constant: several threads may assemble at once.
class RegionAssembler {
 public:
  RegionAssembler(AssemblyParam param, std::vector<int32_t> sampleOfGroup);

  // From kNew to kAssembled: clips and samples the reads, assembles, sorts and trims the haplotypes, clips the reads to
  // what is left. Of a failed assembly the reference haplotype alone remains.
  void assemble(AssemblyTask& task) const;

 private:
  AssemblyParam param_;
  std::vector<int32_t> sample_of_group_;
};
