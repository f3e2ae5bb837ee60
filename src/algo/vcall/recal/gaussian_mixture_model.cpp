#include "algo/vcall/recal/gaussian_mixture_model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "base/in_chunks.h"
#include "base/timer.h"

namespace {

constexpr double kPriorScale = 200.0;  // the prior scatter is the inverse of this times the identity
constexpr double kLeastSum = 1e-20;
constexpr double kLog2Of10 = 3.321928094887362;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kNone = -std::numeric_limits<double>::infinity();

using Column = DataBlock::Column;

double exp10Fast(double x) {
  return std::exp2(x * kLog2Of10);
}

// log10 of the sum of 10^v.
class Log10Sum {
 public:
  void add(double value) {
    if (value > most_) {
      sum_ = sum_ * exp10Fast(most_ - value) + 1;
      most_ = value;
    } else if (value != kNone) {
      sum_ += exp10Fast(value - most_);
    }
  }
  double value() const { return most_ + std::log10(sum_); }

 private:
  double most_ = kNone, sum_ = 0;
};

// Of one column per component: most[i], and 10^(value - most[i]) for each value, which add up to sum[i].
void scaleByMost(std::vector<Column>& values, Column& most, Column& sum) {
  most.fill(kNone);
  sum.fill(0);
  for (const Column& column : values)
    for (size_t k = 0; k < DataBlock::kSteps; ++k)
      most.at[k] = column.at[k] > most.at[k] ? column.at[k] : most.at[k];
  for (Column& column : values) {
    for (size_t i = 0; i < DataBlock::kSize; ++i) column[i] = exp10Fast(column[i] - most[i]);
    for (size_t k = 0; k < DataBlock::kSteps; ++k) sum.at[k] += column.at[k];
  }
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
  const size_t parts = (data_.size() + partsize() - 1) / partsize();
  std::vector<double> sums(std::max<size_t>(parts, 1) * size);
  inChunks(pool_, data_.size(), partsize(), [&](size_t first, size_t last) {
    DataBlock block(dimensions_);
    double* const part = sums.data() + first / partsize() * size;
    for (size_t begin = first; begin < last; begin += DataBlock::kSize) {
      const size_t count = std::min(DataBlock::kSize, last - begin);
      block.load(data_.subspan(begin, count));
      add(block, begin, count, part);
    }
  });
  for (size_t part = 1; part < parts; ++part)
    for (size_t i = 0; i < size; ++i) sums[i] += sums[part * size + i];
  sums.resize(size);
  return sums;
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
  for (int round = 0; round < options_.kmeans_iter; ++round)
    if (!moveMeans()) break;
  for (BayesianMultivariateGaussian& gaussian : gaussians_) {
    gaussian.mixtureWeight = 1.0 / double(gaussians_.size());
    gaussian.hp_a = options_.prior_counts;
    gaussian.hp_b = options_.shrinkage;
    gaussian.hp_lambda = options_.dirichlet;
    drawScatter(gaussian);
  }
}

// One round of k-means. False when no mean has moved: none will in another round.
bool GaussianMixtureModel::moveMeans() {
  const size_t row = dimensions_ + 1;  // sums of the values, and the count
  const std::vector<double> sums =
      sumParts(gaussians_.size() * row, [&](DataBlock& block, size_t, size_t count, double* part) {
        Column least, nearest, distance;
        least.fill(std::numeric_limits<double>::max());
        nearest.fill(0);
        for (size_t c = 0; c < gaussians_.size(); ++c) {
          block.centre(gaussians_[c].mu);
          distance.fill(0);
          for (const Column& x : block.centred)
            for (size_t k = 0; k < DataBlock::kSteps; ++k) distance.at[k] += x.at[k] * x.at[k];
          const DataBlock::Lanes own = DataBlock::Lanes{} + double(c);
          for (size_t k = 0; k < DataBlock::kSteps; ++k) {
            const auto nearer = distance.at[k] < least.at[k];
            least.at[k] = nearer ? distance.at[k] : least.at[k];
            nearest.at[k] = nearer ? own : nearest.at[k];
          }
        }
        for (size_t i = 0; i < count; ++i) {
          double* const own = part + size_t(nearest[i]) * row;
          for (size_t d = 0; d < dimensions_; ++d) own[d] += block.columns[d][i];
          ++own[dimensions_];
        }
      });
  bool moved = false;
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    const double* const own = sums.data() + c * row;
    const std::vector<double> old = gaussians_[c].mu;
    if (own[dimensions_] == 0)
      drawMean(gaussians_[c]);
    else
      for (size_t d = 0; d < dimensions_; ++d) gaussians_[c].mu[d] = own[d] / own[dimensions_];
    moved = moved || gaussians_[c].mu != old;
  }
  return moved;
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
  for (std::vector<double>& values : responsibilities_) values.resize(data_.size());
  inChunks(pool_, data_.size(), partsize(), [&](size_t first, size_t last) {
    TimerScope compute_scope(compute_timer);
    DataBlock block(dimensions_);
    std::vector<Column> values(gaussians_.size());
    Column most, sum;
    for (size_t begin = first; begin < last; begin += DataBlock::kSize) {
      const size_t count = std::min(DataBlock::kSize, last - begin);
      block.load(data_.subspan(begin, count));
      for (size_t c = 0; c < gaussians_.size(); ++c)
        block.findLogs(gaussians_[c], gaussians_[c].cachedDenomLog10, values[c]);
      scaleByMost(values, most, sum);
      for (size_t c = 0; c < gaussians_.size(); ++c)
        for (size_t i = 0; i < count; ++i) responsibilities_[c][begin + i] = values[c][i] / sum[i];
    }
  });
}

// ---- maximisation ----

double GaussianMixtureModel::mStep(bool last) {
  static Timer* const step_timer = timer("VBEM::MStep");
  TimerScope scope(step_timer);
  findMeans();
  const size_t n = dimensions_;
  const std::vector<double> scatter = findScatter();
  double delta = 0;
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    BayesianMultivariateGaussian& gaussian = gaussians_[c];
    const double weight = gaussian.probSum / double(data_.size());
    if (!std::isfinite(weight)) throw std::overflow_error("numeric overflow");
    delta = std::max(delta, std::abs(weight - gaussian.mixtureWeight));
    gaussian.mixtureWeight = weight;

    const double f = gaussian.probSum / (options_.shrinkage + gaussian.probSum), g = 1 - f;
    for (size_t i = 0; i < n; ++i) {
      for (size_t j = 0; j <= i; ++j) {
        const double outer =
            f * options_.shrinkage * (gaussian.mu[i] - empiricalMu_[i]) * (gaussian.mu[j] - empiricalMu_[j]);
        double value = scatter[(c * n + i) * n + j] + empiricalSigma_[i][j] + outer;
        if (last) value /= gaussian.probSum;
        gaussian.sigma[i][j] = gaussian.sigma[j][i] = value;
      }
    }
    for (size_t d = 0; d < n; ++d) gaussian.mu[d] = f * gaussian.mu[d] + g * empiricalMu_[d];
    if (last) continue;
    gaussian.hp_a = options_.prior_counts + gaussian.probSum;
    gaussian.hp_b = options_.shrinkage + gaussian.probSum;
    gaussian.hp_lambda = options_.dirichlet + gaussian.probSum;
  }
  return delta;
}

// Of each component, what it answers for and the mean of it.
void GaussianMixtureModel::findMeans() {
  static Timer* const mu_timer = timer("accumMu_compute");
  TimerScope scope(mu_timer);
  const size_t n = dimensions_, row = n + 1;
  const std::vector<double> sums = sumParts(
      gaussians_.size() * row, [&](const DataBlock& block, size_t first, size_t count, double* part) {
        Column r;
        for (size_t c = 0; c < gaussians_.size(); ++c) {
          r.load(responsibilities_[c].data() + first, count);
          for (size_t d = 0; d < n; ++d) part[c * row + d] += DataBlock::sumOfProducts(r, block.columns[d]);
          part[c * row + n] += DataBlock::sum(r);
        }
      });
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    gaussians_[c].probSum = std::max(sums[c * row + n], kLeastSum);
    for (size_t d = 0; d < n; ++d) gaussians_[c].mu[d] = sums[c * row + d] / gaussians_[c].probSum;
  }
}

// Of each component, the lower triangle of the scatter around its mean.
std::vector<double> GaussianMixtureModel::findScatter() const {
  static Timer* const sigma_timer = timer("accumSigma_compute");
  TimerScope scope(sigma_timer);
  const size_t n = dimensions_;
  return sumParts(gaussians_.size() * n * n, [&](DataBlock& block, size_t first, size_t count, double* part) {
    Column r, weighted;
    for (size_t c = 0; c < gaussians_.size(); ++c) {
      r.load(responsibilities_[c].data() + first, count);
      block.centre(gaussians_[c].mu);
      for (size_t i = 0; i < n; ++i) {
        for (size_t k = 0; k < DataBlock::kSteps; ++k) weighted.at[k] = r.at[k] * block.centred[i].at[k];
        for (size_t j = 0; j <= i; ++j)
          part[(c * n + i) * n + j] += DataBlock::sumOfProducts(weighted, block.centred[j]);
      }
    }
  });
}

void GaussianMixtureModel::finalWeights() {
  mStep(true);
  for (BayesianMultivariateGaussian& gaussian : gaussians_) {
    gaussian.log10MixtureWeight = std::log10(gaussian.probSum / double(data_.size()));
    gaussian.precomputePlain();
  }
}

// ---- evaluation ----

double GaussianMixtureModel::evaluateDatum(std::span<const double> x) const {
  Log10Sum sum;
  for (const BayesianMultivariateGaussian& gaussian : gaussians_) sum.add(gaussian.evaluate(x));
  return sum.value();
}

double GaussianMixtureModel::evaluateDatumInOneDimension(const Datum& datum, size_t annotation) const {
  if (datum.isMissing(annotation)) return kNaN;
  Log10Sum sum;
  for (const BayesianMultivariateGaussian& gaussian : gaussians_)
    sum.add(gaussian.evaluateOneDimension(datum.annotations[annotation], annotation));
  return sum.value();
}

// The densities of rows, which are data or draws for what data miss, a block of rows at a time.
class GaussianMixtureModel::Evaluation {
 public:
  explicit Evaluation(const GaussianMixtureModel& model)
      : model_(model), block_(model.dimensions_), logs_(model.gaussians_.size()) {}

  // The density of row `x` is a draw for a value that is the mean over `draws` rows in a row.
  void add(std::span<const double> x, int draws, double& value) {
    block_.setRow(waiting_.size(), x);
    waiting_.push_back({draws, &value});
    if (waiting_.size() == DataBlock::kSize) flush();
  }

  void flush() {
    Column most, sum;
    for (size_t c = 0; c < logs_.size(); ++c) {
      const BayesianMultivariateGaussian& gaussian = model_.gaussians_[c];
      block_.findLogs(gaussian, gaussian.log10MixtureWeight + gaussian.cachedDenomLog10, logs_[c]);
    }
    scaleByMost(logs_, most, sum);
    for (size_t i = 0; i < waiting_.size(); ++i) {
      const Row& row = waiting_[i];
      drawn_.add(most[i] + std::log10(sum[i]));
      if (++draws_ < row.draws) continue;
      *row.value = drawn_.value() - std::log10(double(draws_));
      drawn_ = {};
      draws_ = 0;
    }
    waiting_.clear();
  }

 private:
  struct Row {
    int draws;
    double* value;
  };

  const GaussianMixtureModel& model_;
  DataBlock block_;
  std::vector<Column> logs_;  // by component
  std::vector<Row> waiting_;
  Log10Sum drawn_;  // of the value that the next rows belong to
  int draws_ = 0;
};

std::vector<double> GaussianMixtureModel::evaluateData(const Data& data) {
  static Timer* const evaluate_timer = timer("VBEM::evaluateData");
  TimerScope scope(evaluate_timer);
  fprintf(stderr, "evaluating %lu variants\n", (unsigned long)data.size());
  std::vector<JavaUtil::Random> generators;
  for (size_t first = 0; first < data.size(); first += partsize())
    generators.emplace_back(random_->nextLong());
  std::vector<double> values(data.size(), kNaN);
  inChunks(pool_, data.size(), partsize(), [&](size_t first, size_t last) {
    JavaUtil::Random& random = generators[first / partsize()];
    Evaluation evaluation(*this);
    std::vector<double> drawn;
    for (size_t i = first; i < last; ++i) {
      const Datum& datum = *data[i];
      bool complete = true;
      for (size_t d = 0; d < dimensions_; ++d) complete = complete && !datum.isMissing(d);
      if (complete) {
        evaluation.add(datum.annotations, 1, values[i]);
      } else if (options_.iter_for_marginal_mode != 0) {
        values[i] = marginalByComponent(datum, random);
      } else {
        drawn = datum.annotations;
        for (int draw = 0; draw < options_.iter_for_marginal; ++draw) {
          for (size_t d = 0; d < dimensions_; ++d)
            if (datum.isMissing(d)) drawn[d] = random.nextGaussian();
          evaluation.add(drawn, options_.iter_for_marginal, values[i]);
        }
      }
    }
    evaluation.flush();
  });
  return values;
}

// The mean over draws of what is missing, which each component makes of its own.
double GaussianMixtureModel::marginalByComponent(const Datum& datum, JavaUtil::Random& random) const {
  std::vector<double> x = datum.annotations, normal(dimensions_);
  Log10Sum sum;
  for (int draw = 0; draw < options_.iter_for_marginal; ++draw) {
    for (const BayesianMultivariateGaussian& gaussian : gaussians_) {
      for (double& value : normal) value = random.nextGaussian();
      for (size_t d = 0; d < dimensions_; ++d)
        if (datum.isMissing(d)) x[d] = gaussian.drawn(normal, d);
      sum.add(gaussian.evaluate(x));
    }
  }
  return options_.iter_for_marginal > 0 ? sum.value() - std::log10(double(options_.iter_for_marginal)) : kNaN;
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
