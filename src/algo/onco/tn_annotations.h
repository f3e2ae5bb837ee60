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
  std::vector<int> repeats;  // RPA: by allele, the reference first; empty when it is no repeat

  // Of an event at `position` with REF and one alternate, both with the anchoring base for an indel. It is one of a
  // repeat when it inserts or deletes nothing but whole units of 1 to 6 bases, and both alleles have at least one unit
  // there, so that one of them has two or more. The unit is the shortest that the event is copies of; copies are counted
  // to both sides as far as the window goes. Substitutions are none.
  static TandemRepeat find(const ReferenceWindow& reference, uint32_t position, const std::string& ref,
                           const std::string& alt);
  // A deletion of whole units that leaves more than one.
  bool isContraction() const { return isRepeat && repeats[1] < repeats[0] && repeats[1] > 1; }
};

// F1R2: the first read of the pair lies on the forward strand, or the second on the reverse; F2R1 the other way round.
// Reads that are of no pair have none.
enum class Orientation { kNone, kF1R2, kF2R1 };

Orientation orientationOf(const Read& read);

// The reads of one sample that count, for the reference and for the alternate. The quality of a read is that of its base
// at the position, which is the anchoring base of an indel; 0 for a read without one there.
struct AlleleEvidence {
  int32_t refCount = 0, altCount = 0;      // AD
  int64_t refQualSum = 0, altQualSum = 0;  // QSS
  int32_t refF1R2 = 0, refF2R1 = 0, altF1R2 = 0, altF2R1 = 0;

  double altFraction() const { return altCount == 0 ? 0 : double(altCount) / (refCount + altCount); }  // AF
};

AlleleEvidence evidenceOf(const LocusReads& reads, int32_t sample, int32_t allele);

// FOXOG: of the alternate's reads with an orientation, the fraction in the one that oxidation of G gives: F2R1 for C>A,
// F1R2 for G>T. NaN for any other change, and without reads. Near 1 the change is likely one of the library, not of the
// tumor.
// Source   Costello et al., Nucleic Acids Research 41 (2013), e67.
double foxog(const AlleleEvidence& evidence, char ref, char alt);

// Writes the column of one sample for alternate `allele`. A field without data is not written.
//   AD, QSS       reads and their summed base qualities: reference, alternate
//   AF            "%.3f"
//   ALT_F1R2, ALT_F2R1, REF_F1R2, REF_F2R1, FOXOG
//   BaseQRankSumPS, ClippingRankSumPS, MQRankSumPS, ReadPosRankSumPS
//                 Z values as those of the site in rank_sum_fields.h, of this sample; positive: higher in the alternate
//   ReadPosEndDistPS  mean distance of the alternate's bases from the nearer end of their reads
//   NBQPS         mean quality of the neighbouring bases in the reads of both alleles
void annotateSample(const LocusReads& reads, int32_t sample, int32_t allele, char ref, char alt,
                    const std::string& column, VariantContext& record);
