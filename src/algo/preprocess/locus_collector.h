// locus_collector.h - LocusCollector, the first pass of duplicate marking: a score file with a line for every read whose
// mate may be too far away to be seen together with it. More in docs/algorithms/locus_collector.md.
#pragma once

#include <memory>

#include "algo/algo.h"
#include "algo/preprocess/vcf_merger.h"

class LocusCollector final : public Algo {
 public:
  class Engine;
  class Result;

  LocusCollector(DriverContext* context, int count, const char* const args[]);

  std::vector<OutputFile> outputs() const override;
  void init() override;
  void merge(const Shard& shard, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  void finish() override;

 private:
  std::string function_ = "score_info";
  std::string output_;
  int readahead_ = 600, readbehind_ = 0;  // bases; an engine sees that much beyond the reads it decides on
  int pair_start_dist_thr_ = 600;  // bases; a pair on one contig is far when its starts are that far apart
  int score_info_reduce_ = 1;
  bool fixmate_ = false;
  int block_size_ = 1000000;
  FileOwner stream_;  // the output, held open until it is written
  std::unique_ptr<VcfMerger> merger_;
};
