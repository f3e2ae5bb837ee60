// assembly_task.h - one region on its way through assembly and calling.
// Coords   zero-based half open, on the contig of the shard.
// Owns     haplotypes and reference; reads belong to the cache of the walker, which keeps them until the task is done.
// Threads  a task belongs to one thread at a time: the one that assembles it, then the walker.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/vcall/activity_tracker.h"
#include "algo/vcall/debug_positions.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/pairhmm/read_clip.h"
#include "algo/vcall/reference_window.h"
#include "algo/vcall/region_trimmer.h"

struct AssemblyTask {
  enum State : int32_t { kNew = 0, kAssembled = 1, kCalled = 2 };

  State state = kNew;
  const char* contig = "";
  ActiveRegion activeInterval;   // records begin in it
  ActiveRegion paddedInterval;   // of the assembly
  ActiveRegion trimmedInterval;  // what the variants need; paddedInterval when there are none
  bool inactive = false;         // a gap between regions: reference confidence alone
  bool skipFlag = false;         // no haplotype has a variant that begins in activeInterval
  int debugLevel = kNoDebug;     // what is told of the way of this task
  ReferenceWindow reference;     // of paddedInterval, upper case; trimming leaves it as it is
  std::vector<Read*> fetched;    // reads over paddedInterval, their letters and gap qualities decoded
  std::vector<ReadClip> reads;   // of assemble(): clipped to trimmedInterval, by their start
  // The reference first, then by bases; no two have the same. Over trimmedInterval: alignmentStart is where that begins
  // in `reference`, and the cigar begins and ends with matched bases.
  std::vector<std::unique_ptr<Haplotype>> haplotypes;
  GivenAlleles given;  // of a run with a given file
};

struct AssemblyParam {
  uint32_t minBaseQual = 10, minMapQual = 20;
  int pruneFactor = 2;
  std::vector<int> kmerSizes = {10, 25};
  int assembleMode = 1;                              // 0 and 1, 3: read threading
  int resampleDepth = 10000, resampleReadLen = 100;  // depth 0 and less: no sampling
  int trimSoftClip = 0;
  bool hasGiven = false;
  bool clipOverlaps = true;  // of mates: else the caller looks to it that a fragment counts once
  bool usesSupplementary = true;
  bool addsCrossovers = true;  // of the haplotypes that were found, where single reads show them
  uint32_t snpPadding = RegionTrimmer::kWideSNPPadding;
  bool clipLowEnds = false;  // ends of reads below minBaseQual
};

// The work on a task that any thread may do. What a region may cost is bounded:
// - a sample keeps as many reads as would cover the region resampleDepth times were they of resampleReadLen bases; the
//   assembler sees at most kAssemblyDepth of that estimate;
// - at most kMaxHaplotypes stay, by score;
// - reads x haplotypes is kept below kMaxCells base pairs: first by leaving out haplotypes, down to kFewHaplotypes, then
//   by leaving out reads.
// Which reads go is drawn by a generator that depends on the contig and the region alone.
// Threads  constant: several threads may assemble at once.
class RegionAssembler {
 public:
  static constexpr int kAssemblyDepth = 1000;
  static constexpr size_t kMaxHaplotypes = 128, kFewHaplotypes = 16;
  static constexpr double kMaxCells = 4e9;
  static constexpr int kMinReadBases = 10;  // of a read inside an interval, for it to stay

  // `sampleOfGroup`: by Read::read_group.
  RegionAssembler(AssemblyParam param, std::vector<int32_t> sampleOfGroup);

  // From kNew to kAssembled: clips and samples the reads, assembles, sorts and trims the haplotypes, clips the reads to
  // what is left. Of a failed assembly the reference haplotype alone remains. A task that is inactive gets no reads and
  // no haplotypes.
  void assemble(AssemblyTask& task) const;

 private:
  using Haplotypes = std::vector<std::unique_ptr<Haplotype>>;

  // How many reads of a sample make up `depth`; all for 0 and less.
  size_t readLimit(const AssemblyTask& task, int depth) const;
  // Without clips that fold back onto `reference`, or with trimSoftClip without any.
  void clipReads(const std::vector<Read*>& reads, ActiveRegion interval, const ReferenceWindow& reference,
                 std::vector<ReadClip>& clips) const;
  // The haplotypes over paddedInterval, the reference among them. The choice of the assembler is made here.
  Haplotypes findHaplotypes(const AssemblyTask& task) const;
  Haplotypes threadReads(const AssemblyTask& task, const Haplotype& reference) const;

  AssemblyParam param_;
  std::vector<int32_t> sample_of_group_;
  size_t samples_ = 0;
};
