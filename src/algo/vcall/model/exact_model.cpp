#include "algo/vcall/model/exact_model.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>

#include "algo/vcall/model/genotype_index.h"
#include "base/log_math.h"

namespace {
constexpr double kNone = -std::numeric_limits<double>::infinity();
constexpr double kUninformative = -0.1;  // sum of a sample's likelihoods, log10
constexpr double kStop = 6.0;            // below the most likely count, log10
constexpr double kCertain = -1000000.0;  // stands for a probability of 0

using Samples = std::vector<const GenotypeLikelihoods*>;
using Priors = std::vector<double>;

// The samples that say something, with their likelihoods by alternate chromosomes, 0..ploidy, one sample behind the
// other.
struct Informative {
  std::vector<double> gl;
  std::vector<int> ploidy;
  int numChr = 0;

  void add(const double* first, const double* last) {
    if (!(std::accumulate(first, last, 0.0) < kUninformative)) return;
    gl.insert(gl.end(), first, last);
    ploidy.push_back(int(last - first) - 1);
    numChr += ploidy.back();
  }
};

// Room on the stack of the call, and on the heap only for cohorts that are too large for that.
class Rows {
 public:
  explicit Rows(size_t cells) {
    if (cells > std::size(stack_)) heap_.reset(new double[cells]);
  }
  double* data() { return heap_ ? heap_.get() : stack_; }

 private:
  double stack_[32 * 1024];
  std::unique_ptr<double[]> heap_;
};

// Asks step(ac) for the likelihood of ac = 0, 1, ... until it has become hopeless, and sums up.
template <typename Step>
void countAlleles(int numChr, const Priors& log10Priors, AlleleCountResult& result, Step step) {
  assert((int)log10Priors.size() >= numChr + 1);
  std::vector<double> likelihood;
  double max_likelihood = kNone, max_posterior = kNone;
  int mle = 0, map = 0;
  for (int ac = 0; ac <= numChr; ++ac) {
    double x = step(ac);
    likelihood.push_back(x);
    if (x > max_likelihood) max_likelihood = x, mle = ac;
    if (x + log10Priors[size_t(ac)] > max_posterior) max_posterior = x + log10Priors[size_t(ac)], map = ac;
    if (max_likelihood - kStop > x) break;
  }

  double pair[2] = {likelihood[0], kCertain};
  if (likelihood.size() > 1)
    pair[1] = log10SumExact(likelihood.data() + 1, likelihood.data() + likelihood.size());
  result.log10PriorAC0 = log10Priors[0];
  result.log10PriorACgt0 = log10SumExact(log10Priors.data() + 1, log10Priors.data() + log10Priors.size());
  double posterior[2] = {pair[0] + result.log10PriorAC0, pair[1] + result.log10PriorACgt0};
  normalizeLog10(pair, pair + 2);
  normalizeLog10(posterior, posterior + 2);
  result.log10LikelihoodAC0 = pair[0];
  result.log10LikelihoodACgt0 = pair[1];
  result.log10PosteriorAC0 = posterior[0];
  result.log10PosteriorACgt0 = posterior[1];
  result.mleCounts.assign(1, mle);
  result.log10PNonRef.assign(1, map > 0 ? kCertain : 0);
}

// Cell i of the row of ac is the likelihood of ac alternate chromosomes among the first i samples.
void countDiploid(const Informative& in, const Priors& log10Priors, AlleleCountResult& result) {
  const size_t samples = in.ploidy.size();
  const int numChr = in.numChr;
  assert(log10Table.size() > size_t(numChr));
  const double* const L = log10Table.data();
  const double log10Two = L[2];
  Rows rows(3 * (samples + 1));
  double* row = rows.data();          // of ac
  double* row1 = row + samples + 1;   // of ac - 1
  double* row2 = row1 + samples + 1;  // of ac - 2

  countAlleles(numChr, log10Priors, result, [&](int ac) {
    std::swap(row1, row2);
    std::swap(row, row1);
    if (ac == 0) {
      row[0] = 0;
      for (size_t i = 1; i <= samples; ++i) row[i] = row[i - 1] + in.gl[3 * (i - 1)];
      return row[samples];
    }
    // Fewer samples than `first` have no room for ac chromosomes.
    const int first = (ac + 1) / 2;
    row[first - 1] = kNone;
    const double* gl = in.gl.data() + 3 * (first - 1);
    for (int i = first, t = 2 * first; size_t(i) <= samples; ++i, t += 2, gl += 3) {
      double aa = t - 1 > ac ? L[t - ac] + L[t - ac - 1] + row[i - 1] + gl[0] : kNone;
      double ab = t > ac ? log10Two + L[ac] + L[t - ac] + row1[i - 1] + gl[1] : kNone;
      if (ac >= 2) ab = log10SumFast(ab, L[ac] + L[ac - 1] + row2[i - 1] + gl[2]);
      row[i] = log10SumFast(aa, ab) - (L[t] + L[t - 1]);
    }
    return row[samples];
  });
}

void countGeneral(const Informative& in, const Priors& log10Priors, AlleleCountResult& result) {
  const size_t samples = in.ploidy.size();
  assert(log10FactorialTable.size() > size_t(in.numChr));
  const double* const F = log10FactorialTable.data();
  auto choose = [F](int n, int k) { return F[n] - F[k] - F[n - k]; };
  const int max_ploidy = samples == 0 ? 0 : *std::max_element(in.ploidy.begin(), in.ploidy.end());
  const size_t ring = size_t(max_ploidy) + 1, stride = samples + 1;
  Rows rows(ring * stride);
  auto row = [&](int ac) { return rows.data() + size_t(ac) % ring * stride; };

  countAlleles(in.numChr, log10Priors, result, [&](int ac) {
    double* const current = row(ac);
    current[0] = ac == 0 ? 0 : kNone;
    const double* gl = in.gl.data();
    int before = 0;  // chromosomes of the samples up to here
    for (size_t i = 1; i <= samples; ++i) {
      const int ploidy = in.ploidy[i - 1], t = before + ploidy;
      double cell = kNone;
      for (int k = std::max(0, ac - before); k <= std::min(ploidy, ac); ++k)
        cell = log10SumFast(cell, row(ac - k)[i - 1] + gl[k] + choose(ac, k) + choose(t - ac, ploidy - k));
      current[i] = cell - choose(t, ploidy);
      gl += ploidy + 1;
      before = t;
    }
    return current[samples];
  });
}

using Count = void (*)(const Informative&, const Priors&, AlleleCountResult&);

void computeBiAllelic(const Samples& samples, int alts, const Priors& log10Priors, AlleleCountResult& result,
                      Count count) {
  assert(alts == 1);
  Informative in;
  for (const GenotypeLikelihoods* sample : samples) {
    const auto& [ploidy, gl] = *sample;
    if (gl.empty()) continue;
    assert((int)gl.size() == (int)ploidy + 1);
    in.add(gl.data(), gl.data() + gl.size());
  }
  count(in, log10Priors, result);
}

// The genotypes of a ploidy, those with 0 copies of something first, then those with 1 and so on.
struct Slots {
  uint32_t ploidy;
  std::vector<size_t> genotypes;
  std::vector<size_t> end;  // of each number of copies in `genotypes`

  // `copies` answers for the counts of a genotype.
  template <typename Copies>
  Slots(uint32_t ploidy, size_t alleles, Copies copies) : ploidy(ploidy) {
    std::vector<std::vector<size_t>> slots(size_t(ploidy) + 1);
    for (GenotypeIndex g(ploidy, alleles); !g.exhausted(); g.next())
      slots[size_t(copies(g.counts))].push_back(size_t(g.index));
    for (const auto& slot : slots) {
      genotypes.insert(genotypes.end(), slot.begin(), slot.end());
      end.push_back(genotypes.size());
    }
  }
};

// Turns genotypes of many alleles to numbers of copies, and their likelihoods to multiples of 0.1 below the best.
template <typename Copies>
Informative reduce(const Samples& samples, size_t alleles, Copies copies) {
  Informative reduced;
  std::vector<Slots> known;
  std::vector<double> ordered, sums;
  for (const GenotypeLikelihoods* sample : samples) {
    const std::vector<double>& gl = sample->gl;
    if (!(std::accumulate(gl.begin(), gl.end(), 0.0) < kUninformative)) continue;
    auto slots =
        std::find_if(known.begin(), known.end(), [&](const Slots& s) { return s.ploidy == sample->ploidy; });
    if (slots == known.end()) slots = known.emplace(known.end(), sample->ploidy, alleles, copies);
    assert(gl.size() == slots->genotypes.size());

    ordered.clear();
    for (size_t g : slots->genotypes) ordered.push_back(gl[g]);
    sums.clear();
    const double* first = ordered.data();
    for (size_t end : slots->end) {
      sums.push_back(log10SumExact(first, ordered.data() + end));
      first = ordered.data() + end;
    }
    double max = *std::max_element(sums.begin(), sums.end());
    for (double& sum : sums) sum = std::round(-10 * (sum - max)) * -0.1;
    reduced.add(sums.data(), sums.data() + sums.size());
  }
  return reduced;
}

void computeManyAlleles(const Samples& samples, size_t alts, const Priors& log10Priors,
                        AlleleCountResult& result, Count count) {
  struct OneAllele {
    size_t alt;
    double key;  // lowest for the allele that is most likely real
    double likelihood_ac0, likelihood_acgt0;
  };
  std::vector<OneAllele> alleles;
  std::vector<int32_t> mle;
  for (size_t alt = 0; alt < alts; ++alt) {
    count(reduce(samples, alts + 1, [alt](const auto& counts) { return counts[alt + 1]; }), log10Priors,
          result);
    mle.push_back(result.mleCounts[0]);
    alleles.push_back(
        {alt, -result.log10PosteriorACgt0, result.log10LikelihoodAC0, result.log10LikelihoodACgt0});
  }
  std::stable_sort(alleles.begin(), alleles.end(),
                   [](const OneAllele& a, const OneAllele& b) { return a.key < b.key; });

  count(reduce(samples, alts + 1,
               [](const auto& counts) { return std::accumulate(counts.begin() + 1, counts.end(), 0); }),
        log10Priors, result);
  result.mleCounts = mle;
  result.log10PNonRef.resize(alts);
  for (size_t rank = 1; rank <= alts; ++rank) {
    const OneAllele& allele = alleles[rank - 1];
    double present = double(rank) * result.log10PriorACgt0;
    double pair[2] = {std::log10(1 - std::pow(10.0, present)), present};
    normalizeLog10(pair, pair + 2);
    pair[0] += allele.likelihood_ac0;
    pair[1] += allele.likelihood_acgt0;
    normalizeLog10(pair, pair + 2);
    result.log10PNonRef[allele.alt] = pair[0];
  }
}
}  // namespace

void BiAllelicDiploidACModel::compute(const Samples& samples, int alts, const Priors& log10Priors,
                                      AlleleCountResult& result) {
  for (const GenotypeLikelihoods* sample : samples) assert(sample->gl.empty() || sample->ploidy == 2);
  computeBiAllelic(samples, alts, log10Priors, result, countDiploid);
}

void BiAllelicACModel::compute(const Samples& samples, int alts, const Priors& log10Priors,
                               AlleleCountResult& result) {
  computeBiAllelic(samples, alts, log10Priors, result, countGeneral);
}

void DiploidExactModel::compute(const Samples& samples, int alts, const Priors& log10Priors,
                                AlleleCountResult& result) {
  if (alts < 2) return BiAllelicDiploidACModel::compute(samples, alts, log10Priors, result);
  for (const GenotypeLikelihoods* sample : samples) assert(sample->gl.empty() || sample->ploidy == 2);
  computeManyAlleles(samples, size_t(alts), log10Priors, result, countDiploid);
}

void GeneralExactModel::compute(const Samples& samples, int alts, const Priors& log10Priors,
                                AlleleCountResult& result) {
  if (alts < 2) return BiAllelicACModel::compute(samples, alts, log10Priors, result);
  computeManyAlleles(samples, size_t(alts), log10Priors, result, countGeneral);
}
