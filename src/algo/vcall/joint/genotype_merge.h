// genotype_merge.h - the samples' columns of one input, put in terms of the alleles of all inputs.
// Units    PL phred; likelihoods log10.
// Threads  one object per thread.
// Errors   std::runtime_error for PL or AD of another length than the genotypes or alleles ask for; the text has the
//          record's place, the caller adds the file.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "algo/vcall/joint/joint_site.h"
#include "algo/vcall/model/genotype_likelihoods.h"
#include "algo/vcall/model/site_context.h"

// What is known of one sample of the output at a position.
struct JointSample {
  GenotypeLikelihoods likelihoods;   // over the reference and all alternates of the union; gl empty: no data
  SampleCounts counts;               // likewise; of a reference block DP is its MIN_DP
  std::array<int64_t, 4> strands{};  // SB: forward and reverse of the reference, then of the alternates
  std::map<std::string, std::string>
      attrs;  // other FORMAT values, as they stand, of a record that starts here

  void clear(uint32_t ploidy);
};

class GenotypeMerge {
 public:
  // Adds the samples of `event` to `samples`, by `sampleMap`. `alleles` counts the reference and the alternates of the
  // union.
  void add(const Event& event, const std::vector<int>& sampleMap, size_t alleles,
           std::vector<JointSample>& samples);

 private:
  std::vector<int32_t> pl_, ad_, map_;  // scratch
};
