// haplotyper.cpp - options and start of Haplotyper.
#include "algo/vcall/haplotyper.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include "algo/vcall/haplotyper_engine.h"
#include "algo/vcall/model/genotype_assignment.h"
#include "algo/vcall/model/genotype_index.h"
#include "algo/vcall/pairhmm/models.h"
#include "base/text.h"

namespace {

constexpr int64_t kMaxPloidy = 50;
constexpr size_t kMaxGenotypes = 1024;      // of a site
constexpr size_t kMostGenotypes = 1 << 20;  // of a site, when the user says how many alternates it may have
constexpr int kMinDerivedAlternates = 2;
constexpr double kConfidence = 30;  // phred
constexpr double kNotGiven = std::numeric_limits<double>::quiet_NaN();

// The largest number of alternates whose genotypes the exact model is to handle.
int deriveMaxAlternates(uint32_t ploidy) {
  int alternates = kMinDerivedAlternates;
  while (GenotypeIndex::count(ploidy, size_t(alternates) + 2) <= kMaxGenotypes) ++alternates;
  return alternates;
}

}  // namespace

Haplotyper::Haplotyper(DriverContext* context, int count, const char* const args[])
    : AssemblyCallAlgo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  call_conf_ = emit_conf_ = kNotGiven;
  if (!readArguments(parser, usage(), count, args, true)) return;
  settleConfidence();
  settlePhasing();
  checkGenotypes();
  param_.hasGiven = !given_file_.empty();
  settleAssembly(std::make_unique<HaploModel>(param_.pcrModel));
  if (emit_mode_ == kGvcf)
    for (AnnotationField field : {AnnotationField::AC, AnnotationField::AF, AnnotationField::AN,
                                  AnnotationField::QD, AnnotationField::MQ0})
      wanted_.remove(field);
}

// ---- options ----

void Haplotyper::addOptions(OptionParser& parser) {
  addAnnotationOption(parser);
  addEmitOptions(parser, "Emit mode: variant, confident, all or gvcf\n(default: variant)");
  parser.addText("gq_bands", 0, "GQ band thresholds (default: 1-60,60-99/10,99)", gq_bands_text_);
  addRanged(parser, "min_base_qual", "Minimum base quality to consider (default: 10)", 0, 255,
            param_.minBaseQual);
  addRanged(parser, "min_map_qual", nullptr, 0, 255, param_.minMapQual);
  addRanged(parser, "max_alt_alleles", nullptr, 0, INT32_MAX, param_.maxAltAlleles);
  addRanged(parser, "ploidy", "Sample ploidy (default: 2)", 1, kMaxPloidy, param_.ploidy);
  addPcrOption(parser);
  addRanged(parser, "phasing",
            "Disable/enable phasing: 0 or 1 (default: 1)\n(applicable only to diploid in gvcf mode)", 0, 1,
            param_.phasing);
  addAssemblyOptions(parser);
  addGivenOption(parser);
  addFileOptions(parser);
}

// What is too weak in one sample may be clear among many: a GVCF leaves the choice to the joint caller.
void Haplotyper::settleConfidence() {
  for (double* confidence : {&call_conf_, &emit_conf_})
    if (std::isnan(*confidence)) *confidence = emit_mode_ == kGvcf ? 0 : kConfidence;
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

std::string Haplotyper::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -i input.bam -r reference.fasta [driver_options] \\\n"
      "         --algo %s [algo_options] output.vcf[.gz]\n\n",
      name.c_str(), name.c_str());
}

// ---- start ----

void Haplotyper::init() {
  AssemblyCallAlgo::init();
  if (param_.maxAltAlleles == 0) param_.maxAltAlleles = deriveMaxAlternates(param_.ploidy);
  if (emit_mode_ == kGvcf && !merge_) warnOfPloidy();
}

// Records of a GVCF have two alternates or more, with <NON_REF>.
void Haplotyper::warnOfPloidy() const {
  if (GenotypeIndex::count(param_.ploidy, 3) <= kMaxWrittenGenotypes) return;
  fprintf(stderr, "Warning: %s: records of ploidy %u have no PL, joint genotyping will have no likelihoods\n",
          name.c_str(), param_.ploidy);
}

void Haplotyper::addHeaderLines(VCFHeader& header) {
  if (param_.phasing) addPhasingLines(header);
}

Algo::Engine* Haplotyper::newEngine(DriverContext* context, int) {
  return new Engine(context, this, param_);
}

static const TemplateAlgoBuilder<Haplotyper> builder("Haplotyper");
