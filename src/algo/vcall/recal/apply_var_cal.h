// apply_var_cal.h - ApplyVarCal gives the variants of a call set the log-odds that VarCal has found for them, and a
// filter by those.
// More in docs/algorithms/varcal.md.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "algo/algo.h"
#include "algo/vcall/recal/tranche.h"
#include "readdata/vcf/vcf_cache.h"
#include "readdata/vcf/vcf_writer.h"

// Walkers write each shard's records, in their order, to a file of its own, which merge() appends to the output. A failed
// run leaves no output.
class ApplyVarCal final : public Algo {
 public:
  class Engine;
  class Result;

  ApplyVarCal(DriverContext* context, int count, const char* const args[]);

  std::vector<OutputFile> outputs() const override;
  std::vector<std::string> inputs() const override;
  void init() override;
  void merge(const Shard& shard, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  void finish() override;

 private:
  void addOptions(OptionParser& parser);
  std::string usage() const;
  void settle(const std::vector<const char*>& positional);
  std::unique_ptr<IOHandle> openFile(const std::string& path) const;
  void openFiles();
  std::string commandLine() const;  // of the header
  void mergePartials();

  std::string vcf_, recal_, tranches_file_, output_;
  double sensitivity_ = 0;  // percent of truth; 0: no tranches
  std::vector<std::string> ignore_input_filters_;
  bool merge_ = false;  // the run joins partials_, the outputs of sharded runs
  std::vector<std::string> partials_;
  RecalFilter filter_;
  std::unique_ptr<VCFCache> input_, recalibration_;  // engines have copies
  std::unique_ptr<VCFWriter> writer_;
  uint64_t taken_ = 0, recalibrated_ = 0;  // records of the type, and those with a line in the recal file
};
