// tn_haplotyper.h - TNhaplotyper calls somatic variants of a tumor, against its normal if there is one, from haplotypes
// that it assembles where the tumor's reads have something that the normal lacks.
// More in docs/algorithms/tnhaplotyper.md.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "algo/onco/locus_reads.h"
#include "algo/onco/tn_activity.h"
#include "algo/onco/tn_filters.h"
#include "algo/vcall/assembly_call_algo.h"
#include "algo/vcall/pairhmm/models.h"

class TNhaplotyper final : public AssemblyCallAlgo {
 public:
  class Engine;

  struct Param : AssemblyCallAlgo::Param {
    TNThresholds thresholds;
    TNActivity::Limits activity;
    double minInitTumorLod = 4.0, minInitNormalLod = 0.5;
    double tumorContaminationFrac = 0, normalContaminationFrac = 0;
    int contaminationDownsampleMode = 1;
    int phasing = 1;
    int filterTAltFrac = 1, filterStrContraction = 0, filterArtefacts = 1;
    int maxErrorPerRead = 2;
    bool detectPon = false, ignoreNormalLodLoc = false, noMapqCap = false;
  };

  TNhaplotyper(DriverContext* context, int count, const char* const args[]);

  std::vector<std::string> inputs() const override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  void finish() override;

 protected:
  AssemblyCallAlgo::Param& assemblyParam() override { return param_; }
  // Makes the columns: the tumor, and behind it the normal. sample_of_group_ holds kTumor or kNormal. Opens the files of
  // known variants, for the output does not exist yet.
  void takeSamples() override;
  std::string contigFault(const std::string& path) const override;
  void addHeaderLines(VCFHeader& header) override;

 private:
  void addOptions(OptionParser& parser);
  void addSampleOptions(OptionParser& parser);
  void addThresholdOptions(OptionParser& parser);
  void addReadOptions(OptionParser& parser);
  void settleParam();
  std::unique_ptr<TumorNormalModel> makeModel() const;
  void openKnown(const std::vector<std::string>& paths, std::vector<std::unique_ptr<VCFCache>>& caches) const;
  void noteReads(const std::vector<Read*>& reads) const;
  int32_t sampleOfName(const std::string& sample) const;
  bool hasNormal() const { return !normal_sample_.empty(); }
  std::string usage() const;

  Param param_;
  std::string tumor_sample_, normal_sample_;  // names of read groups; the normal is empty without
  bool use_real_sample_name_ = false;
  std::vector<std::string> cosmic_files_, panel_files_;
  std::vector<std::unique_ptr<VCFCache>> cosmic_, panel_;  // engines have copies
  mutable std::array<std::atomic<bool>, 2> has_reads_{};   // by sample, of what the run has seen
};
