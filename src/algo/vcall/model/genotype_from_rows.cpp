#include "algo/vcall/model/genotype_from_rows.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "algo/vcall/model/genotype_index.h"
#include "base/log_math.h"

namespace {

// Adds what one read says to the genotypes of its sample.
class RowAdder {
 public:
  RowAdder(uint32_t ploidy, size_t alleles)
      : ploidy_(ploidy), alleles_(alleles), genotypes_(GenotypeIndex::count(ploidy, alleles)) {
    if (ploidy <= 2) return;
    linear_.resize(alleles);
    counts_.reserve(genotypes_ * alleles);
    for (GenotypeIndex genotype(ploidy, alleles); !genotype.exhausted(); genotype.next())
      counts_.insert(counts_.end(), genotype.counts.begin(), genotype.counts.end());
  }

  void add(const double* row, std::vector<double>& gl) {
    gl.resize(genotypes_);
    if (ploidy_ == 1) {
      for (size_t a = 0; a < alleles_; ++a) gl[a] += row[a];
    } else if (ploidy_ == 2) {
      for (size_t a = 0, g = 0; a < alleles_; ++a)
        for (size_t b = 0; b <= a; ++b) gl[g++] += log10SumFast(row[a], row[b]) - kLog10Of2;
    } else {
      addMixture(row, gl);
    }
  }

 private:
  void addMixture(const double* row, std::vector<double>& gl) {
    const double best = *std::max_element(row, row + alleles_), share = best - std::log10(ploidy_);
    for (size_t a = 0; a < alleles_; ++a) linear_[a] = std::max(std::pow(10, row[a] - best), DBL_MIN);
    for (size_t g = 0; g < genotypes_; ++g) {
      const int32_t* const counts = counts_.data() + g * alleles_;
      double sum = 0;
      for (size_t a = 0; a < alleles_; ++a) sum += counts[a] * linear_[a];
      gl[g] += std::log10(std::max(sum, DBL_MIN)) + share;
    }
  }

  uint32_t ploidy_;
  size_t alleles_, genotypes_;
  std::vector<int32_t> counts_;  // per genotype, copies of each allele
  std::vector<double> linear_;   // scratch
};

}  // namespace

void makeRowsFinite(std::span<double> values) {
  for (double& value : values) value = std::max(value, kImpossibleRead);
}

void genotypeLikelihoods(std::span<const ReadClip> reads, const double* rows, size_t alleles, uint32_t ploidy,
                         std::span<GenotypeLikelihoods> samples) {
  for (GenotypeLikelihoods& sample : samples) {
    sample.ploidy = ploidy;
    sample.gl.clear();
  }
  RowAdder adder(ploidy, alleles);
  for (size_t r = 0; r < reads.size(); ++r) {
    const double* const row = rows + r * alleles;
    const auto sample = static_cast<size_t>(reads[r].sample);
    if (!std::isnan(row[0]) && sample < samples.size()) adder.add(row, samples[sample].gl);
  }
  for (GenotypeLikelihoods& sample : samples) {
    if (sample.gl.empty()) continue;
    const double best = *std::max_element(sample.gl.begin(), sample.gl.end());
    for (double& value : sample.gl) value = std::round((value - best) * -10) * -0.1;
  }
}
