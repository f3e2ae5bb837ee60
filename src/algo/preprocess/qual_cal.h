// qual_cal.h - QualCal counts how often reported base qualities were right; it also joins the partial tables of
// sharded runs, and puts tables side by side for plotting.
// More in docs/algorithms/qualcal.md.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "algo/algo.h"
#include "algo/preprocess/recal_table.h"
#include "readdata/vcf/vcf_cache.h"

class QualCal final : public Algo {
 public:
  class Engine;
  class Result;

  QualCal(DriverContext* context, int count, const char* const args[]);
  ~QualCal() override;

  std::vector<OutputFile> outputs() const override;
  std::vector<std::string> inputs() const override { return input_files_; }
  void init() override;
  void merge(const Shard& shard, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  void finish() override;  // writes the output

 private:
  void addOptions(OptionParser& parser);
  void settleMode(const std::vector<const char*>& positional);
  void giveWarnings() const;
  void listGroups();
  void openKnownSites();
  std::string usage() const;
  void plot() const;

  std::vector<std::string> known_sites_;
  bool merge_ = false;
  bool plot_ = false;
  std::string before_, after_, qcal_;
  std::string output_;                    // empty: nothing is written
  std::vector<std::string> input_files_;  // known sites, partial files, or tables

  RecalTable table_;                                     // of all shards so far
  std::vector<int> platforms_;                           // by read group, -1: its reads are left out
  std::vector<std::unique_ptr<VCFCache>> known_caches_;  // each engine has copies
};

// The counters of a shard.
class QualCal::Result final : public Algo::Result {
 public:
  explicit Result(RecalTable counted) : table(std::move(counted)) {}
  uint64_t memorySize() const override;

  RecalTable table;
};
