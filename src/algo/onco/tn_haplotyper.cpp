// Options, samples and header of TNhaplotyper.
#include "algo/onco/tn_haplotyper.h"

#include <cstdio>
#include <limits>
#include <stdexcept>
#include <utility>

#include "algo/number_options.h"
#include "algo/onco/tn_engine.h"
#include "base/text.h"

namespace {

constexpr double kBelowOne = 1 - std::numeric_limits<double>::epsilon() / 2;
constexpr double kTumorMapQualCap = 60, kNoMapQualCap = 255;
// A read with fewer bases in the region than this may have fewer errors. Beside a lone SNP it has about 40, which is not
// few enough to lose one of them.
constexpr double kErrorSpan = 50;

struct HeaderLine {
  const char *id, *number, *type, *description;
};

constexpr const char* kFilters[][2] = {
    {"germline_risk", "\"Evidence indicates this site is germline, not somatic\""},
    {"alt_allele_in_normal", "\"Evidence seen in the normal sample\""},
    {"panel_of_normals", "\"Seen in at least 2 samples in the panel of normals\""},
    {"triallelic_site", "\"Site filtered because more than two alt alleles pass tumor LOD\""},
    {"multi_event_alt_allele_in_normal", "\"Multiple events observed in tumor and normal\""},
    {"clustered_events", "\"Clustered events observed in the tumor\""},
    {"homologous_mapping_event", "\"More than three events were observed in the tumor\""},
    {"t_lod_fstar", "\"Tumor does not meet likelihood threshold\""},
    {"low_t_alt_frac", "\"Site filtered due to low alt allele fraction\""},
    {"str_contraction", "\"Site filtered due to contraction of short tandem repeat region\""},
};

constexpr const char* kArtefactFilters[][2] = {
    {"strand_artefact", "\"Alternate reads lie on one strand\""},
    {"read_end_artefact", "\"Alternate bases lie at the ends of reads\""},
    {"oxidation_artefact", "\"Alternate reads have the orientation of oxidized guanine\""},
};

constexpr HeaderLine kInfoLines[] = {
    {"NLOD", "1", "Float", "\"Normal LOD score\""},
    {"TLOD", "1", "Float", "\"Tumor LOD score\""},
    {"ECNT", "1", "String", "\"Number of events in this haplotype\""},
    {"HCNT", "1", "String", "\"Number of haplotypes that support this variant\""},
    {"MAX_ED", "1", "Integer", "\"Maximum distance between events in this active region\""},
    {"MIN_ED", "1", "Integer", "\"Minimum distance between events in this active region\""},
    {"PON", "1", "String", "\"Count from Panel of Normals\""},
    {"RPA", ".", "Integer", "\"Copies of the repeat unit in each allele, the reference first\""},
    {"RU", "1", "String", "\"Repeat unit, bases\""},
    {"STR", "0", "Flag", "\"The variant changes the number of copies in a short tandem repeat\""},
};

constexpr HeaderLine kFormatLines[] = {
    {"AF", "1", "Float", "\"Allele fraction of the event in the tumor\""},
    {"QSS", "R", "Integer", "\"Sum of base quality scores for each allele\""},
    {"BaseQRankSumPS", "1", "Float", "\"Z-score of base qualities, alternate against reference reads\""},
    {"ClippingRankSumPS", "1", "Float", "\"Z-score of clipped bases, alternate against reference reads\""},
    {"MQRankSumPS", "1", "Float", "\"Z-score of mapping qualities, alternate against reference reads\""},
    {"ReadPosRankSumPS", "1", "Float", "\"Z-score of positions in the read, alternate against reference\""},
    {"ReadPosEndDistPS", "1", "Float", "\"Mean distance of the alternate from the end of its reads\""},
    {"NBQPS", "1", "Float", "\"Mean base quality around the alternate\""},
    {"ALT_F1R2", "1", "Integer", "\"Alternate reads of orientation F1R2\""},
    {"ALT_F2R1", "1", "Integer", "\"Alternate reads of orientation F2R1\""},
    {"REF_F1R2", "1", "Integer", "\"Reference reads of orientation F1R2\""},
    {"REF_F2R1", "1", "Integer", "\"Reference reads of orientation F2R1\""},
    {"FOXOG", "1", "Float", "\"Fraction of alt reads indicating OxoG error\""},
};

}  // namespace

TNhaplotyper::TNhaplotyper(DriverContext* context, int count, const char* const args[])
    : AssemblyCallAlgo(context, count, args) {
  OptionParser parser;
  addOptions(parser);
  if (!readArguments(parser, usage(), count, args, false)) return;
  if (!merge_ && tumor_sample_.empty()) throw std::invalid_argument(name + ": missing tumor sample");
  if (!merge_ && tumor_sample_ == normal_sample_)
    throw std::invalid_argument(name + ": tumor and normal are the same sample " + tumor_sample_);
  settleParam();
  wanted_ = {};
  auto owned = makeModel();
  const TumorNormalModel& model = *owned;
  settleAssembly(std::move(owned));  // --phmm_param may change the model
  param_.activity.mapQualCap = {model.mapQualCap(kTumor), model.mapQualCap(kNormal)};
}

// ---- options ----

void TNhaplotyper::addOptions(OptionParser& parser) {
  addSampleOptions(parser);
  addFileOptions(parser);
  addFile(parser, "cosmic", 0, "Known somatic variants",
          [this](const char* path) { cosmic_files_.push_back(path); });
  addFile(parser, "pon", 0, "Panel-of-normal file",
          [this](const char* path) { panel_files_.push_back(path); });
  parser.addFlag("detect_pon", 0, "Call a normal as a tumor, to build a panel of normals", param_.detectPon);
  addThresholdOptions(parser);
  addReadOptions(parser);
  addPcrOption(parser);
  addRanged(parser, "phasing", "Disable/enable phasing: 0 or 1 (default: 1)", 0, 1, param_.phasing);
  addAssemblyOptions(parser);
}

void TNhaplotyper::addSampleOptions(OptionParser& parser) {
  const auto addSample = [&](const char* option, const char* help, const char* repeated, std::string& field) {
    parser.add({option, required_argument, 0, help}, [this, repeated, &field](const char* value) {
      if (!field.empty()) throw std::invalid_argument(name + repeated);
      field = value;
      return true;
    });
  };
  addSample("tumor_sample", "Tumor sample name", ": multiple tumor sample id", tumor_sample_);
  addSample("normal_sample", "Normal sample name", ": multiple normal sample id", normal_sample_);
  parser.addFlag("use_real_sample_name", 0, "Name the columns as the samples, not TUMOR and NORMAL",
                 use_real_sample_name_);
}

void TNhaplotyper::addThresholdOptions(OptionParser& parser) {
  NumberOptions numbers(parser, name);
  TNThresholds& thresholds = param_.thresholds;
  numbers.add("min_init_tumor_lod", "Minimum tumorLOD for candidate selection (default: 4.0)",
              param_.minInitTumorLod);
  numbers.add("min_init_normal_lod", "Minimum normalLOD for candidate selection (default: 0.5)",
              param_.minInitNormalLod);
  numbers.add("min_tumor_lod", "Minimum tumorLOD (default: 6.3)", thresholds.minTumorLod);
  numbers.add("min_normal_lod", "Minimum normalLOD (default: 2.2)", thresholds.minNormalLod);
  numbers.add("min_dbsnp_normal_lod", "Minimum normalLOD at dbSNP site (default: 5.5)",
              thresholds.minDbsnpNormalLod);
  numbers.add("min_tumor_allele_frac", "Minimum allele fraction in the tumor (default: 0.01)",
              thresholds.minTumorAlleleFrac, 0, kBelowOne);
  addRanged(parser, "filter_t_alt_frac", "Disable/enable the filter of it: 0 or 1 (default: 1)", 0, 1,
            param_.filterTAltFrac);
  addRanged(parser, "max_normal_alt_cnt", "Alternate reads that are too many in the normal (default: 2)", 0,
            INT32_MAX, thresholds.maxNormalAltCnt);
  addRanged(parser, "max_normal_alt_qsum", "Their maximum sum of base qualities (default: 20)", 0, INT32_MAX,
            thresholds.maxNormalAltQsum);
  numbers.add("max_normal_alt_frac", "Allele fraction that is too high in the normal (default: 0.03)",
              thresholds.maxNormalAltFrac, 0, kBelowOne);
  addRanged(parser, "filter_str_contraction", "Disable/enable the filter: 0 or 1 (default: 0)", 0, 1,
            param_.filterStrContraction);
  addRanged(parser, "filter_artefacts", "Disable/enable the filters of artefacts: 0 or 1 (default: 1)", 0, 1,
            param_.filterArtefacts);
  numbers.add("min_noramlLOD_active", "Minimum normalLOD of an active position (default: 0.5)",
              param_.activity.minNormalLod);
  addRanged(parser, "max_normalAlt_active", "Maximum alternate reads in the normal there (default: 10)", 0,
            INT32_MAX, param_.activity.maxNormalAlt);
  parser.addFlag("ignore_normal_lod_loc", 0, "Do not select candidates by their normalLOD",
                 param_.ignoreNormalLodLoc);
}

void TNhaplotyper::addReadOptions(OptionParser& parser) {
  NumberOptions numbers(parser, name);
  addRanged(parser, "min_base_qual", "Minimum base quality to consider (default: 10)", 0, 255,
            param_.minBaseQual);
  addRanged(parser, "min_mapq", "Minimum mapping quality (default: 20)", 0, 255, param_.minMapQual);
  parser.addFlag("no_mapq_cap", 0, "Do not limit base qualities by the mapping quality", param_.noMapqCap);
  addRanged(parser, "max_error_per_read", "Errors of a read beyond which it is left out (default: 2)", 1,
            1000, param_.maxErrorPerRead);
  parser.addFlag("clip_by_minbq", 0, "Clip the ends of reads below min_base_qual", param_.clipLowEnds);
  numbers.add("tumor_contamination_frac", "Estimated tumor contamination fraction (default: 0.)",
              param_.tumorContaminationFrac, 0, kBelowOne);
  numbers.add("normal_contamination_frac", "Estimated normal contamination fraction (default: 0.)",
              param_.normalContaminationFrac, 0, kBelowOne);
  addRanged(parser, "contamination_downsample_mode",
            "Contaminants: 0 in proportion to the alleles, 1 evenly (default: 1)", 0, 1,
            param_.contaminationDownsampleMode);
}

void TNhaplotyper::settleParam() {
  param_.addsCrossovers = false;                   // in tumors a single read is no evidence
  param_.snpPadding = RegionTrimmer::kSNPPadding;  // reads that differ nearby are of artefacts
  param_.clipOverlaps = false;                     // LocusReads::removeOverlap() chooses at each position
  param_.usesSupplementary = false;  // of duplicates they are not marked: copies would pass for a variant
  param_.thresholds.filterStrContraction = param_.filterStrContraction;
  if (!param_.filterTAltFrac) param_.thresholds.minTumorAlleleFrac = 0;
  TNActivity::Limits& activity = param_.activity;
  activity.minBaseQual = param_.minBaseQual;
  activity.minMapQual = param_.minMapQual;
  activity.minTumorLod = param_.minInitTumorLod;
  activity.checksNormal = hasNormal() && !param_.ignoreNormalLodLoc;
}

std::unique_ptr<TumorNormalModel> TNhaplotyper::makeModel() const {
  auto model = std::make_unique<TumorNormalModel>(param_.pcrModel, hasNormal() ? kNormal : -1);
  std::map<std::string, double> settings{{"tumor:mapQualCap", kTumorMapQualCap},
                                         {"maxErrorsForRead", double(param_.maxErrorPerRead)},
                                         {"maxErrorRatePerBase", param_.maxErrorPerRead / kErrorSpan}};
  if (param_.noMapqCap) settings["tumor:mapQualCap"] = settings["normal:mapQualCap"] = kNoMapQualCap;
  model->configure(settings);
  return model;
}

std::string TNhaplotyper::usage() const {
  return format(
      "Usage for %s:\n"
      "  driver -i tumor.bam [-i normal.bam] -r reference.fasta [driver_options] \\\n"
      "         --algo %s --tumor_sample name [--normal_sample name] \\\n"
      "         [algo_options] output.vcf[.gz]\n\n",
      name.c_str(), name.c_str());
}

std::vector<std::string> TNhaplotyper::inputs() const {
  std::vector<std::string> files = AssemblyCallAlgo::inputs();
  if (merge_) return files;
  for (const auto* more : {&cosmic_files_, &panel_files_})
    files.insert(files.end(), more->begin(), more->end());
  return files;
}

// ---- start ----

int32_t TNhaplotyper::sampleOfName(const std::string& sample) const {
  if (sample == tumor_sample_) return kTumor;
  return hasNormal() && sample == normal_sample_ ? kNormal : -1;
}

void TNhaplotyper::takeSamples() {
  bool found[] = {false, false}, others = false;
  for (const ReadGroup& group : context->reads->input().readGroups()) {
    const int32_t sample = sampleOfName(group.sample);
    sample_of_group_.push_back(sample);
    (sample < 0 ? others : found[sample]) = true;
  }
  const auto refuse = [this](const char* text) { throw std::invalid_argument(name + text); };
  if (!found[kTumor]) refuse(": tumor sample SM tag is not present in the bam file");
  if (hasNormal() && !found[kNormal]) refuse(": normal sample SM tag is not present in the bam file");
  if (others) refuse(": the input bam file has SM tags that are not being used");
  samples_.push_back(use_real_sample_name_ ? tumor_sample_ : "TUMOR");
  if (hasNormal()) samples_.push_back(use_real_sample_name_ ? normal_sample_ : "NORMAL");
  openKnown(cosmic_files_, cosmic_);
  openKnown(panel_files_, panel_);
}

void TNhaplotyper::openKnown(const std::vector<std::string>& paths,
                             std::vector<std::unique_ptr<VCFCache>>& caches) const {
  for (const std::string& path : paths) caches.push_back(openVcf(path));
}

std::string TNhaplotyper::contigFault(const std::string& path) const {
  return ": Contigs in vcf " + path + " are not compatible with reference";
}

void TNhaplotyper::addHeaderLines(VCFHeader& header) {
  header.addLine("tumor_sample", tumor_sample_);
  if (hasNormal()) header.addLine("normal_sample", normal_sample_);
  const auto addFilter = [&](const char* const(&filter)[2]) {
    header.addDef("FILTER", filter[0], {{"Description", filter[1]}});
  };
  for (const auto& filter : kFilters) addFilter(filter);
  if (param_.filterArtefacts)
    for (const auto& filter : kArtefactFilters) addFilter(filter);
  for (const HeaderLine& line : kInfoLines)
    header.addInfoDef(line.id, line.number, line.type, line.description);
  for (const char* unused : {"GQ", "PL"}) header.removeFormatDef(unused);
  for (const HeaderLine& line : kFormatLines)
    header.addFormatDef(line.id, line.number, line.type, line.description);
  if (param_.phasing) addPhasingLines(header);
}

Algo::Engine* TNhaplotyper::newEngine(DriverContext* engine_context, int) {
  return new Engine(engine_context, this, param_);
}

void TNhaplotyper::noteReads(const std::vector<Read*>& reads) const {
  if (has_reads_[kTumor] && (has_reads_[kNormal] || !hasNormal())) return;
  for (const Read* read : reads) {
    std::atomic<bool>& found = has_reads_[size_t(sample_of_group_[size_t(read->read_group)])];
    if (!found) found = true;
  }
}

void TNhaplotyper::finish() {
  AssemblyCallAlgo::finish();
  if (merge_) return;
  if (!has_reads_[kTumor])
    fprintf(stderr, "Warning: %s: no reads of the tumor sample %s\n", name.c_str(), tumor_sample_.c_str());
  if (hasNormal() && !has_reads_[kNormal])
    fprintf(stderr,
            "Warning: %s: no reads of the normal sample %s, nothing can be told from germline variants\n",
            name.c_str(), normal_sample_.c_str());
}

static const TemplateAlgoBuilder<TNhaplotyper> builder("TNhaplotyper");
