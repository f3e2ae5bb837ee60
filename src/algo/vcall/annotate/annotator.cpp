#include "algo/vcall/annotate/annotator.h"

#include <algorithm>
#include <array>

#include "algo/vcall/annotate/annotators.h"

namespace {

const AlleleCountAnnotator kAlleleCount;
const CoverageAnnotator kCoverage;
const GQStatAnnotator kGQStat;
const InbreedingAnnotator kInbreeding;
const MQZeroAnnotator kMQZero;
const RankSumAnnotator kRankSum;
const StrandBiasAnnotator kStrandBias;

// By AnnotationField, which is the byte order of the names.
constexpr std::array<AnnotationDef, static_cast<size_t>(AnnotationField::kCount)> kAnnotationDefs = {{
    {"AC", "A", "Integer", "\"Allele count in genotypes, for each ALT allele, in the same order as listed\"",
     "AlleleCountAnnotator", &kAlleleCount},
    {"AF", "A", "Float", "\"Allele frequency, for each ALT allele, in the same order as listed\"",
     "AlleleCountAnnotator", &kAlleleCount},
    {"AN", "1", "Integer", "\"Total number of alleles in called genotypes\"", "AlleleCountAnnotator",
     &kAlleleCount},
    {"BaseQRankSum", "1", "Float", "\"Rank sum test of base qualities, ALT against REF, as a Z value\"",
     "RankSumAnnotator", &kRankSum},
    {"ClippingRankSum", "1", "Float",
     "\"Rank sum test of the number of clipped bases, ALT against REF, as a Z value\"", "RankSumAnnotator",
     &kRankSum},
    {"DP", "1", "Integer", "\"Combined depth across samples\"", "CoverageAnnotator", &kCoverage},
    {"ExcessHet", "1", "Float", "\"Phred-scaled p-value for exact test of excess heterozygosity\"",
     "InbreedingAnnotator", &kInbreeding},
    {"FS", "1", "Float", "\"Phred-scaled p-value of Fisher's exact test for strand bias\"",
     "StrandBiasAnnotator", &kStrandBias},
    {"GQ_MEAN", "1", "Float", "\"Mean of all GQ values\"", "GQStatAnnotator", &kGQStat},
    {"GQ_STDDEV", "1", "Float", "\"Standard deviation of all GQ values\"", "GQStatAnnotator", &kGQStat},
    {"InbreedingCoeff", "1", "Float",
     "\"Inbreeding coefficient: heterozygotes missing from the Hardy-Weinberg expectation\"",
     "InbreedingAnnotator", &kInbreeding},
    {"MIN_DP", "1", "Integer", "\"Minimum DP observed within the GVCF block\"", "CoverageAnnotator",
     &kCoverage, true},
    {"MLEAC", "A", "Integer",
     "\"Allele count of highest likelihood, for each ALT allele, in the same order as listed\"",
     "AlleleCountAnnotator", &kAlleleCount},
    {"MLEAF", "A", "Float",
     "\"Allele frequency of highest likelihood, for each ALT allele, in the same order as listed\"",
     "AlleleCountAnnotator", &kAlleleCount},
    {"MQ", "1", "Float", "\"Root mean square of mapping qualities\"", "CoverageAnnotator", &kCoverage},
    {"MQ0", "1", "Integer", "\"Number of reads with mapping quality 0\"", "MQZeroAnnotator", &kMQZero},
    {"MQRankSum", "1", "Float", "\"Rank sum test of mapping qualities, ALT against REF, as a Z value\"",
     "RankSumAnnotator", &kRankSum},
    {"NBQ", "1", "Float", "\"Mean quality of the bases up to 5 away in their reads\"", "RankSumAnnotator",
     &kRankSum},
    {"QD", "1", "Float", "\"Variant Confidence/Quality by Depth\"", "CoverageAnnotator", &kCoverage},
    {"RAW_MQ", "1", "Float", "\"Raw data for RMS mapping quality\"", "CoverageAnnotator", &kCoverage},
    {"ReadPosEndDist", "1", "Float",
     "\"Rank sum test of the distance from the nearer end of the read, ALT against REF, as a Z value\"",
     "RankSumAnnotator", &kRankSum},
    {"ReadPosRankSum", "1", "Float",
     "\"Rank sum test of the distance from the nearer end of the aligned bases, ALT against REF, as a Z "
     "value\"",
     "RankSumAnnotator", &kRankSum},
    {"SB", "4", "Integer", "\"Reads by strand: REF forward, REF reverse, ALT forward, ALT reverse\"",
     "StrandBiasAnnotator", &kStrandBias, true},
    {"SOR", "1", "Float", "\"Symmetric odds ratio of strand bias, as a natural logarithm\"",
     "StrandBiasAnnotator", &kStrandBias},
}};

static_assert(std::is_sorted(kAnnotationDefs.begin(), kAnnotationDefs.end(),
                             [](const AnnotationDef& a, const AnnotationDef& b) {
                               return std::string_view(a.name) < b.name;
                             }));

}  // namespace

const AnnotationDef* findAnnotation(std::string_view name) {
  const auto found =
      std::lower_bound(kAnnotationDefs.begin(), kAnnotationDefs.end(), name,
                       [](const AnnotationDef& def, std::string_view key) { return def.name < key; });
  return found != kAnnotationDefs.end() && found->name == name ? &*found : nullptr;
}

const AnnotationDef& annotationDef(AnnotationField field) {
  return kAnnotationDefs[static_cast<size_t>(field)];
}

AnnotationField annotationField(const AnnotationDef& def) {
  return static_cast<AnnotationField>(&def - kAnnotationDefs.data());
}
