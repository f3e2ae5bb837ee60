// gvcftyper.cpp - options and start of GVCFtyper.
#include "algo/vcall/joint/gvcftyper.h"

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <unordered_set>

#include "algo/vcall/joint/gvcftyper_engine.h"
#include "base/text.h"
#include "base/timer.h"
#include "readdata/stream/open_stream.h"

namespace {

// INFO fields that the joint record has values of its own for.
constexpr AnnotationField kOwnFields[] = {AnnotationField::AC, AnnotationField::AF, AnnotationField::AN,
                                          AnnotationField::QD};
// And those that follow from the joint genotypes, when the inputs know them.
constexpr AnnotationField kGenotypeFields[] = {AnnotationField::ExcessHet, AnnotationField::GQ_MEAN,
                                               AnnotationField::GQ_STDDEV, AnnotationField::InbreedingCoeff,
                                               AnnotationField::MLEAC,     AnnotationField::MLEAF};

// Whether a file is there that is no output of joint calling.
bool isGVCF(const std::string& path) {
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) return false;
  const std::unique_ptr<IOHandle> stream = openStream(path, "r");
  VCFHeader header;
  try {
    if (stream) header.parse(*stream);
  } catch (const std::runtime_error&) {
    return false;
  }
  return header.hasBlockLines();
}

}  // namespace

GVCFtyper::GVCFtyper(DriverContext* context, int count, const char* const args[])
    : VariantCallAlgo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  if (!readArguments(parser, usage(), count, args, false)) return;
  if (merge_ && !input_paths_.empty())
    throw std::invalid_argument(name + ": --merge must not have input vcf files");
}

// ---- options ----

void GVCFtyper::addOptions(OptionParser& parser) {
  parser.addList("gvcf", 'v', "Input gVCF file", input_paths_);
  addEmitOptions(parser, "Emit mode: variant, confident or all (default: variant)");
  parser.add({"max_alt_alleles", required_argument, 0, "Maximum number of alternate alleles (default: 100)"},
             [this](const char* value) {
               int64_t number;
               if (!parseInteger(value, 0, INT32_MAX, number))
                 throw std::invalid_argument(name + ": invalid max_alt_alleles " + value);
               max_alt_alleles_ = static_cast<size_t>(number);
               return true;
             });
  parser.addFlag("uniquify_samples", 0, "Make equal sample names of different inputs unique",
                 uniquify_samples_);
  addFileOptions(parser);
}

std::string GVCFtyper::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -r reference.fasta [driver_options] \\\n"
      "         --algo %s -v input.g.vcf[.gz] [algo_options] output.vcf[.gz]\n"
      "  or\n"
      "  driver -r reference.fasta [driver_options] \\\n"
      "         --algo %s [algo_options] output.vcf[.gz] input.g.vcf[.gz] ...\n\n",
      name.c_str(), name.c_str(), name.c_str());
}

void GVCFtyper::takeFurtherArguments(const std::vector<std::string>& arguments) {
  if (!arguments.empty() && isGVCF(output_))
    throw std::invalid_argument(name + ": output file " + output_ +
                                " is a gvcf file: the output comes before the inputs");
  input_paths_.insert(input_paths_.end(), arguments.begin(), arguments.end());
  if (input_paths_.empty()) throw std::invalid_argument(name + ": missing input vcf files");
  dropRepeatedInputs();
}

void GVCFtyper::dropRepeatedInputs() {
  std::unordered_set<std::string> known;
  std::erase_if(input_paths_, [&](const std::string& path) {
    if (known.insert(std::filesystem::absolute(path).lexically_normal().string()).second) return false;
    fprintf(stderr, "Warning: %s: input file %s specified more than once\n", name.c_str(), path.c_str());
    return true;
  });
}

std::vector<std::string> GVCFtyper::inputs() const {
  std::vector<std::string> files = VariantCallAlgo::inputs();
  files.insert(files.end(), input_paths_.begin(), input_paths_.end());
  return files;
}

// ---- start ----

int GVCFtyper::ploidy() const {
  return static_cast<int>(gvcfs_.largestPloidy());
}

void GVCFtyper::takeSamples() {
  static Timer* const open_timer = timer("open_vcf");
  TimerScope scope(open_timer);
  gvcfs_.open({name, uniquify_samples_, context->pool, context->thread_count}, input_paths_,
              context->reference->contigs());
  samples_ = gvcfs_.header.samples;
  chooseAnnotations();
}

// The rest of INFO is made of the inputs' values.
void GVCFtyper::chooseAnnotations() {
  wanted_ = {};
  for (AnnotationField field : kOwnFields) wanted_.add(field);
  for (AnnotationField field : kGenotypeFields) {
    size_t cursor = 0;
    if (gvcfs_.header.findDef("INFO", annotationDef(field).name, &cursor)) wanted_.add(field);
  }
}

void GVCFtyper::startHeader(VCFHeader& header) {
  header = gvcfs_.header;
  const auto has = [&header](const char* key, const char* id) {
    size_t cursor = 0;
    return header.findDef(key, id, &cursor) != nullptr;
  };
  const auto add = [&header](AnnotationField field) {
    const AnnotationDef& def = annotationDef(field);
    header.addInfoDef(def.name, def.number, def.type, def.description);
  };
  add(AnnotationField::DP);
  if (has("INFO", "RAW_MQ")) add(AnnotationField::MQ);
  if (has("FORMAT", "SB")) {
    add(AnnotationField::FS);
    add(AnnotationField::SOR);
  }
}

Algo::Engine* GVCFtyper::newEngine(DriverContext* engine_context, int) {
  return new Engine(engine_context, this);
}

static const TemplateAlgoBuilder<GVCFtyper> builder("GVCFtyper");
