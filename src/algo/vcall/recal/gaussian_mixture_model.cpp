#include "algo/vcall/recal/gaussian_mixture_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "base/in_chunks.h"
#include "base/timer.h"

namespace {

constexpr double kPriorScale = 200.0;  // the prior scatter is the inverse of this times the identity
constexpr double kLeastSum = 1e-20;
constexpr double kLog2Of10 = 3.321928094887362;
constexpr size_t kBlock = 256;  // data whose values stay in the first cache

double exp10Fast(double x) {
  return std::exp2(x * kLog2Of10);
}

// log10 of the sum of 10^v.
double log10sum(std::span<const double> values) {
  const double most = *std::max_element(values.begin(), values.end());
  if (!std::isfinite(most)) return most;
  double sum = 0;
  for (double value : values) sum += exp10Fast(value - most);
  return most + std::log10(sum);
}

// Sums in four lanes, always the same, which the processor adds side by side.
template <typename Term>
double sumOf(size_t count, const Term& term) {
  std::array<double, 4> lanes{};
  size_t i = 0;
  for (; i + 4 <= count; i += 4)
    for (size_t lane = 0; lane < 4; ++lane) lanes[lane] += term(i + lane);
  for (; i < count; ++i) lanes[i % 4] += term(i);
  return (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
}

}  // namespace

GaussianMixtureModel::GaussianMixtureModel(size_t components, size_t dimensions,
                                           const MixtureOptions& options, JavaUtil::Random* random,
                                           thread_coop* pool)
    : options_(options),
      dimensions_(dimensions),
      gaussians_(components, BayesianMultivariateGaussian(dimensions)),
      empiricalMu_(dimensions),
      empiricalSigma_(dimensions),
      random_(random),
      pool_(pool) {
  for (size_t i = 0; i < dimensions; ++i) empiricalSigma_[i][i] = 1 / kPriorScale;
  for (BayesianMultivariateGaussian& gaussian : gaussians_)
    gaussian.log10MixtureWeight = std::log10(1.0 / double(components));
}

template <typename Add>
std::vector<double> GaussianMixtureModel::sumParts(size_t size, const Add& add) const {
  const auto partsize = size_t(std::max(options_.partsize, 1));
  const size_t parts = (data_.count + partsize - 1) / partsize;
  std::vector<double> sums(parts * size);
  inChunks(pool_, parts, 1, [&](size_t part, size_t) {
    add(part * partsize, std::min(data_.count, (part + 1) * partsize), sums.data() + part * size);
  });
  for (size_t part = 1; part < parts; ++part)
    for (size_t i = 0; i < size; ++i) sums[i] += sums[part * size + i];
  sums.resize(size);
  return sums;
}

void GaussianMixtureModel::load(const Data& data) {
  data_.count = data.size();
  data_.values.resize(data.size() * dimensions_);
  for (size_t d = 0; d < dimensions_; ++d)
    for (size_t i = 0; i < data.size(); ++i) data_.values[d * data.size() + i] = data[i]->annotations[d];
}

void GaussianMixtureModel::train(const Data& data) {
  load(data);
  try {
    initRandomModel();
    fputs("Model after random init\n", stderr);
    dump(stderr);
    for (int iter = 0; iter < options_.max_iter; ++iter) {
      eStep();
      const double delta = mStep();
      fprintf(stderr, "iter %d: mixture weight delta %.5f\n", iter, delta);
      if (iter >= options_.min_iter - 1 && delta < options_.prob_tol) break;
    }
    if (options_.max_iter < 1) eStep();
    finalWeights();
    fputs("Model after EM\n", stderr);
    dump(stderr);
  } catch (const std::overflow_error& failure) {
    fprintf(stderr, "%s\n", failure.what());
    converged_ = false;
  }
  data_ = {};
  responsibilities_ = {};
}

// ---- the start ----

void GaussianMixtureModel::drawMean(BayesianMultivariateGaussian& gaussian) {
  for (double& value : gaussian.mu) value = random_->nextDouble() * 8.0 - 4.0;
}

void GaussianMixtureModel::drawScatter(BayesianMultivariateGaussian& gaussian) {
  SquareMatrix a(dimensions_);
  for (size_t i = 0; i < dimensions_; ++i) {
    for (size_t j = 0; j <= i; ++j) {
      a[i][j] = random_->nextDouble() * 1.25 + 0.55;
      if (random_->next(1) != 0) a[i][j] = -a[i][j];
    }
  }
  for (size_t i = 0; i < dimensions_; ++i) {
    for (size_t j = 0; j < dimensions_; ++j) {
      double sum = 0;
      for (size_t k = 0; k <= std::min(i, j); ++k) sum += a[i][k] * a[j][k];
      gaussian.sigma[i][j] = sum;
    }
  }
}

void GaussianMixtureModel::initRandomModel() {
  static Timer* const init_timer = timer("VBEM::initRandomModel");
  TimerScope scope(init_timer);
  for (BayesianMultivariateGaussian& gaussian : gaussians_) drawMean(gaussian);
  for (int round = 0; round < options_.kmeans_iter; ++round) moveMeans();
  for (BayesianMultivariateGaussian& gaussian : gaussians_) {
    gaussian.mixtureWeight = 1.0 / double(gaussians_.size());
    gaussian.hp_a = options_.prior_counts;
    gaussian.hp_b = options_.shrinkage;
    gaussian.hp_lambda = options_.dirichlet;
    drawScatter(gaussian);
  }
}

size_t GaussianMixtureModel::nearest(size_t datum) const {
  size_t best = 0;
  double least = std::numeric_limits<double>::max();
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    double sum = 0;
    for (size_t d = 0; d < dimensions_; ++d) {
      const double difference = data_.column(d)[datum] - gaussians_[c].mu[d];
      sum += difference * difference;
    }
    if (sum < least) {
      least = sum;
      best = c;
    }
  }
  return best;
}

// One round of k-means.
void GaussianMixtureModel::moveMeans() {
  const size_t row = dimensions_ + 1;  // sums of the values, and the count
  const std::vector<double> sums =
      sumParts(gaussians_.size() * row, [&](size_t first, size_t last, double* part) {
        for (size_t i = first; i < last; ++i) {
          double* const own = part + nearest(i) * row;
          for (size_t d = 0; d < dimensions_; ++d) own[d] += data_.column(d)[i];
          ++own[dimensions_];
        }
      });
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    const double* const own = sums.data() + c * row;
    if (own[dimensions_] == 0)
      drawMean(gaussians_[c]);
    else
      for (size_t d = 0; d < dimensions_; ++d) gaussians_[c].mu[d] = own[d] / own[dimensions_];
  }
}

// ---- expectation ----

void GaussianMixtureModel::eStep() {
  static Timer* const step_timer = timer("VBEM::EStep");
  static Timer* const compute_timer = timer("EStep_compute");
  TimerScope scope(step_timer);
  double lambdas = 0;
  for (const BayesianMultivariateGaussian& gaussian : gaussians_) lambdas += gaussian.hp_lambda;
  for (BayesianMultivariateGaussian& gaussian : gaussians_) gaussian.precomputeDenominator(lambdas);
  responsibilities_.resize(gaussians_.size());
  for (std::vector<double>& values : responsibilities_) values.resize(data_.count);
  inChunks(pool_, data_.count, size_t(std::max(options_.partsize, 1)), [&](size_t first, size_t last) {
    TimerScope compute_scope(compute_timer);
    for (size_t block = first; block < last; block += kBlock)
      findResponsibilities(block, std::min(last, block + kBlock));
  });
}

// Of a block of data.
void GaussianMixtureModel::findResponsibilities(size_t first, size_t last) {
  const size_t count = last - first;
  std::array<double, kBlock> most, sum{};
  most.fill(-std::numeric_limits<double>::infinity());
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    const BayesianMultivariateGaussian& gaussian = gaussians_[c];
    double* const values = responsibilities_[c].data() + first;
    std::fill_n(values, count, 0.0);
    addDistances(gaussian, first, last, values);
    for (size_t i = 0; i < count; ++i) {
      values[i] = gaussian.cachedDenomLog10 - BayesianMultivariateGaussian::kHalfLog10E * values[i];
      most[i] = std::max(most[i], values[i]);
    }
  }
  for (std::vector<double>& all : responsibilities_) {
    double* const values = all.data() + first;
    for (size_t i = 0; i < count; ++i) sum[i] += values[i] = exp10Fast(values[i] - most[i]);
  }
  for (std::vector<double>& all : responsibilities_)
    for (size_t i = 0; i < count; ++i) all[first + i] /= sum[i];
}

// The inverse is symmetric: what lies off the diagonal counts twice.
void GaussianMixtureModel::addDistances(const BayesianMultivariateGaussian& gaussian, size_t first,
                                        size_t last, double* distances) const {
  const size_t count = last - first;
  std::array<double, kBlock> product;
  for (size_t i = 0; i < dimensions_; ++i) {
    const double* const x = data_.column(i) + first;
    const double diagonal = gaussian.sigmaInverse[i][i], mean = gaussian.mu[i];
    for (size_t k = 0; k < count; ++k) product[k] = diagonal * (x[k] - mean);
    for (size_t j = 0; j < i; ++j) {
      const double* const y = data_.column(j) + first;
      const double twice = gaussian.sigmaInverse[i][j] + gaussian.sigmaInverse[j][i], other = gaussian.mu[j];
      for (size_t k = 0; k < count; ++k) product[k] += twice * (y[k] - other);
    }
    for (size_t k = 0; k < count; ++k) distances[k] += product[k] * (x[k] - mean);
  }
}

// ---- maximisation ----

double GaussianMixtureModel::mStep(bool last) {
  static Timer* const step_timer = timer("VBEM::MStep");
  TimerScope scope(step_timer);
  double delta = 0;
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    maximise(c, last);
    const double weight = gaussians_[c].probSum / double(data_.count);
    if (!std::isfinite(weight)) throw std::overflow_error("numeric overflow");
    delta = std::max(delta, std::abs(weight - gaussians_[c].mixtureWeight));
    gaussians_[c].mixtureWeight = weight;
  }
  return delta;
}

void GaussianMixtureModel::maximise(size_t component, bool last) {
  static Timer* const mu_timer = timer("accumMu_compute");
  static Timer* const sigma_timer = timer("accumSigma_compute");
  BayesianMultivariateGaussian& gaussian = gaussians_[component];
  const double* const r = responsibilities_[component].data();
  const size_t n = dimensions_;

  const std::vector<double> sums = sumParts(n + 1, [&](size_t first, size_t end, double* part) {
    TimerScope scope(mu_timer);
    part[n] = sumOf(end - first, [&](size_t i) { return r[first + i]; });
    for (size_t d = 0; d < n; ++d) {
      const double* const x = data_.column(d);
      part[d] = sumOf(end - first, [&](size_t i) { return r[first + i] * x[first + i]; });
    }
  });
  gaussian.probSum = std::max(sums[n], kLeastSum);
  std::vector<double> raw(n);
  for (size_t d = 0; d < n; ++d) raw[d] = sums[d] / gaussian.probSum;

  const std::vector<double> scatter = sumParts(n * n, [&](size_t first, size_t end, double* part) {
    TimerScope scope(sigma_timer);
    std::array<double, kBlock> weighted;
    for (size_t block = first; block < end; block += kBlock) {
      const size_t count = std::min(kBlock, end - block);
      for (size_t i = 0; i < n; ++i) {
        const double* const x = data_.column(i) + block;
        for (size_t k = 0; k < count; ++k) weighted[k] = r[block + k] * (x[k] - raw[i]);
        for (size_t j = 0; j <= i; ++j) {
          const double* const y = data_.column(j) + block;
          part[i * n + j] += sumOf(count, [&](size_t k) { return weighted[k] * (y[k] - raw[j]); });
        }
      }
    }
  });

  const double f = gaussian.probSum / (options_.shrinkage + gaussian.probSum), g = 1 - f;
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j <= i; ++j) {
      const double outer = f * options_.shrinkage * (raw[i] - empiricalMu_[i]) * (raw[j] - empiricalMu_[j]);
      double value = scatter[i * n + j] + empiricalSigma_[i][j] + outer;
      if (last) value /= gaussian.probSum;
      gaussian.sigma[i][j] = gaussian.sigma[j][i] = value;
    }
  }
  for (size_t d = 0; d < n; ++d) gaussian.mu[d] = f * raw[d] + g * empiricalMu_[d];
  if (last) return;
  gaussian.hp_a = options_.prior_counts + gaussian.probSum;
  gaussian.hp_b = options_.shrinkage + gaussian.probSum;
  gaussian.hp_lambda = options_.dirichlet + gaussian.probSum;
}

void GaussianMixtureModel::finalWeights() {
  mStep(true);
  for (BayesianMultivariateGaussian& gaussian : gaussians_) {
    gaussian.log10MixtureWeight = std::log10(gaussian.probSum / double(data_.count));
    gaussian.precomputePlain();
  }
}

// ---- evaluation ----

double GaussianMixtureModel::evaluateDatum(std::span<const double> x) const {
  std::vector<double> values(gaussians_.size());
  for (size_t c = 0; c < gaussians_.size(); ++c) values[c] = gaussians_[c].evaluate(x);
  return log10sum(values);
}

double GaussianMixtureModel::evaluateDatumInOneDimension(const Datum& datum, size_t annotation) const {
  if (datum.isMissing(annotation)) return std::numeric_limits<double>::quiet_NaN();
  std::vector<double> values(gaussians_.size());
  for (size_t c = 0; c < gaussians_.size(); ++c)
    values[c] = gaussians_[c].evaluateOneDimension(datum.annotations[annotation], annotation);
  return log10sum(values);
}

std::vector<double> GaussianMixtureModel::evaluateData(const Data& data) {
  static Timer* const evaluate_timer = timer("VBEM::evaluateData");
  TimerScope scope(evaluate_timer);
  fprintf(stderr, "evaluating %lu variants\n", (unsigned long)data.size());
  const auto partsize = size_t(std::max(options_.partsize, 1));
  std::vector<JavaUtil::Random> generators;
  for (size_t first = 0; first < data.size(); first += partsize) generators.emplace_back(random_->nextLong());
  std::vector<double> values(data.size());
  inChunks(pool_, data.size(), partsize, [&](size_t first, size_t last) {
    JavaUtil::Random& random = generators[first / partsize];
    for (size_t i = first; i < last; ++i) {
      const Datum& datum = *data[i];
      bool complete = true;
      for (size_t d = 0; d < dimensions_; ++d) complete = complete && !datum.isMissing(d);
      values[i] = complete ? evaluateDatum(datum.annotations) : marginal(datum, random);
    }
  });
  return values;
}

// The mean over draws of what is missing: of a standard normal each, or of each component's own.
double GaussianMixtureModel::marginal(const Datum& datum, JavaUtil::Random& random) const {
  std::vector<double> x = datum.annotations, values;
  const bool of_component = options_.iter_for_marginal_mode != 0;
  for (int draw = 0; draw < options_.iter_for_marginal; ++draw) {
    if (!of_component) {
      for (size_t d = 0; d < dimensions_; ++d)
        if (datum.isMissing(d)) x[d] = random.nextGaussian();
      values.push_back(evaluateDatum(x));
      continue;
    }
    for (const BayesianMultivariateGaussian& gaussian : gaussians_) {
      for (size_t d = 0; d < dimensions_; ++d)
        if (datum.isMissing(d))
          x[d] = gaussian.mu[d] + std::sqrt(gaussian.sigma[d][d]) * random.nextGaussian();
      values.push_back(gaussian.evaluate(x));
    }
  }
  if (values.empty()) return std::numeric_limits<double>::quiet_NaN();
  return log10sum(values) - std::log10(double(options_.iter_for_marginal));
}

void GaussianMixtureModel::dump(FILE* stream) const {
  for (const BayesianMultivariateGaussian& gaussian : gaussians_) gaussian.dump(stream, "");
}

int32_t findCulprit(const Datum& datum, const GaussianMixtureModel& good, const GaussianMixtureModel& bad) {
  int32_t culprit = -1;
  double least = std::numeric_limits<double>::max();
  for (size_t i = 0; i < datum.annotations.size(); ++i) {
    const double ahead =
        good.evaluateDatumInOneDimension(datum, i) - bad.evaluateDatumInOneDimension(datum, i);
    if (std::isnan(ahead) || ahead >= least) continue;
    least = ahead;
    culprit = int32_t(i);
  }
  return culprit;
}
