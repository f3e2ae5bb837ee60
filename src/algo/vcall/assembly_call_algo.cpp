// assembly_call_algo.cpp - options and start that callers by assembly share.
#include "algo/vcall/assembly_call_algo.h"

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <strings.h>

#include "algo/vcall/pairhmm/models.h"
#include "base/text.h"

namespace {

constexpr int64_t kMaxKmerSize = 1000;

int parsePcrModel(const char* text) {
  constexpr const char* kNames[] = {"NONE", "HOSTILE", "AGGRESSIVE", "CONSERVATIVE"};
  for (int model = 0; model < 4; ++model)
    if (strcasecmp(text, kNames[model]) == 0) return model;
  return -1;
}

}  // namespace

AssemblyCallAlgo::AssemblyCallAlgo(DriverContext* context, int count, const char* const args[])
    : VariantCallAlgo(context, count, args) {}

AssemblyCallAlgo::~AssemblyCallAlgo() = default;

// ---- options ----

void AssemblyCallAlgo::addPcrOption(OptionParser& parser) {
  parser.add({"pcr_indel_model", required_argument, 0,
              "PCR indel error model: none, hostile, aggressive,\nor conservative (default: conservative)"},
             [this](const char* value) {
               assemblyParam().pcrModel = parsePcrModel(value);
               if (assemblyParam().pcrModel < 0)
                 throw std::invalid_argument(name + ": invalid PCR indel model " + value);
               return true;
             });
}

void AssemblyCallAlgo::addAssemblyOptions(OptionParser& parser) {
  addRanged(parser, "phmm_chunk_size", nullptr, INT32_MIN, INT32_MAX, assemblyParam().phmmChunkSize);
  parser.addText("phmm_param", 0, nullptr, assemblyParam().phmmParam);
  addRanged(parser, "prune_factor", "Pruning factor in the kmer graph (default: 2)", 0, INT32_MAX,
            assemblyParam().pruneFactor);
  parser.add({"trim_soft_clip", optional_argument, 0, "Trim off soft-clipped bases"},
             [this](const char* value) {
               int64_t number = 1;
               if (value && !parseInteger(value, 0, INT32_MAX, number))
                 throw std::invalid_argument(name + ": invalid trim_soft_clip " + value);
               assemblyParam().trimSoftClip = static_cast<int>(number);
               return true;
             });
  parser.add({"kmer_sizes", required_argument, 0, nullptr}, [this](const char* value) {
    parseKmerSizes(value);
    return true;
  });
  addRanged(parser, "assemble_mode", nullptr, 0, 3, assemblyParam().assembleMode);
  addCheckedInteger(parser, "assemble_qlen", INT32_MIN, INT32_MAX);
  addRanged(parser, "resample_depth", nullptr, 0, INT32_MAX, assemblyParam().resampleDepth);
  addRanged(parser, "resample_read_len", nullptr, 1, INT32_MAX, assemblyParam().resampleReadLen);
  addFeatureOptions(parser);
}

// Of the feature assembler, which does not exist yet: the values are checked and mean nothing.
void AssemblyCallAlgo::addFeatureOptions(OptionParser& parser) {
  addCheckedInteger(parser, "fg_min_base_qual", 0, 255);
  for (const char* option :
       {"fg_min_depth", "fg_min_indel_support", "fg_min_snp_support", "fg_min_scaffold_support"})
    addCheckedInteger(parser, option, 0, INT32_MAX);
  for (const char* option : {"fg_min_indel_ratio", "fg_min_snp_ratio"}) addCheckedRatio(parser, option);
  addCheckedInteger(parser, "fg_max_haplotype", 1, INT32_MAX);
  addCheckedInteger(parser, "fg_extend_softclip", 0, 1);
  addCheckedInteger(parser, "fg_extend_softclip_thresh", INT32_MIN, INT32_MAX);
}

void AssemblyCallAlgo::addCheckedInteger(OptionParser& parser, const char* option, int64_t low,
                                         int64_t high) {
  parser.add({option, required_argument, 0, nullptr}, [this, option, low, high](const char* value) {
    int64_t number;
    if (!parseInteger(value, low, high, number))
      throw std::invalid_argument(name + ": invalid " + option + " " + value);
    return true;
  });
}

void AssemblyCallAlgo::addCheckedRatio(OptionParser& parser, const char* option) {
  parser.add({option, required_argument, 0, nullptr}, [this, option](const char* value) {
    double number;
    if (!parseReal(value, number) || !(number >= 0 && number <= 1))
      throw std::invalid_argument(name + ": invalid " + option + " " + value);
    return true;
  });
}

// A list takes the place of the sizes; one behind a '+' adds to them.
void AssemblyCallAlgo::parseKmerSizes(const char* text) {
  const bool adds = *text == '+';
  std::vector<int> sizes;
  if (adds) sizes = assemblyParam().kmerSizes;
  for (const std::string& piece : split(text + adds, ',')) {
    int64_t size;
    if (!parseInteger(piece, 1, kMaxKmerSize, size))
      throw std::invalid_argument(name + ": kmer size list " + text);
    sizes.push_back(static_cast<int>(size));
  }
  assemblyParam().kmerSizes = std::move(sizes);
}

void AssemblyCallAlgo::settleAssembly(std::unique_ptr<PairHMM::Model> model) {
  // The one place that knows which assemblers there are.
  if (assemblyParam().assembleMode == 2)
    throw std::invalid_argument(name + ": assemble_mode 2 is not available: there is no feature assembler");
  if (!merge_) PairHMM::checkEngine();
  if (!merge_) debug_ = DebugPositions::ofEnvironment();
  if (!debug_.empty()) debug_.check(*context->reference);
  hmm_ = std::make_unique<PairHMM>(std::move(model));
  if (assemblyParam().phmmParam.empty()) return;
  bool valid;
  try {
    valid = hmm_->configure(assemblyParam().phmmParam);
  } catch (const std::invalid_argument& fault) {
    throw std::invalid_argument(name + fault.what());
  }
  if (!valid)
    throw std::invalid_argument(name + ": invalid phmm_param settings " + assemblyParam().phmmParam);
}

// ---- start ----

void AssemblyCallAlgo::init() {
  VariantCallAlgo::init();
  if (!merge_) assembler_ = std::make_unique<RegionAssembler>(assemblyParam(), sample_of_group_);
}

void AssemblyCallAlgo::addPhasingLines(VCFHeader& header) {
  header.addFormatDef(
      "PGT", "1", "String",
      "\"Physical phasing haplotype information, describing how the alternate alleles are phased "
      "in relation to one another\"");
  header.addFormatDef(
      "PID", "1", "String",
      "\"Physical phasing ID information, where each unique ID within a given sample (but not "
      "across samples) connects records within a phasing group\"");
}
