// qual_cal.cpp - options and modes of QualCal, what happens before and after the traversal.
#include "algo/preprocess/qual_cal.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "algo/preprocess/covariates.h"
#include "algo/preprocess/qual_cal_engine.h"
#include "algo/preprocess/qual_transform.h"
#include "algo/preprocess/recal_plot.h"
#include "base/text.h"
#include "readdata/vcf/vcf_contigs.h"

QualCal::QualCal(DriverContext* context, int count, const char* const args[]) : Algo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  std::vector<const char*> positional;
  if (!takeArguments(parser, usage(), count, args, positional)) return;
  settleMode(positional);
}

QualCal::~QualCal() = default;

void QualCal::addOptions(OptionParser& parser) {
  parser.addList("known_sites", 'k', "VCF file of known polymorphic sites", known_sites_);
  parser.addFlag("merge", 0, nullptr, merge_);
  parser.addFlag("plot", 0, "Plot mode", plot_);
  parser.addText("before", 0, "'before' calibration table (plot mode only)", before_);
  parser.addText("after", 0, "'after' calibration table (plot mode only)", after_);
  parser.addText("qcal", 0, nullptr, qcal_);
}

std::string QualCal::usage() const {
  return format(
      "Usage for %s (calibration mode):\n"
      "  driver -i input.bam -r reference.fasta [driver_options] \\\n"
      "         --algo %s [algo_options] output.txt\n"
      "or in plot mode,\n"
      "  driver --algo %s --plot [plot_options] plot.txt\n\n",
      name.c_str(), name.c_str(), name.c_str());
}

void QualCal::settleMode(const std::vector<const char*>& positional) {
  const bool has_inputs = context->reads || context->reference;
  if (!has_inputs && !merge_ && !plot_)
    throw std::invalid_argument(
        name + ": --merge or --plot option is expected, or missing input reference and bam files");
  if (merge_ && plot_)
    throw std::invalid_argument(name + ": --merge and --plot options are mutally exclusive");
  if (merge_) {
    requireMergeRun(positional.empty() ? 0 : positional.size() - 1);
    input_files_.assign(positional.begin() + 1, positional.end());
  } else {
    if (plot_) {
      if (has_inputs)
        throw std::invalid_argument(name + ": --plot must not have input reference or bam files");
      if (before_.empty() && after_.empty()) throw std::invalid_argument(name + ": no input for plot");
    } else {
      if (!context->reference) throw std::invalid_argument(name + ": missing reference");
      if (!context->reads) throw std::invalid_argument(name + ": missing bam input");
    }
    if (positional.empty()) throw std::invalid_argument(name + ": missing output file");
    if (positional.size() > 1) throw std::invalid_argument(name + ": extra argument after output");
    input_files_ = known_sites_;
    if (plot_)
      for (const std::string& table : {before_, after_})
        if (!table.empty()) input_files_.push_back(table);
  }
  output_ = positional[0];
  mode_mask = merge_ || plot_ ? 1u << DriverContext::kNonTraversal
                              : 1u << DriverContext::kTraversal | 1u << DriverContext::kShardedTraversal;
}

std::vector<OutputFile> QualCal::outputs() const {
  if (output_.empty()) return {};
  return {{output_, false}};
}

void QualCal::init() {
  Algo::init();
  if (merge_ || plot_) return;
  giveWarnings();
  listGroups();
  openKnownSites();
  // A place that cannot be written to is told before the work, and a table of an earlier run is not taken for one of
  // this run.
  if (output_.empty()) return;
  FILE* file = fopen(output_.c_str(), "we");
  if (!file || fclose(file) != 0) throw std::invalid_argument("Error: failed to open table file " + output_);
}

void QualCal::giveWarnings() const {
  const std::vector<ReadGroup>& groups = context->reads->input().readGroups();
  if (groups.empty()) fprintf(stderr, "%s: No read group in input bam files, skipped\n", name.c_str());
  for (const ReadGroup& group : groups)
    if (platformIndex(group.platform) < 0)
      fprintf(stderr, "%s: No platform information for read group %s, ignored\n", name.c_str(),
              group.id.c_str());
  if (known_sites_.empty())
    fprintf(stderr, "%s: Missing VCF file of known polymorphic sites, this may lead to inaccurate results\n",
            name.c_str());
}

void QualCal::listGroups() {
  for (const ReadGroup& group : context->reads->input().readGroups()) {
    platforms_.push_back(platformIndex(group.platform));
    table_.groups.emplace_back(group.id);
  }
}

void QualCal::openKnownSites() {
  const std::vector<Contig> contigs = context->reference->contigs();
  for (const std::string& file : known_sites_) {
    known_caches_.push_back(openOfReference(file, contigs));
    if (!known_caches_.back())
      throw std::invalid_argument(name + ": Contigs in vcf " + file + " are not compatible with reference");
  }
}

Algo::Engine* QualCal::newEngine(DriverContext* context, int) {
  return new Engine(context, this, table_, platforms_, known_caches_);
}

uint64_t QualCal::Result::memorySize() const {
  uint64_t bytes = sizeof *this;
  for (const RecalGroup& group : table.groups) {
    bytes += sizeof group;
    for (RecalEvent event : {kMismatch, kInsertion, kDeletion})
      for (int quality = 0; quality < kRecalQualities; quality++)
        if (const RecalRow* row = group.find(event, quality))
          bytes += sizeof *row + (row->contexts.size() + row->cycles.size()) * sizeof(RecalCounts);
  }
  return bytes;
}

void QualCal::merge(const Shard&, Algo::Result* result) {
  std::unique_ptr<Algo::Result> owned(result);
  if (result) table_ += static_cast<Result*>(result)->table;
}

void QualCal::finish() {
  if (plot_) return plot();
  for (const std::string& part : merge_ ? input_files_ : std::vector<std::string>()) table_.addPart(part);
  if (context->mode == DriverContext::kShardedTraversal)
    table_.writePart(output_);
  else
    table_.writeText(output_);
}

void QualCal::plot() const {
  std::vector<RecalVersion> versions;
  std::vector<std::unique_ptr<RecalTable>> tables;
  auto add = [&](const char* version, const std::string& path) {
    if (path.empty()) return;
    tables.push_back(std::make_unique<RecalTable>());
    tables.back()->readText(path);
    versions.push_back({version, tables.back().get()});
  };
  QualCalParams params;
  if (!qcal_.empty() && !params.parse(qcal_))
    throw std::invalid_argument(format("Failed to parse qcal string \"%s\"", qcal_.c_str()));
  add("Before", before_);
  add("After", after_);
  add("QCal", params.table);
  writeRecalPlot(output_, versions);
}

static const TemplateAlgoBuilder<QualCal> builder("QualCal");
