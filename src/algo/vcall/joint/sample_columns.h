// sample_columns.h - the samples' columns of a record, walked from left to right, and the numbers in them.
// Owns     storage that is used again; values are views into the line.
// Threads  one object per thread.
// Errors   std::runtime_error with the record's place.
// Source   the VCF 4.2 format document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "readdata/vcf/vcf_line.h"

[[noreturn]] void failRecord(const VCFLine& line, const std::string& what);

class SampleColumns {
 public:
  // Before the first sample of `line`.
  void restart(const VCFLine& line);
  // To the next sample; false behind the last one.
  bool next();

  const std::vector<std::string_view>& keys() const { return keys_; }
  // Of the key at that place; empty for one that the sample does not have and for ".".
  std::string_view value(size_t key) const {
    const std::string_view text = written(key);
    return text == "." ? std::string_view() : text;
  }
  std::string_view value(const char* key) const { return value(place(key)); }
  // The same as it stands.
  std::string_view written(const char* key) const { return written(place(key)); }
  // The numbers of a list. Empty when the value is missing or has an element "." - but for `dot` of 0 or more, which such an
  // element then is. Throws for what is no number from 0 to 2^31 - 1.
  void numbers(const char* key, std::vector<int32_t>& list, int32_t dot = -1) const;
  // PL of the sample with `alts` alternates. False, with an empty list, when PL or GT is missing; `ploidy` is that of GT,
  // 0 without. Throws for a ploidy above `maxPloidy`, whose genotypes would take too long, and for another length than the
  // ploidy asks for.
  bool likelihoods(size_t alts, uint32_t maxPloidy, uint32_t& ploidy, std::vector<int32_t>& pl) const;

 private:
  size_t place(const char* key) const;  // behind all keys when it is none
  std::string_view written(size_t key) const {
    return key < values_.size() ? values_[key] : std::string_view();
  }

  const VCFLine* line_ = nullptr;
  const char* cursor_ = nullptr;  // the next sample's column; null behind the last
  int32_t sample_ = 0;            // that stands here, from 1
  std::vector<std::string_view> keys_, values_;
};

// The genotypes of a ploidy as ascending lists of alleles, in VCF order. Unlike GenotypeIndex its cost does not grow with
// the alleles, of which a file may have any number.
class GenotypeWalk {
 public:
  explicit GenotypeWalk(uint32_t ploidy) : alleles_(ploidy) {}
  const std::vector<uint32_t>& alleles() const { return alleles_; }
  void next();

 private:
  std::vector<uint32_t> alleles_;
};

// The place of a genotype, ascending alleles, in VCF order.
size_t genotypePlace(const std::vector<uint32_t>& alleles);
