#include "algo/vcall/indel_caller.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "algo/vcall/model/genotype_index.h"
#include "algo/vcall/pairhmm/models.h"
#include "algo/vcall/read_window.h"
#include "base/log_math.h"
#include "base/timer.h"

namespace {

constexpr uint32_t kFlank = 200;                   // reference bases to each side of the position
constexpr uint32_t kLeftEdge = 4, kRightEdge = 3;  // of the flanks, where no read is looked at
constexpr uint32_t kMargin = 3;                    // of a haplotype around a read
constexpr uint8_t kGapOpen = 45, kGapContinuation = 10;
constexpr double kImpossible = -2000;  // log10, for a likelihood that is 0

}  // namespace

IndelCaller::IndelCaller(uint32_t ploidy, uint32_t min_base_qual, size_t samples)
    : ploidy_(ploidy),
      min_base_qual_(min_base_qual),
      samples_(samples),
      max_alternates_(maxAlternates(ploidy)),
      hmm_(std::make_unique<IndelModel>(kGapOpen, kGapContinuation)) {}

size_t IndelCaller::maxAlternates(uint32_t ploidy) {
  size_t alternates = 1;
  while (GenotypeIndex::count(ploidy, alternates + 2) <= kMaxGenotypes) ++alternates;
  return alternates;
}

bool IndelCaller::prepare(uint32_t position, const GivenAlleles::Record& record,
                          const ReferenceWindow& window, const std::vector<Read*>& reads,
                          std::span<const int32_t> sample_of_group, Site& site) {
  record_ = record;
  std::vector<std::string>& alts = record_.alts;
  if (alts.size() > max_alternates_) alts.resize(max_alternates_);
  if (alts.empty() || !window.contains(position)) return false;

  const uint32_t low = std::max(window.start, position - std::min(position, kFlank));
  const uint32_t high = std::min<uint32_t>(window.end(), position + kFlank);
  size_t longest = record_.ref.size(), shortest = longest;
  for (const std::string& alt : alts) {
    longest = std::max(longest, alt.size());
    shortest = std::min(shortest, alt.size());
  }
  if (longest >= high - position || high - low <= kLeftEdge + kRightEdge) return false;
  if (window.bases.compare(position - window.start, record_.ref.size(), record_.ref) != 0) return false;

  haplotypes_.clear();
  const uint32_t behind = position + uint32_t(record_.ref.size());
  auto addHaplotype = [&](const std::string& allele) {
    haplotypes_.push_back(std::string(window.from(low), position - low) + allele +
                          std::string(window.from(behind), high - behind));
  };
  addHaplotype(record_.ref);
  for (const std::string& alt : alts) addHaplotype(alt);

  clips_.clear();
  for (Read* read : reads) {
    if (read->mapq < min_base_qual_) continue;
    const ReadWindow span = adapterFreeWindow(*read);
    if (span.end <= position || span.start > position + 1) continue;
    ReadClip clip;
    if (!clipRead(*read, span, std::max(low + kLeftEdge, read->start - std::min(read->start, kMargin)),
                  std::min(high - kRightEdge, read->end + kMargin), clip))
      continue;
    clip.sample = sample_of_group[size_t(read->read_group)];
    clips_.push_back(clip);
  }

  const size_t alleles = haplotypes_.size();
  values_.assign(clips_.size() * alleles, 0);
  // A read whose aligner did not open a gap lies beside its place by the bases that the gap would have skipped.
  const uint32_t slack = kMargin + uint32_t(record_.ref.size() - shortest);
  std::vector<Allele> cut(alleles);
  {
    static Timer* const pairhmm_timer = timer("pairhmm");
    TimerScope scope(pairhmm_timer);
    for (size_t i = 0; i < clips_.size(); ++i) {
      const ReadClip& clip = clips_[i];
      // Offsets in the reference haplotype; what is behind the position moves with the allele's length.
      const uint32_t from = std::max(clip.refStart, low + slack) - slack - low;
      const uint32_t to = std::min(clip.refEnd + slack, high) - low;
      for (size_t a = 0; a < alleles; ++a) {
        cut[a].bases = haplotypes_[a].data() + from;
        cut[a].length = int32_t(to - from) + int32_t(haplotypes_[a].size()) - int32_t(haplotypes_[0].size());
        cut[a].isRef = a == 0;
      }
      hmm_.calcLikelihood(clips_, cut, values_.data(), unsigned(i), unsigned(i + 1));
    }
  }
  for (double& value : values_)
    if (value < kImpossible) value = kImpossible;

  site = {};
  site.position = position;
  site.isSNP = false;
  site.pileup = &reads;
  auto allele = [](const std::string& text, bool is_ref) {
    return Allele{text.data(), int32_t(text.size()), 0, is_ref};
  };
  site.ref = allele(record_.ref, true);
  for (const std::string& alt : alts) site.alts.push_back(allele(alt, false));
  rows_ = {clips_, values_.data(), alleles};
  site.rows = &rows_;
  likelihoods(site, alleles);
  return true;
}

void IndelCaller::likelihoods(Site& site, size_t alleles) {
  std::vector<std::vector<int32_t>> genotypes;  // counts per allele
  for (GenotypeIndex genotype(ploidy_, alleles); !genotype.exhausted(); genotype.next())
    genotypes.push_back(genotype.counts);
  site.likelihoods.assign(samples_, {ploidy_, {}});
  std::vector<double> linear(alleles);
  for (size_t i = 0; i < clips_.size(); ++i) {
    const double* row = values_.data() + i * alleles;
    if (std::isnan(row[0])) continue;
    std::vector<double>& gl = site.likelihoods[size_t(clips_[i].sample)].gl;
    gl.resize(genotypes.size());
    if (ploidy_ == 1) {
      for (size_t a = 0; a < alleles; ++a) gl[a] += row[a];
    } else if (ploidy_ == 2) {
      for (size_t a = 0, g = 0; a < alleles; ++a)
        for (size_t b = 0; b <= a; ++b) gl[g++] += log10SumFast(row[a], row[b]) - 0.3010299956639812;
    } else {
      const double best = *std::max_element(row, row + alleles), share = best - std::log10(ploidy_);
      for (size_t a = 0; a < alleles; ++a) linear[a] = std::max(std::pow(10, row[a] - best), DBL_MIN);
      for (size_t g = 0; g < genotypes.size(); ++g) {
        double sum = 0;
        for (size_t a = 0; a < alleles; ++a) sum += genotypes[g][a] * linear[a];
        gl[g] += std::log10(sum) + share;
      }
    }
  }
  for (GenotypeLikelihoods& sample : site.likelihoods) {
    if (sample.gl.empty()) continue;
    const double best = *std::max_element(sample.gl.begin(), sample.gl.end());
    for (double& value : sample.gl) value = std::round((value - best) * -10) * -0.1;
  }
}
