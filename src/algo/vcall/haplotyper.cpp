// haplotyper.cpp - options and start of Haplotyper.
#include "algo/vcall/haplotyper.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <strings.h>

#include "algo/vcall/haplotyper_engine.h"
#include "algo/vcall/model/genotype_index.h"
#include "algo/vcall/pairhmm/models.h"
#include "base/text.h"

namespace {

constexpr int64_t kMaxPloidy = 50;
constexpr int64_t kMaxKmerSize = 1000;
constexpr size_t kMaxGenotypes = 1024;      // of a site
constexpr size_t kMostGenotypes = 1 << 20;  // of a site, when the user says how many alternates it may have
constexpr int kMinDerivedAlternates = 2;

int parsePcrModel(const char* text) {
  constexpr const char* kNames[] = {"NONE", "HOSTILE", "AGGRESSIVE", "CONSERVATIVE"};
  for (int model = 0; model < 4; ++model)
    if (strcasecmp(text, kNames[model]) == 0) return model;
  return -1;
}

// The largest number of alternates whose genotypes the exact model is to handle.
int deriveMaxAlternates(uint32_t ploidy) {
  int alternates = kMinDerivedAlternates;
  while (GenotypeIndex::count(ploidy, size_t(alternates) + 2) <= kMaxGenotypes) ++alternates;
  return alternates;
}

}  // namespace

Haplotyper::Haplotyper(DriverContext* context, int count, const char* const args[])
    : VariantCallAlgo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  if (!readArguments(parser, usage(), count, args, true)) return;
  settlePhasing();
  checkGenotypes();
  setUpLikelihoods();
  param_.hasGiven = !given_file_.empty();
  // The one place that knows which assemblers there are.
  if (param_.assembleMode == 2)
    throw std::invalid_argument(name + ": assemble_mode 2 is not available: there is no feature assembler");
  if (emit_mode_ == kGvcf)
    for (AnnotationField field : {AnnotationField::AC, AnnotationField::AF, AnnotationField::AN,
                                  AnnotationField::QD, AnnotationField::MQ0})
      wanted_.remove(field);
  if (!merge_) debug_ = DebugPositions::ofEnvironment();
  if (!debug_.empty()) debug_.check(*context->reference);
}

// ---- options ----

template <typename Integer>
void Haplotyper::addRanged(OptionParser& parser, const char* option, const char* help, int64_t low,
                           int64_t high, Integer& field) {
  parser.add({option, required_argument, 0, help}, [this, option, low, high, &field](const char* value) {
    int64_t number;
    if (!parseInteger(value, low, high, number))
      throw std::invalid_argument(name + ": invalid " + option + " " + value);
    field = static_cast<Integer>(number);
    return true;
  });
}

void Haplotyper::addOptions(OptionParser& parser) {
  addAnnotationOption(parser);
  addEmitOptions(parser, "Emit mode: variant, confident, all or gvcf\n(default: variant)");
  parser.addText("gq_bands", 0, "GQ band thresholds (default: 1-60,60-99/10,99)", gq_bands_text_);
  addRanged(parser, "min_base_qual", "Minimum base quality to consider (default: 10)", 0, 255,
            param_.minBaseQual);
  addRanged(parser, "min_map_qual", nullptr, 0, 255, param_.minMapQual);
  addRanged(parser, "max_alt_alleles", nullptr, 0, INT32_MAX, param_.maxAltAlleles);
  addRanged(parser, "ploidy", "Sample ploidy (default: 2)", 1, kMaxPloidy, param_.ploidy);
  parser.add({"pcr_indel_model", required_argument, 0,
              "PCR indel error model: none, hostile, aggressive,\nor conservative (default: conservative)"},
             [this](const char* value) {
               param_.pcrModel = parsePcrModel(value);
               if (param_.pcrModel < 0)
                 throw std::invalid_argument(name + ": invalid PCR indel model " + value);
               return true;
             });
  addRanged(parser, "phasing",
            "Disable/enable phasing: 0 or 1 (default: 1)\n(applicable only to diploid in gvcf mode)", 0, 1,
            param_.phasing);
  addRanged(parser, "phmm_chunk_size", nullptr, INT32_MIN, INT32_MAX, param_.phmmChunkSize);
  parser.addText("phmm_param", 0, nullptr, param_.phmmParam);
  addAssemblyOptions(parser);
  addFeatureOptions(parser);
  addGivenOption(parser);
  addFileOptions(parser);
}

void Haplotyper::addAssemblyOptions(OptionParser& parser) {
  addRanged(parser, "prune_factor", "Pruning factor in the kmer graph (default: 2)", 0, INT32_MAX,
            param_.pruneFactor);
  parser.add({"trim_soft_clip", optional_argument, 0, "Trim off soft-clipped bases"},
             [this](const char* value) {
               int64_t number = 1;
               if (value && !parseInteger(value, 0, INT32_MAX, number))
                 throw std::invalid_argument(name + ": invalid trim_soft_clip " + value);
               param_.trimSoftClip = static_cast<int>(number);
               return true;
             });
  parser.add({"kmer_sizes", required_argument, 0, nullptr}, [this](const char* value) {
    parseKmerSizes(value);
    return true;
  });
  addRanged(parser, "assemble_mode", nullptr, 0, 3, param_.assembleMode);
  addCheckedInteger(parser, "assemble_qlen", INT32_MIN, INT32_MAX);
  addRanged(parser, "resample_depth", nullptr, 0, INT32_MAX, param_.resampleDepth);
  addRanged(parser, "resample_read_len", nullptr, 1, INT32_MAX, param_.resampleReadLen);
}

// Of the feature assembler, which does not exist yet: the values are checked and mean nothing.
void Haplotyper::addFeatureOptions(OptionParser& parser) {
  addCheckedInteger(parser, "fg_min_base_qual", 0, 255);
  for (const char* option :
       {"fg_min_depth", "fg_min_indel_support", "fg_min_snp_support", "fg_min_scaffold_support"})
    addCheckedInteger(parser, option, 0, INT32_MAX);
  for (const char* option : {"fg_min_indel_ratio", "fg_min_snp_ratio"}) addCheckedRatio(parser, option);
  addCheckedInteger(parser, "fg_max_haplotype", 1, INT32_MAX);
  addCheckedInteger(parser, "fg_extend_softclip", 0, 1);
  addCheckedInteger(parser, "fg_extend_softclip_thresh", INT32_MIN, INT32_MAX);
}

void Haplotyper::addCheckedInteger(OptionParser& parser, const char* option, int64_t low, int64_t high) {
  parser.add({option, required_argument, 0, nullptr}, [this, option, low, high](const char* value) {
    int64_t number;
    if (!parseInteger(value, low, high, number))
      throw std::invalid_argument(name + ": invalid " + option + " " + value);
    return true;
  });
}

void Haplotyper::addCheckedRatio(OptionParser& parser, const char* option) {
  parser.add({option, required_argument, 0, nullptr}, [this, option](const char* value) {
    char* rest;
    const double number = strtod(value, &rest);
    if (rest == value || *rest || !(number >= 0 && number <= 1))
      throw std::invalid_argument(name + ": invalid " + option + " " + value);
    return true;
  });
}

// A list takes the place of the sizes; one behind a '+' adds to them.
void Haplotyper::parseKmerSizes(const char* text) {
  const bool adds = *text == '+';
  std::vector<int> sizes;
  if (adds) sizes = param_.kmerSizes;
  for (const std::string& piece : split(text + adds, ',')) {
    int64_t size;
    if (!parseInteger(piece, 1, kMaxKmerSize, size))
      throw std::invalid_argument(name + ": kmer size list " + text);
    sizes.push_back(static_cast<int>(size));
  }
  param_.kmerSizes = std::move(sizes);
}

void Haplotyper::settlePhasing() {
  const bool diploid = param_.ploidy == 2, gvcf = emit_mode_ == kGvcf;
  if (param_.phasing == 1 && !diploid)
    throw std::invalid_argument(name + ": phasing is only support for diploid samples");
  if (param_.phasing < 0) param_.phasing = diploid;
  if (!gvcf) param_.phasing = 0;
}

// A site has fewer alternates than its region has haplotypes, and <NON_REF>.
void Haplotyper::checkGenotypes() const {
  const size_t alternates = std::min(size_t(param_.maxAltAlleles), RegionAssembler::kMaxHaplotypes);
  if (GenotypeIndex::count(param_.ploidy, alternates + 2) > kMostGenotypes)
    throw std::invalid_argument(format("%s: invalid max_alt_alleles %d, too many genotypes of ploidy %u",
                                       name.c_str(), param_.maxAltAlleles, param_.ploidy));
}

void Haplotyper::setUpLikelihoods() {
  if (!merge_) PairHMM::checkEngine();
  hmm_ = std::make_unique<PairHMM>(std::make_unique<HaploModel>(param_.pcrModel));
  if (param_.phmmParam.empty()) return;
  bool valid;
  try {
    valid = hmm_->configure(param_.phmmParam);
  } catch (const std::invalid_argument& fault) {
    throw std::invalid_argument(name + fault.what());
  }
  if (!valid) throw std::invalid_argument(name + ": invalid phmm_param settings " + param_.phmmParam);
}

std::string Haplotyper::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -i input.bam -r reference.fasta [driver_options] \\\n"
      "         --algo %s [algo_options] output.vcf[.gz]\n\n",
      name.c_str(), name.c_str());
}

// ---- start ----

void Haplotyper::init() {
  VariantCallAlgo::init();
  if (merge_) return;
  if (param_.maxAltAlleles == 0) param_.maxAltAlleles = deriveMaxAlternates(param_.ploidy);
  assembler_ = std::make_unique<RegionAssembler>(param_, sample_of_group_);
}

void Haplotyper::addHeaderLines(VCFHeader& header) {
  if (!param_.phasing) return;
  header.addFormatDef(
      "PGT", "1", "String",
      "\"Physical phasing haplotype information, describing how the alternate alleles are phased "
      "in relation to one another\"");
  header.addFormatDef(
      "PID", "1", "String",
      "\"Physical phasing ID information, where each unique ID within a given sample (but not "
      "across samples) connects records within a phasing group\"");
}

Algo::Engine* Haplotyper::newEngine(DriverContext* context, int) {
  return new Engine(context, this, param_, *assembler_, *hmm_);
}

static const TemplateAlgoBuilder<Haplotyper> builder("Haplotyper");
