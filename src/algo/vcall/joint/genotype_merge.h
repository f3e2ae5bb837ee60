// genotype_merge.h - the samples' columns of one input, put in terms of the alleles of all inputs.
// Units    PL phred; likelihoods log10.
// Owns     storage that is used again; attributes are views into the records.
// Threads  one object per thread.
// Errors   std::runtime_error for PL or AD of another length than the genotypes or alleles ask for; the text has the
//          record's place, the caller adds the file.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "algo/vcall/joint/joint_site.h"
#include "algo/vcall/joint/sample_columns.h"
#include "algo/vcall/model/genotype_likelihoods.h"
#include "algo/vcall/model/site_context.h"

// Reads by strand, SB: forward and reverse of the reference, then of the alternates.
using StrandCounts = std::array<int64_t, 4>;

// A FORMAT value as it stands in a record.
using SampleAttr = std::pair<std::string_view, std::string_view>;

// What is known of the samples of the output at a position, by sample.
struct JointSamples {
  std::vector<GenotypeLikelihoods>
      likelihoods;                   // over the reference and all alternates of the union; gl empty: no data
  std::vector<SampleCounts> counts;  // likewise; of a reference block the depth is its MIN_DP
  std::vector<StrandCounts> strands;
  std::vector<std::vector<SampleAttr>> attrs;  // others, of a record that starts here and is no block

  // No data; `ploidies` is by sample.
  void clear(const std::vector<uint32_t>& ploidies);
};

class GenotypeMerge {
 public:
  // A sample's ploidy must not be above `maxPloidy`.
  explicit GenotypeMerge(uint32_t maxPloidy) : max_ploidy_(maxPloidy) {}

  // Adds the samples of `event` to `samples`, by `sampleMap`. `alleles` counts the reference and the alternates of the
  // union. Of a sample that other events have as well, likelihoods and depths add up.
  void add(const Event& event, const std::vector<int>& sampleMap, size_t alleles, JointSamples& samples);

 private:
  static constexpr uint32_t kUnknown = UINT32_MAX;

  void mapAlleles(const Event& event, uint32_t ploidy, size_t alleles);
  void addLikelihoods(const Event& event, size_t alleles, GenotypeLikelihoods& likelihoods);
  void addCounts(const Event& event, size_t alleles, SampleCounts& counts);
  void addStrands(StrandCounts& strands);
  void addAttrs(std::vector<SampleAttr>& attrs) const;
  double likelihoodOf(const std::vector<uint32_t>& genotype);

  uint32_t max_ploidy_;
  SampleColumns columns_;
  std::vector<int32_t> pl_, numbers_;  // scratch
  std::vector<uint32_t> map_;          // by allele of the union: that of the record, kUnknown without
  std::vector<uint32_t> mapped_;       // scratch
  int32_t worst_ = 0;                  // PL of a genotype with an allele that the record does not know
};
