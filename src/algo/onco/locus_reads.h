// locus_reads.h - what the reads of tumor and normal say at one position: which of them count, and for which allele.
// Units    likelihoods log10.
// Coords   zero-based.
// Owns     its rows; reads belong to the region.
// Threads  one object per thread. Which reads go is drawn by a generator that depends on the position alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "algo/vcall/model/site_context.h"
#include "algo/vcall/pairhmm/read_clip.h"

// Samples of a run with a normal; without one there is the tumor alone.
inline constexpr int32_t kTumor = 0, kNormal = 1;

enum ReadStatus : uint32_t {
  kReadOfPair = 8,         // its mate is here, too
  kReadOverlapped = 64,    // does not count: the mate does
  kReadContaminant = 128,  // does not count: taken out by contaminationDownsample()
};

// The allele is the one that is ahead of the second by more than kInformativeMargin.
struct LocusRead : SiteRead {
  uint32_t status = 0;  // of ReadStatus

  bool counts() const { return (status & (kReadOverlapped | kReadContaminant)) == 0; }
};

class LocusReads {
 public:
  // The reads whose row does not begin with NaN. `clips` are the region's reads as realigned, `rows` holds clips.size()
  // rows of `alleles` values, the reference first. With `debug` what is done with them is told on standard error.
  void build(std::span<const ReadClip> clips, const double* rows, size_t alleles, uint32_t position,
             bool debug = false);

  // Reads of one fragment, by FragmentName, count once. Of two the one goes that is less likely under the best allele of
  // the fragment, which has the highest product of both: where they disagree, the read that is less sure of itself.
  void removeOverlap();
  // Leaves out int(fraction * n) of the n reads of the sample that count, each filed under its likeliest allele; nothing
  // for a fraction of 0. How many of each allele:
  //   mode 1    the alternates in turn, then the reference, give half of what is to go, or all they have; the rest goes
  //             by further rounds, an odd read of the reference. Reads of another person look like an alternate at a low
  //             fraction, and half of those of a heterozygous site do
  //   mode 0    in proportion to the reads of each allele: fractions stay as they are
  // `contig` and the position seed the draw. `fraction` is in [0, 1).
  void contaminationDownsample(int32_t sample, double fraction, int mode, const char* contig,
                               uint32_t position);

  // Tells on standard error of each read its sample, name, ReadStatus and row.
  void tell(const char* contig, uint32_t position) const;

  std::span<LocusRead> reads() { return reads_; }
  std::span<const LocusRead> reads() const { return reads_; }
  const double* row(size_t read) const { return values_.data() + read * alleles_; }
  size_t alleles() const { return alleles_; }
  bool debug() const { return debug_; }

 private:
  size_t bestAllele(size_t read) const;
  size_t weaker(size_t a, size_t b) const;

  std::vector<LocusRead> reads_;
  std::vector<double> values_;
  size_t alleles_ = 0;
  bool debug_ = false;
};

// Of one alternate at a position.
struct TumorNormalLod {
  double tumor = 0, normal = 0;  // TLOD and NLOD, log10; normal is 0 without a normal sample
  double fraction = 0;           // the allele fraction that TLOD is of
};

// By alternate, of the reads that count.
//   TLOD  how much likelier the tumor's reads are as a mixture with `fraction` of the alternate than as reference
//   NLOD  how much likelier the normal's reads are as reference than as a heterozygous site
// The fraction is that of the tumor's reads with one of the two alleles, and lies within what n such reads can tell from
// none and from all: [1 / (n + 1), n / (n + 1)]. Without any it is 0, and so is TLOD.
std::vector<TumorNormalLod> calcLods(const LocusReads& reads, bool hasNormal);
