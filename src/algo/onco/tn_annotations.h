// tn_annotations.h - what is written of a somatic call beside its scores: the samples' columns and the repeat it lies in.
// Threads  pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "algo/onco/locus_reads.h"
#include "algo/vcall/reference_window.h"
#include "readdata/vcf/variant_context.h"

// A run of one short unit in the reference that the event takes from or adds to.
struct TandemRepeat {
  bool isRepeat = false;     // STR
  std::string unit;          // RU
  std::vector<int> repeats;  // RPA: by allele, the reference first

  // Of an event at `position` with REF and one alternate, both with the anchoring base for an indel.
  static TandemRepeat find(const ReferenceWindow& reference, uint32_t position, const std::string& ref,
                           const std::string& alt);
  // A deletion of whole units that leaves more than one.
  bool isContraction() const { return isRepeat && repeats[1] < repeats[0] && repeats[1] > 1; }
};

// The reads of one sample for the reference and for the alternate.
struct AlleleEvidence {
  int32_t refCount = 0, altCount = 0;
  int64_t refQualSum = 0, altQualSum = 0;  // QSS
  int32_t refF1R2 = 0, refF2R1 = 0, altF1R2 = 0, altF2R1 = 0;

  double altFraction() const { return altCount == 0 ? 0 : double(altCount) / (refCount + altCount); }  // AF
};

AlleleEvidence evidenceOf(const LocusReads& reads, int32_t sample, int32_t allele);

// FOXOG: of the alternate's reads, the fraction in the orientation that oxidation of G gives; NaN when the change is none
// of that kind, or without reads.
double foxog(const AlleleEvidence& evidence, char ref, char alt);

// Writes AF, QSS, AD, the orientation counts, FOXOG and the rank sums of one sample (BaseQRankSumPS, ClippingRankSumPS,
// MQRankSumPS, ReadPosRankSumPS, ReadPosEndDistPS, NBQPS) for alternate `allele`.
void annotateSample(const LocusReads& reads, int32_t sample, int32_t allele, char ref, char alt,
                    const std::string& column, VariantContext& record);
