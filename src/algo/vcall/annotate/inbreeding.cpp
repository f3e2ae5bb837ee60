// inbreeding.cpp - heterozygotes found against those that random mating would give.
#include <algorithm>
#include <array>
#include <cmath>

#include "algo/vcall/annotate/annotators.h"
#include "algo/vcall/annotate/hardy_weinberg.h"
#include "algo/vcall/annotate/site_evidence.h"

namespace {

constexpr int kMinSamples = 10;  // for a coefficient
constexpr double kImpossible = 2147483647.0;

// Where a diploid genotype stands among likelihoods, low <= high.
size_t diploidIndex(size_t low, size_t high) {
  return high * (high + 1) / 2 + low;
}

// Sums of genotype probabilities over the samples.
struct ClassSums {
  double homRef = 0, het = 0, homAlt = 0;
  int samples = 0;
};

// Adds a sample's probabilities of the three genotypes of the reference and the alternate it carries; of `first_alt`
// when it carries none.
void addSample(const Site& site, const std::vector<double>& gl, const std::vector<int32_t>& counts,
               size_t first_alt, ClassSums& sums) {
  ++sums.samples;
  std::array<size_t, 2> carried{};  // the first two alleles with copies
  size_t found = 0;
  for (size_t allele = 0; allele < counts.size() && found < 2; ++allele)
    if (counts[allele] > 0) carried[found++] = allele;
  if (found == 2 && carried[0] > 0) {
    sums.homAlt += 1;
    return;
  }
  const size_t alt = found == 2 ? carried[1] : carried[0] > 0 ? carried[0] : first_alt;

  const auto kept = [&](size_t allele) { return allele == 0 || isKept(site.alts[allele - 1]); };
  double best = -HUGE_VAL, total = 0;
  const auto visit = [&](auto&& use) {
    for (size_t high = 0; high < counts.size(); ++high)
      for (size_t low = 0; low <= high; ++low)
        if (kept(low) && kept(high)) use(gl[diploidIndex(low, high)]);
  };
  visit([&](double x) { best = std::max(best, x); });
  visit([&](double x) { total += std::pow(10, x - best); });
  const auto probability = [&](size_t index) { return std::pow(10, gl[index] - best) / total; };
  sums.homRef += probability(diploidIndex(0, 0));
  sums.het += probability(diploidIndex(0, alt));
  sums.homAlt += probability(diploidIndex(alt, alt));
}

int32_t rounded(double sum) {
  return static_cast<int32_t>(std::lround(sum));
}

}  // namespace

void InbreedingAnnotator::annotate(VariantContext& record, const SiteContext& context,
                                   const AnnotationSet& wanted) const {
  if (!wanted.has(AnnotationField::InbreedingCoeff) && !wanted.has(AnnotationField::ExcessHet)) return;
  const Site& site = *context.site;
  const auto first_kept = std::find_if(site.alts.begin(), site.alts.end(), isKept);
  if (first_kept == site.alts.end()) return;
  const size_t first_alt = static_cast<size_t>(first_kept - site.alts.begin()) + 1;

  ClassSums sums;
  for (size_t i = 0; i < context.calls.size(); ++i)
    if (isCalled(context, i) && site.likelihoods[i].ploidy == 2)
      addSample(site, site.likelihoods[i].gl, context.calls[i].counts, first_alt, sums);

  if (sums.samples >= kMinSamples && wanted.has(AnnotationField::InbreedingCoeff)) {
    const double p = (0.5 * sums.het + sums.homRef) / (sums.homRef + sums.het + sums.homAlt);
    const double expected = 2 * sums.samples * p * (1 - p);
    if (expected > 0) record.addInfo("InbreedingCoeff", "%.4f", 1 - sums.het / expected);
  }
  if (sums.samples >= 1 && wanted.has(AnnotationField::ExcessHet)) {
    const double x = excessHetP({rounded(sums.homRef), rounded(sums.het), rounded(sums.homAlt)});
    record.addInfo("ExcessHet", "%.4f", x == 0 ? kImpossible : std::max(0.0, -10 * std::log10(x)));
  }
}
