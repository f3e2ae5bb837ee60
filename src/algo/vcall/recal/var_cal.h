// var_cal.h - VarCal learns from the annotations of trusted sites how good each variant of a call set looks, and writes
// the log-odds of each, cuts on them, and data for plots.
// More in docs/algorithms/varcal.md.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "algo/algo.h"
#include "algo/vcall/recal/gaussian_mixture_model.h"
#include "algo/vcall/recal/variant_datum.h"
#include "readdata/vcf/vcf_cache.h"
#include "readdata/vcf/vcf_contigs.h"

// A file of sites with what is believed of them.
struct Resource {
  std::string path, name;
  bool has_param = false;
  bool known = false, training = false, bad = false, truth = false, consensus = false;
  double prior = 0;                  // kept with the data, used by nothing
  std::unique_ptr<VCFCache> reader;  // opened by init(); engines have copies
};

struct VarCalParam {
  uint32_t var_type = kSNPModel;
  std::vector<std::string> annotations;  // of INFO, in the order given
  std::vector<std::string> ignore_input_filters;
  std::vector<double> targets;  // percent of truth; empty: kDefaultTargets
  int max_gaussians = -1;       // -1: by the type of variants
  int max_neg_gaussians = 2;
  int srand = 47382911;
  double max_mq = 0;                          // 0: MQ as it is
  int min_training_variants = 1000;           // fewer are warned of
  double std_thresh = 10.0;                   // standard deviations
  double bad_lod_thresh = -5.0;               // log10 density under the good model
  bool all_poly = false, consistent = false;  // accepted, without effect, as are the last two
  int plot_sample_size = 1000, plot_simu_steps = 60;
  double min_accept_lod = -2000.0, target_titv = 2.15;
  MixtureOptions mixture;

  int positiveComponents() const;
  int negativeComponents() const;
};

class VarCalTraining;

// Collects a VariantDatum per record on the walkers' threads; finish() trains, scores and writes on one thread and the
// pool. A run whose models come to nothing ends without outputs and without error.
class VarCal final : public Algo {
 public:
  class Engine;
  class Result;

  VarCal(DriverContext* context, int count, const char* const args[]);
  ~VarCal() override;

  std::vector<OutputFile> outputs() const override;
  std::vector<std::string> inputs() const override;
  void init() override;
  void merge(const Shard& shard, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  void finish() override;

 private:
  void addOptions(OptionParser& parser);
  void addResourceOptions(OptionParser& parser);
  void addModelOptions(OptionParser& parser);
  std::string usage() const;
  void settle(const std::vector<const char*>& positional);
  void takeResourceParam(const char* value);
  void openFiles();
  void openOnce(const std::string& path) const;
  void writeResults(VarCalTraining& training, const VariantData& data) const;
  [[noreturn]] void refuse(const std::string& text) const;

  VarCalParam param_;
  std::string vcf_, tranches_file_, plot_file_, output_;
  std::vector<Resource> resources_;
  std::vector<std::string> aggregate_files_;
  std::unique_ptr<VCFCache> input_;
  std::vector<std::unique_ptr<VCFCache>> aggregates_;
  ContigMap contig_numbers_;          // of the reference
  std::vector<VariantBlock> blocks_;  // in genome order
};
