// var_cal.cpp - options, start and end of VarCal.
#include "algo/vcall/recal/var_cal.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <sys/stat.h>

#include "algo/number_options.h"
#include "algo/output_check.h"
#include "algo/vcall/recal/data_dump.h"
#include "algo/vcall/recal/plot_file.h"
#include "algo/vcall/recal/recal_file.h"
#include "algo/vcall/recal/tranche.h"
#include "algo/vcall/recal/var_cal_engine.h"
#include "algo/vcall/recal/var_cal_training.h"
#include "algo/vcall/recal/vcf_input.h"
#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr int kComponents = 8, kIndelComponents = 4;
constexpr int kMostComponents = 1000;  // far above what any training set can fill
constexpr char kParamOrder[] = "--resource_param need follow --resource";

}  // namespace

int VarCalParam::positiveComponents() const {
  if (max_gaussians > 0) return max_gaussians;
  return var_type == kIndelModel ? kIndelComponents : kComponents;
}

int VarCalParam::negativeComponents() const {
  return std::min(positiveComponents(), max_neg_gaussians);
}

VarCal::VarCal(DriverContext* context, int count, const char* const args[]) : Algo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  addModelOptions(parser);
  std::vector<const char*> positional;
  if (!takeArguments(parser, usage(), count, args, positional)) return;
  const std::string_view doubled = parser.doubledOption(
      {"annotation", "resource", "resource_param", "aggregate_data", "tranche", "ignore_input_filters"});
  if (!doubled.empty()) refuse("--" + std::string(doubled) + " duplicated");
  settle(positional);
}

VarCal::~VarCal() = default;

// ---- options ----

void VarCal::refuse(const std::string& text) const {
  throw std::invalid_argument(name + ": " + text);
}

void VarCal::addOptions(OptionParser& parser) {
  parser.addText("vcf", 'v', "Input VCF file", vcf_);
  parser.add({"var_type", required_argument, 0, "Variant type: SNP, INDEL, or BOTH (default: SNP)"},
             [this](const char* value) {
               if (!parseVariantModel(value, param_.var_type))
                 refuse(std::string("invalid var_type ") + value);
               return true;
             });
  parser.add({"annotation", required_argument, 0, "Annotation"}, [this](const char* value) {
    std::vector<std::string>& known = param_.annotations;
    if (std::find(known.begin(), known.end(), value) != known.end())
      refuse(std::string("--annotation ") + value + " duplicated");
    known.push_back(value);
    if (known.size() > kMaxAnnotations) refuse(format("more than %zu annotations", kMaxAnnotations));
    return true;
  });
  addResourceOptions(parser);
  parser.addList("aggregate_data", 0, "Aggregate VCF file", aggregate_files_);
  parser.add(
      {"tranche", required_argument, 0, "Truth sensitivity target in percent (default: 100, 99.9, 99, 90)"},
      [this](const char* value) {
        double target;
        if (!parseReal(value, target)) refuse(std::string("invalid tranche ") + value);
        checkTarget(target);
        param_.targets.push_back(target);
        return true;
      });
  parser.addFlag("all_poly", 0, nullptr, param_.all_poly);
  parser.addList("ignore_input_filters", 0, "Filter names that do not exclude a record",
                 param_.ignore_input_filters);
  parser.addText("tranches_file", 0, "Tranches output file", tranches_file_);
  parser.addText("plot_file", 0, "Plot datat output file", plot_file_);
}

void VarCal::addResourceOptions(OptionParser& parser) {
  parser.add({"resource", required_argument, 0, "Resource VCF file name"}, [this](const char* value) {
    if (!resources_.empty() && !resources_.back().has_param) refuse(kParamOrder);
    resources_.emplace_back().path = value;
    return true;
  });
  parser.add({"resource_param", required_argument, 0, "Resource params, must be paired with --resource"},
             [this, &parser](const char* value) {
               if (parser.previousOption() != "resource") refuse(kParamOrder);
               takeResourceParam(value);
               return true;
             });
}

void VarCal::addModelOptions(OptionParser& parser) {
  constexpr double kAboveZero = std::numeric_limits<double>::min();
  MixtureOptions& mixture = param_.mixture;
  NumberOptions numbers(parser, name);
  numbers.add("max_gaussians", "Maximum of gaussians for the positive model\n(default: 8/SNP, 4/INDEL)",
              param_.max_gaussians, -1, kMostComponents);
  numbers.add("max_neg_gaussians", "Maximum of gaussians for the negative model (default: 2)",
              param_.max_neg_gaussians, 1);
  numbers.add("srand", "random seed", param_.srand);
  numbers.add("max_mq", "Maximum MQ", param_.max_mq, 0);
  parser.addFlag("consistent", 0, nullptr, param_.consistent);
  numbers.add("partsize", nullptr, mixture.partsize, 1);
  numbers.add("shrinkage", nullptr, mixture.shrinkage, kAboveZero);
  numbers.add("dirichlet", nullptr, mixture.dirichlet, kAboveZero);
  numbers.add("prior_counts", nullptr, mixture.prior_counts, kAboveZero);
  numbers.add("kmeans_iter", nullptr, mixture.kmeans_iter, 0);
  numbers.add("max_iter", nullptr, mixture.max_iter);
  numbers.add("min_iter", nullptr, mixture.min_iter);
  numbers.add("min_training_variants", nullptr, param_.min_training_variants, 0);
  numbers.add("std_thresh", nullptr, param_.std_thresh, 0);
  numbers.add("prob_tol", nullptr, mixture.prob_tol, 0);
  numbers.add("min_accept_lod", nullptr, param_.min_accept_lod);
  numbers.add("bad_lod_thresh", nullptr, param_.bad_lod_thresh);
  numbers.add("iter_for_marginal", nullptr, mixture.iter_for_marginal, 0);
  numbers.add("iter_for_marginal_mode", nullptr, mixture.iter_for_marginal_mode);
  numbers.add("plot_sample_size", nullptr, param_.plot_sample_size, 0);
  numbers.add("plot_simu_steps", nullptr, param_.plot_simu_steps, 0);
  numbers.add("target_titv", nullptr, param_.target_titv, 0);
}

std::string VarCal::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -r reference.fasta [driver_options] \\\n"
      "         --algo %s --vcf input.vcf --var_type SNP --resource resource.vcf \\\n"
      "         --resource_param resource_params --annotation AN1 --annotation AN2 \\\n"
      "         --plot_file plot_data_output [algo_options] output.recal\n\n",
      name.c_str(), name.c_str());
}

void VarCal::takeResourceParam(const char* value) {
  const std::string_view text = value;
  const size_t comma = text.find(',');
  if (comma == text.npos)
    throw std::invalid_argument(std::string("cannot parse training data source ") + value);
  Resource& resource = resources_.back();
  resource.has_param = true;
  resource.name = text.substr(0, comma);
  for (const auto& [key, setting] : parseKeyValues(text.substr(comma + 1))) {
    const bool is_true = setting == "true";
    if (key == "known") resource.known = is_true;
    if (key == "training") resource.training = is_true;
    if (key == "bad") resource.bad = is_true;
    if (key == "truth") resource.truth = is_true;
    if (key == "consensus") resource.consensus = is_true;
    if (key == "prior") resource.prior = strtod(setting.c_str(), nullptr);
  }
}

void VarCal::settle(const std::vector<const char*>& positional) {
  if (!context->reference) refuse("missing reference");
  if (vcf_.empty()) refuse("missing input vcf file");
  if (param_.annotations.empty()) refuse("missing option --annotation");
  if (resources_.empty()) refuse("missing options --resource and --resource_param");
  if (!resources_.back().has_param) refuse(kParamOrder);
  if (tranches_file_.empty()) refuse("missing option --tranches_file");
  if (positional.empty() || !*positional[0]) refuse("missing output file");
  if (positional.size() > 1) refuse("extra argument after output");
  if (param_.max_gaussians == 0) refuse("invalid max_gaussians 0");
  output_ = positional[0];
  fprintf(stderr, "maxGaussians = %d\n", param_.positiveComponents());
}

std::vector<OutputFile> VarCal::outputs() const {
  if (output_.empty()) return {};
  std::vector<OutputFile> files = {
      {output_, false}, {output_ + ".idx", false}, {output_ + ".tbi", false}, {tranches_file_, false}};
  if (!plot_file_.empty()) files.push_back({plot_file_, false});
  return files;
}

std::vector<std::string> VarCal::inputs() const {
  std::vector<std::string> files = aggregate_files_;
  files.push_back(vcf_);
  for (const Resource& resource : resources_) files.push_back(resource.path);
  return files;
}

// ---- start ----

// What an earlier run has left must not be taken for this one's.
void VarCal::init() {
  Algo::init();
  try {
    openFiles();
  } catch (...) {
    discardOutputs(outputs());
    throw;
  }
  discardOutputs(outputs());
}

void VarCal::openFiles() {
  const std::vector<Contig> contigs = context->reference->contigs();
  input_ = openVcfInput(name, vcf_, contigs);
  for (Resource& resource : resources_) resource.reader = openVcfInput(name, resource.path, contigs);
  for (const std::string& path : aggregate_files_) aggregates_.push_back(openVcfInput(name, path, contigs));
  contig_numbers_ = contigMapOf(contigs);
  for (const std::string& path : {output_, tranches_file_, plot_file_})
    if (!path.empty()) openOnce(path);
}

// Whether an output can be written is told before the work.
void VarCal::openOnce(const std::string& path) const {
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) return;
  FILE* const file = fopen(path.c_str(), "w");
  if (!file) throw std::invalid_argument(name + ": cannot open file " + path + ", " + strerror(errno));
  fclose(file);
}

Algo::Engine* VarCal::newEngine(DriverContext* engine_context, int) {
  return new Engine(engine_context, this);
}

// ---- end ----

void VarCal::merge(const Shard&, Algo::Result* result) {
  const std::unique_ptr<Result> owned(static_cast<Result*>(result));
  if (!owned) return;
  if (!owned->block.data.empty()) blocks_.push_back(std::move(owned->block));
}

void VarCal::finish() {
  VariantData data;
  size_t count = 0;
  for (const VariantBlock& block : blocks_) count += block.data.size();
  data.reserve(count);
  for (VariantBlock& block : blocks_)
    for (VariantDatum& datum : block.data) data.push_back(&datum);
  VarCalTraining training(param_, data, context->pool);
  if (training.recalibrate()) return writeResults(training, data);
  discardOutputs(outputs());
  // By agreement no error: a call set may be too small for any model.
  if (training.failed()) fputs("VarCal failed\n", stderr);
}

void VarCal::writeResults(VarCalTraining& training, const VariantData& data) const {
  const std::vector<Contig> contigs = context->reference->contigs();
  dumpData(name, data, param_.annotations.size(), contigs);
  std::vector<Tranche> tranches;
  {
    static Timer* const tranches_timer = timer("vqsr::createTranches");
    TimerScope scope(tranches_timer);
    tranches =
        createTranches(data, param_.targets.empty() ? kDefaultTargets : param_.targets, param_.var_type);
  }
  writeRecalFile(name, output_, data, training.annotations(), contigs, context->reference->path());
  writeTranches(name, tranches_file_, tranches);
  if (tranches.empty())
    fprintf(stderr, "Warning: no tranche from %zu truth sites: the tranches file has titles only\n",
            size_t(std::ranges::count_if(
                data, [](const VariantDatum* d) { return d->isTruth && !d->isAggregate; })));
  if (plot_file_.empty()) return;
  const auto first = std::ranges::min_element(tranches, {}, &Tranche::targetTruthSensitivity);  // of the file
  constexpr double kNone = std::numeric_limits<double>::infinity();
  writePlotFile(name, plot_file_, output_, param_, data, first == tranches.end() ? kNone : first->minVQSLod,
                training);
}

static const TemplateAlgoBuilder<VarCal> builder("VarCal");
