// Options, samples, side inputs, the output and its merging.
#include "algo/vcall/variant_call_algo.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <strings.h>
#include <unistd.h>
#include <utility>

#include "algo/output_check.h"
#include "base/log_math.h"
#include "base/text.h"
#include "readdata/vcf/partial_headers.h"
#include "readdata/vcf/vcf_contigs.h"

namespace {

constexpr int64_t kMaxChromosomes = 1 << 20;  // of all samples: what the log tables are grown to

// In the order in which they were agreed on; annotators have their own.
constexpr const char* kDefaultAnnotations[] = {"AC",
                                               "AF",
                                               "AN",
                                               "DP",
                                               "MLEAC",
                                               "MLEAF",
                                               "MQ",
                                               "MQ0",
                                               "QD",
                                               "FS",
                                               "SOR",
                                               "BaseQRankSum",
                                               "ClippingRankSum",
                                               "MQRankSum",
                                               "ReadPosRankSum",
                                               "InbreedingCoeff",
                                               "ExcessHet"};

constexpr const char* kEmitModes[] = {"variant", "confident", "all", "gvcf"};

int parseEmitMode(const char* text) {
  for (int mode = 0; mode < 4; ++mode)
    if (strcasecmp(text, kEmitModes[mode]) == 0) return mode;
  return -1;
}

bool parseConfidence(const char* text, double& value) {
  return parseReal(text, value) && std::isfinite(value);
}

// As far as partial files must have the same.
std::vector<std::string> emitMode(const VCFHeader& header) {
  return {header.hasBlockLines() ? "gvcf" : ""};
}

std::vector<std::string> contigNames(const VCFHeader& header) {
  std::vector<std::string> names;
  if (const auto found = header.defs.find("contig"); found != header.defs.end())
    for (const VCFHeaderDef& def : found->second) names.push_back(def.id);
  return names;
}

// Whether the run of a partial file, as far as its command line is known, had no --interval.
bool isOfWholeContigs(const VCFHeader& header, const std::string& algo) {
  size_t cursor = 0;
  const VCFHeaderDef* const def = header.findDef("TorvesinCommandLine." + algo, nullptr, &cursor);
  return def && std::none_of(def->attrs.begin(), def->attrs.end(),
                             [](const std::string& text) { return text.find(" --interv") != text.npos; });
}

}  // namespace

VariantCallAlgo::VariantCallAlgo(DriverContext* context, int count, const char* const args[])
    : Algo(context, count, args) {}

VariantCallAlgo::~VariantCallAlgo() = default;

// ---- options ----

void VariantCallAlgo::addAnnotationOption(OptionParser& parser) {
  parser.add({"annotation", required_argument, 0, "Annotations to include, or exclude using '!' prefix"},
             [this](const char* value) {
               for (std::string& piece : split(value, ','))
                 if (!piece.empty()) annotations_.push_back(std::move(piece));
               return true;
             });
}

void VariantCallAlgo::addEmitOptions(OptionParser& parser, const char* emit_mode_help) {
  const auto addConfidence = [&](const char* option, const char* help, double& field) {
    parser.add({option, required_argument, 0, help}, [this, option, &field](const char* value) {
      if (!parseConfidence(value, field))
        throw std::invalid_argument(name + ": invalid " + option + " " + value);
      return true;
    });
  };
  addConfidence("call_conf", "Call confidence level (default: 30)", call_conf_);
  addConfidence("emit_conf", "Emit confidence level (default: 30)", emit_conf_);
  parser.add({"emit_mode", required_argument, 0, emit_mode_help}, [this](const char* value) {
    emit_mode_ = parseEmitMode(value);
    if (emit_mode_ < 0) throw std::invalid_argument(name + ": unknown emit mode " + value);
    emit_mode_text_ = value;
    return true;
  });
}

void VariantCallAlgo::addFile(OptionParser& parser, const char* option, int shortLetter, const char* help,
                              std::function<void(const char* path)> take) {
  parser.add({option, required_argument, shortLetter, help},
             [this, option, take = std::move(take)](const char* path) {
               if (!*path) throw std::invalid_argument(name + ": empty file name of --" + option);
               take(path);
               return true;
             });
}

void VariantCallAlgo::addGivenOption(OptionParser& parser) {
  addFile(parser, "given", 0, "Call only the variants given in a vcf file",
          [this](const char* path) { given_file_ = path; });
}

void VariantCallAlgo::addFileOptions(OptionParser& parser) {
  addFile(parser, "dbsnp", 'd', "dbSNP file", [this](const char* path) { dbsnp_file_ = path; });
  parser.addFlag("merge", 0, nullptr, merge_);
}

bool VariantCallAlgo::readArguments(OptionParser& parser, const std::string& usage, int count,
                                    const char* const args[], bool gvcf_allowed) {
  std::vector<const char*> positional;
  if (!takeArguments(parser, usage, count, args, positional)) return false;
  settle(positional, gvcf_allowed);
  return true;
}

void VariantCallAlgo::settle(const std::vector<const char*>& positional, bool gvcf_allowed) {
  const auto refuse = [this](const std::string& text) { throw std::invalid_argument(name + text); };
  const bool gvcf = emit_mode_ == kGvcf;
  if (gvcf && !gvcf_allowed) refuse(": unknown emit mode " + emit_mode_text_);
  if (gvcf && !given_file_.empty()) refuse(": cannot specify a given vcf in gvcf emit mode");
  gq_bands_ = parseGQBands(gq_bands_text_);
  if (gq_bands_.empty()) refuse(": invalid GQ bands " + gq_bands_text_);
  if (!merge_) {
    const bool lacks_reads = needsReads() && !context->reads;
    if (!context->reference && lacks_reads) refuse(": missing reference and bam input");
    if (!context->reference) refuse(": missing reference");
    if (lacks_reads) refuse(": missing bam input");
  }
  if (positional.empty() || !*positional[0]) refuse(": missing output file");
  output_ = positional[0];
  partials_.assign(positional.begin() + 1, positional.end());
  if (merge_)
    requireMergeRun(partials_.size());
  else
    takeFurtherArguments(std::exchange(partials_, {}));
  mode_mask |= merge_ ? kNonTraversal : kSharded;
  settleAnnotations();
}

void VariantCallAlgo::takeFurtherArguments(const std::vector<std::string>& arguments) {
  if (!arguments.empty()) throw std::invalid_argument(name + ": extra argument after output");
}

void VariantCallAlgo::settleAnnotations() {
  for (const char* annotation : kDefaultAnnotations)
    if (const AnnotationDef* def = findAnnotation(annotation)) wanted_.add(annotationField(*def));
  for (const std::string& annotation : annotations_) {
    const bool removes = annotation[0] == '!';
    const AnnotationDef* def = findAnnotation(std::string_view(annotation).substr(removes));
    if (!def)
      fprintf(stderr, "Unknown annotation %s\n", annotation.c_str() + removes);
    else if (removes)
      wanted_.remove(annotationField(*def));
    else
      wanted_.add(annotationField(*def));
  }
}

std::vector<OutputFile> VariantCallAlgo::outputs() const {
  if (output_.empty()) return {};
  return {{output_, !merge_}, {output_ + ".idx", false}, {output_ + ".tbi", false}};
}

std::vector<std::string> VariantCallAlgo::inputs() const {
  if (merge_) return partials_;
  std::vector<std::string> files;
  for (const std::string& file : {dbsnp_file_, given_file_})
    if (!file.empty()) files.push_back(file);
  return files;
}

// ---- start and end ----

void VariantCallAlgo::init() {
  Algo::init();
  if (merge_) return mergePartials();
  takeSamples();
  makeRoomInTables();
  dbsnp_ = openVcf(dbsnp_file_);
  given_ = openVcf(given_file_);
  completeAnnotations();
  VCFHeader header;
  startHeader(header);
  fillHeader(header);
  writer_ = openOutput(emit_mode_ == kGvcf);
  writer_->writeHeader(header);
}

void VariantCallAlgo::takeSamples() {
  const std::vector<ReadGroup>& groups = context->reads->input().readGroups();
  if (groups.empty()) throw std::invalid_argument(name + ": no read group (@RG) in the bam input");
  for (const ReadGroup& group : groups) samples_.push_back(group.sample);  // InputSet has refused empty ones
  std::sort(samples_.begin(), samples_.end());
  samples_.erase(std::unique(samples_.begin(), samples_.end()), samples_.end());
  for (const ReadGroup& group : groups)
    sample_of_group_.push_back(static_cast<int32_t>(
        std::lower_bound(samples_.begin(), samples_.end(), group.sample) - samples_.begin()));
  if (emit_mode_ == kGvcf && samples_.size() != 1)
    throw std::invalid_argument(name + ": Only a single sample is allowed in GVCF emit mode");
}

void VariantCallAlgo::makeRoomInTables() const {
  const int64_t chromosomes = std::max<int64_t>(ploidy(), 2) * static_cast<int64_t>(samples_.size());
  if (chromosomes > kMaxChromosomes)
    throw std::invalid_argument(format("%s: too many chromosomes: %zu samples of ploidy %d", name.c_str(),
                                       samples_.size(), ploidy()));
  growLogTables(static_cast<size_t>(chromosomes) + 1);
}

std::unique_ptr<VCFCache> VariantCallAlgo::openVcf(const std::string& path) const {
  if (path.empty()) return nullptr;
  std::unique_ptr<VCFCache> cache = openOfReference(path, context->reference->contigs());
  if (!cache) throw std::invalid_argument(name + contigFault(path));
  return cache;
}

std::unique_ptr<VCFWriter> VariantCallAlgo::openOutput(bool gvcf) const {
  VCFWriter::IndexOptions options;
  options.partial = context->mode == DriverContext::kShardedTraversal;
  std::unique_ptr<VCFWriter> writer =
      gvcf ? std::make_unique<GVCFWriter>(name, options) : std::make_unique<VCFWriter>(name, options);
  writer->open(output_);
  return writer;
}

// What mode gvcf has in place of other fields, and the annotators that are needed.
void VariantCallAlgo::completeAnnotations() {
  using enum AnnotationField;
  if (emit_mode_ == kGvcf) {
    if (wanted_.has(DP)) wanted_.add(MIN_DP);
    if (wanted_.has(MQ)) wanted_.add(RAW_MQ);
    if (wanted_.has(FS) || wanted_.has(SOR)) wanted_.add(SB);
    for (AnnotationField replaced : {MQ, FS, SOR}) wanted_.remove(replaced);
  }
  for (size_t i = 0; i < static_cast<size_t>(kCount); ++i)
    if (const auto field = static_cast<AnnotationField>(i); wanted_.has(field))
      annotators_.insert(&annotationDef(field));
}

void VariantCallAlgo::mergePartials() {
  const VCFHeader first =
      checkPartials(name, partials_, {{"emit mode", emitMode}, {"reference", contigNames}});
  const bool blocks = first.hasBlockLines();
  writer_ = openOutput(blocks);
  try {
    writer_->expectOrder(first);
    if (blocks && isOfWholeContigs(first, name)) static_cast<GVCFWriter&>(*writer_).expectAllPositions();
    for (const std::string& partial : partials_) writer_->merge(partial);
  } catch (...) {
    writer_.reset();
    discardOutputs(outputs());
    throw;
  }
}

void VariantCallAlgo::finish() {
  if (writer_) writer_->close();
}

// ---- merge ----

uint64_t VariantCallAlgo::Result::memorySize() const {
  uint64_t bytes = sizeof *this + path.capacity();
  for (const GQBlock* block : {&head, &tail})
    bytes += (block->minPL.capacity() + block->GQ.capacity() + block->DP.capacity()) * sizeof(int32_t) +
             block->ref.capacity();
  return bytes;
}

void VariantCallAlgo::merge(const Shard&, Algo::Result* result) {
  const std::unique_ptr<Result> owned(static_cast<Result*>(result));
  if (!owned || owned->path.empty()) return;
  writer_->merge(owned.get(), owned->path);
  if (unlink(owned->path.c_str()) != 0)
    throw std::runtime_error(name + ": cannot remove file " + owned->path + ": " + strerror(errno));
}
