// locus_maker.h - reads over position 100 with made-up likelihoods.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "algo/onco/locus_reads.h"
#include "read_builder.h"

class LocusMaker {
 public:
  static constexpr uint32_t kPosition = 100;

  // A read of 20 bases whose offset 10 lies at the position; `row`: the log10 likelihoods of the alleles.
  LocusMaker& add(int32_t sample, const std::string& name, std::vector<double> row, int flags = 0,
                  int group = 0) {
    add(sample, readBuilder(name).at(0, 90).cigar("20M").flag(flags), row);
    reads_.back().read_group = group;
    return *this;
  }
  LocusMaker& add(int32_t sample, const ReadBuilder& builder, const std::vector<double>& row) {
    bam_record record = builder.build();
    reads_.emplace_back().attach(record);
    ReadClip clip;
    clip.read = &reads_.back();
    clip.sample = sample;
    clips_.push_back(clip);
    rows_.insert(rows_.end(), row.begin(), row.end());
    alleles_ = row.size();
    return *this;
  }
  // `n` single reads of `sample` that are sure to have `allele` of two.
  LocusMaker& of(int n, int32_t sample, int allele, int flags = 0) {
    for (int i = 0; i < n; ++i)
      add(sample, "r" + std::to_string(clips_.size()),
          allele == 0 ? std::vector{-1.0, -4.0} : std::vector{-4.0, -1.0}, flags);
    return *this;
  }

  LocusReads build() const {
    LocusReads reads;
    reads.build(clips_, rows_.data(), alleles_, kPosition);
    return reads;
  }

 private:
  std::deque<BAMRead> reads_;
  std::vector<ReadClip> clips_;
  std::vector<double> rows_;
  size_t alleles_ = 0;
};
