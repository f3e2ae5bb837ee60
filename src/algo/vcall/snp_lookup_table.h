// snp_lookup_table.h - what one base of a read, or the two bases of a fragment's overlapping reads, say of each genotype
// over A, C, G and T.
//
// A true base is copied by PCR, rightly but for kPcrError (ploidy 2 only), and the copy is read by the sequencer with
// the error of its quality; wrong bases share an error evenly. Two reads of one fragment have one PCR copy in common.
//
// Units    log10 likelihoods; qualities are phred, 0..255. Genotypes are in the order of GenotypeIndex over "ACGT".
// Shape    a row is stride() doubles, 16-byte aligned; behind the last genotype of an odd number follows a 0.
// Threads  constant once built.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/bases.h"

class SNPLookupTable {
 public:
  static constexpr double kPcrError = 1e-4;
  // Above this the rows of all qualities fill hundreds of megabytes.
  static constexpr uint32_t kMaxPloidy = 50;

  // With `pairs`, which needs ploidy 2, also the table for two reads: 80 MiB.
  SNPLookupTable(uint32_t ploidy, uint32_t minQual, bool pairs);

  uint32_t ploidy() const { return ploidy_; }
  uint32_t stride() const { return stride_; }
  uint32_t minQual() const { return minQual_; }
  uint32_t genotypes() const { return static_cast<uint32_t>(alleles_.size()); }
  // The bases of a genotype: bit b is set when it has a copy of "ACGT"[b].
  uint8_t allelesOf(uint32_t genotype) const { return alleles_[genotype]; }
  uint32_t homozygous(uint8_t base) const { return homozygous_[base]; }

  // `base` is a baseIndex(), and may be kNoBase. Null for a base that is not counted: that one, and qualities below minQual.
  const double* row(uint8_t quality, uint8_t base) const { return rows_[quality * kRowsPerQuality + base]; }
  // Bases are below kNoBase. At quality 0 a read gives no observation.
  const double* pairRow(uint8_t quality1, uint8_t quality2, uint8_t base1, uint8_t base2) const {
    return pairBlock_.get() + (((size_t(quality1) << 8 | quality2) << 4) + base1 * 4u + base2) * kPairStride;
  }
  // What pairRow() takes: 0 for a quality below minQual.
  uint8_t pairQuality(uint8_t quality) const { return quality < minQual_ ? 0 : quality; }

 private:
  static constexpr size_t kQualities = 256, kRowsPerQuality = 8, kPairStride = 10;

  struct Free {
    void operator()(double* block) const;
  };
  using Block = std::unique_ptr<double[], Free>;
  static Block allocate(size_t count);

  void listGenotypes();
  void fillRows();
  void fillPairs();

  uint32_t ploidy_, stride_, minQual_;
  std::vector<uint8_t> alleles_;                // by genotype
  std::vector<std::array<int32_t, 4>> counts_;  // by genotype, copies of each base
  std::array<uint32_t, 4> homozygous_{};
  Block block_, pairBlock_;
  std::array<const double*, kQualities * kRowsPerQuality> rows_{};
};
