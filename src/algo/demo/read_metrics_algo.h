// read_metrics_algo.h - the base of algorithms that look at every read once and write text tables: a derived
// class parses its options and names its metric; fetching, sharding, merging and writing are done here.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "algo/algo.h"
#include "algo/demo/read_metrics.h"

class ReadMetricsAlgo : public Algo {
 public:
  class Engine;
  class Result;

  ~ReadMetricsAlgo() override;

  std::vector<OutputFile> outputs() const override { return {{output_}}; }
  void init() override;  // creates the output file, so that a bad name is told before the traversal
  void merge(const Shard& shard, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  bool skipNoCoor() override { return false; }  // unplaced reads are reads too
  void finish() override;                       // writes the tables

 protected:
  ReadMetricsAlgo(DriverContext* context, int count, const char* const args[]);
  // Takes the one output file from the positional arguments and checks that reads and reference are given.
  void takeOutput(const std::vector<const char*>& positional);

  std::unique_ptr<ReadMetricsFactory> factory_;  // set by the derived constructor

 private:
  [[noreturn]] void failWriting() const;

  std::string output_;
  FILE* file_ = nullptr;
  std::unique_ptr<ReadMetrics> total_;
};
