// apply_var_cal.cpp - options, start and end of ApplyVarCal.
#include "algo/vcall/recal/apply_var_cal.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

#include "algo/number_options.h"
#include "algo/output_check.h"
#include "algo/vcall/recal/apply_var_cal_engine.h"
#include "algo/vcall/recal/recal_header.h"
#include "algo/vcall/recal/vcf_input.h"
#include "base/text.h"
#include "readdata/stream/open_stream.h"
#include "readdata/vcf/partial_headers.h"

ApplyVarCal::ApplyVarCal(DriverContext* context, int count, const char* const args[])
    : Algo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  std::vector<const char*> positional;
  if (!takeArguments(parser, usage(), count, args, positional)) return;
  const std::string_view doubled = parser.doubledOption({"ignore_input_filters"});
  if (!doubled.empty()) throw std::invalid_argument(name + ": --" + std::string(doubled) + " duplicated");
  settle(positional);
}

// ---- options ----

void ApplyVarCal::addOptions(OptionParser& parser) {
  parser.addText("vcf", 'v', "Input VCF file", vcf_);
  parser.add({"var_type", required_argument, 0, "Variant type: SNP, INDEL, or BOTH (default: SNP)"},
             [this](const char* value) {
               if (!parseVariantModel(value, filter_.model))
                 throw std::invalid_argument(name + ": invalid var_type " + value);
               return true;
             });
  parser.addText("recal", 0, "Recalibration file, output from algo VarCal ", recal_);
  parser.addText("tranches_file", 0, "Tranches file, output from algo VarCal", tranches_file_);
  NumberOptions numbers(parser, name);
  numbers.add("sensitivity", "Truth sensitivity level (default: 0)", sensitivity_, 0, 100);
  numbers.add("vqslod_cutoff", "VQSLOD limit of the LOW_VQSLOD filter", filter_.cutoff);
  parser.addList("ignore_input_filters", 0, "Filter names that do not exclude a record",
                 ignore_input_filters_);
  parser.addFlag("merge", 0, nullptr, merge_);
}

std::string ApplyVarCal::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -r reference.fasta [driver_options] \\\n"
      "         --algo %s --vcf input.vcf --var_type SNP --recal recal.vcf \\\n"
      "         --sensitivity 99 --tranches_file tranches_file [algo_options] output.recal.vcf\n\n",
      name.c_str(), name.c_str());
}

void ApplyVarCal::settle(const std::vector<const char*>& positional) {
  const auto refuse = [this](const char* text) { throw std::invalid_argument(name + text); };
  mode_mask |= merge_ ? kNonTraversal : kSharded;
  if (merge_) {
    if (positional.empty() || !*positional[0]) refuse(": missing output file");
    output_ = positional[0];
    partials_.assign(positional.begin() + 1, positional.end());
    return requireMergeRun(partials_.size());
  }
  if (!context->reference) refuse(": missing reference");
  if (vcf_.empty()) refuse(": missing input vcf file");
  if (recal_.empty()) refuse(": missing option --recal");
  if (tranches_file_.empty()) refuse(": missing option --tranches_file");
  const bool has_cutoff = filter_.cutoff != RecalFilter().cutoff;
  if (sensitivity_ > 0 && has_cutoff) refuse(": cannot set both --sensitivity and --vqslod_cutoff");
  if (positional.empty() || !*positional[0]) refuse(": missing output file");
  if (positional.size() > 1) refuse(": extra argument after output");
  if (!(sensitivity_ > 0) && !has_cutoff) filter_.cutoff = 0.0;
  output_ = positional[0];
}

std::vector<OutputFile> ApplyVarCal::outputs() const {
  if (output_.empty()) return {};
  return {{output_, !merge_}, {output_ + ".idx", false}, {output_ + ".tbi", false}};
}

std::vector<std::string> ApplyVarCal::inputs() const {
  if (merge_) return partials_;
  return {vcf_, recal_, tranches_file_};
}

// ---- start ----

void ApplyVarCal::init() {
  Algo::init();
  try {
    merge_ ? mergePartials() : openFiles();
  } catch (...) {
    discardOutputs(outputs());
    throw;
  }
}

void ApplyVarCal::openFiles() {
  if (sensitivity_ > 0) {
    filter_.choose(readTranches(tranches_file_), sensitivity_);
    if (filter_.tranches.empty())
      fputs("Warning: no tranche in the tranches file.\n", stderr);
    else if (sensitivity_ < 100 && filter_.tranches.back().targetTruthSensitivity == 100)
      fprintf(stderr,
              "Warning: no tranche from --sensitivity %g up but that of 100: the cut is VQSLOD %.4f\n",
              sensitivity_, filter_.tranches.back().minVQSLod);
  }
  const std::unique_ptr<IOHandle> input_text = openFile(vcf_), recal_text = openFile(recal_);
  const std::vector<Contig> contigs = context->reference->contigs();
  input_ = openVcfInput(name, vcf_, contigs);
  recalibration_ = openVcfInput(name, recal_, contigs);

  RecalHeader header(name, filter_);
  header.readInfoLines(*recal_text, recal_);
  VCFWriter::IndexOptions options;
  options.partial = context->mode == DriverContext::kShardedTraversal;
  writer_ = std::make_unique<VCFWriter>(name, options);
  writer_->open(output_);
  header.copy(*input_text, vcf_, commandLine(),
              [this](std::string_view piece) { writer_->writeHeaderText(piece); });
}

std::unique_ptr<IOHandle> ApplyVarCal::openFile(const std::string& path) const {
  std::string reason;
  std::unique_ptr<IOHandle> stream = openStream(path, "r", &reason);
  if (!stream) throw std::runtime_error(name + ": Failed to open file " + path + ", " + reason);
  return stream;
}

std::string ApplyVarCal::commandLine() const {
  VCFHeader header;
  header.addCommandLine(name, command_line_);
  const auto& [key, entries] = *header.defs.begin();
  std::string text = "##" + key + "=<ID=" + entries[0].id;
  for (const std::string& attribute : entries[0].attrs) text += "," + attribute;
  return text + ">\n";
}

void ApplyVarCal::mergePartials() {
  const VCFHeader first = checkPartials(name, partials_, {});
  writer_ = std::make_unique<VCFWriter>(name);
  writer_->open(output_);
  writer_->expectOrder(first);
  for (const std::string& partial : partials_) writer_->merge(partial);
}

Algo::Engine* ApplyVarCal::newEngine(DriverContext* engine_context, int) {
  return new Engine(engine_context, this);
}

// ---- merge and end ----

void ApplyVarCal::merge(const Shard&, Algo::Result* result) {
  const std::unique_ptr<Result> owned(static_cast<Result*>(result));
  if (!owned || owned->path.empty()) return;
  taken_ += owned->taken;
  recalibrated_ += owned->recalibrated;
  writer_->merge(owned.get(), owned->path);
  if (unlink(owned->path.c_str()) != 0)
    throw std::runtime_error(name + ": cannot remove file " + owned->path + ": " + strerror(errno));
}

void ApplyVarCal::finish() {
  writer_->close();
  if (taken_ > 0 && recalibrated_ == 0)
    fprintf(stderr, "Warning: none of %" PRIu64 " %s records of %s is in the recalibration file %s\n", taken_,
            kModelNames[filter_.model], vcf_.c_str(), recal_.c_str());
}

static const TemplateAlgoBuilder<ApplyVarCal> builder("ApplyVarCal");
