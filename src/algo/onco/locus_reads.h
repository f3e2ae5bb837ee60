// locus_reads.h - what the reads of tumor and normal say at one position: which of them count, and for which allele.
// Units    likelihoods log10.
// Coords   zero-based.
// Owns     its rows; reads belong to the region.
// Threads  one object per thread. Which reads go is drawn by a generator that depends on the position alone.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "algo/vcall/pairhmm/read_clip.h"
#include "readdata/bam/read.h"

// Samples of a run with a normal; without one there is the tumor alone.
inline constexpr int32_t kTumor = 0, kNormal = 1;

// Why a read does not count.
enum ReadStatus : uint32_t {
  kReadOfPair = 8,         // its mate covers the position, too
  kReadOverlapped = 64,    // the mate is counted
  kReadContaminant = 128,  // taken out by contaminationDownsample()
};

struct LocusRead {
  Read* read = nullptr;  // as its best haplotype aligns it
  int32_t sample = kTumor;
  uint32_t status = 0;
  int32_t offset = -1;  // in the read, of its base at the position; -1: none there
  char base = 0;
  uint8_t qual = 0;  // of that base, phred
  int32_t allele =
      -1;  // that it supports: ahead of the second by kInformativeMargin; 0 the reference; -1 none

  bool counts() const { return (status & (kReadOverlapped | kReadContaminant)) == 0; }
};

class LocusReads {
 public:
  // The reads whose row does not begin with NaN. `clips` are the region's reads as realigned, `rows` holds clips.size()
  // rows of `alleles` values, the reference first.
  void build(std::span<const ReadClip> clips, const double* rows, size_t alleles, uint32_t position);

  // Of two reads of one fragment over the position the one that speaks less for its best allele does not count.
  void removeOverlap();
  // Leaves out `fraction` of the sample's reads. `mode`: 1 takes them evenly from the alleles, as far as each has reads,
  // 0 in proportion. `contig` and the position seed the generator.
  void contaminationDownsample(int32_t sample, double fraction, int mode, const char* contig,
                               uint32_t position);

  std::span<LocusRead> reads() { return reads_; }
  std::span<const LocusRead> reads() const { return reads_; }
  const double* row(size_t read) const { return values_.data() + read * alleles_; }
  size_t alleles() const { return alleles_; }

 private:
  std::vector<LocusRead> reads_;
  std::vector<double> values_;
  size_t alleles_ = 0;
};

// Of one alternate at a position.
struct TumorNormalLod {
  double tumor = 0, normal = 0;  // TLOD and NLOD, log10
  double fraction = 0;           // of the tumor's informative reads
};

// By alternate, of the reads that count.
std::vector<TumorNormalLod> calcLods(const LocusReads& reads, bool hasNormal);
