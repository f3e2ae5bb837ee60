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
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kNone = -std::numeric_limits<double>::infinity();
constexpr size_t kStretch = 128;  // columns of responsibilities, which stay in the second cache

using Column = DataBlock::Column;

double powerOf10(double x) {
  return std::exp2(x * DataBlock::kLog2Of10);
}

// log10 of the sum of 10^v.
class Log10Sum {
 public:
  void add(double value) {
    if (value > most_) {
      sum_ = sum_ * powerOf10(most_ - value) + 1;
      most_ = value;
    } else if (value != kNone) {
      sum_ += powerOf10(value - most_);
    }
  }
  double value() const { return most_ + std::log10(sum_); }

 private:
  double most_ = kNone, sum_ = 0;
};

// Charges what passes between its calls to timers. TimerScopes of steps that take turns would count each turn as a call.
class TurnTimer {
 public:
  void charge(Timer& timer) {
    const ResourceUse now = ResourceUse::sample();
    timer.user += now.user - std::min(last_.user, now.user);
    timer.system += now.system - std::min(last_.system, now.system);
    timer.real += now.real - std::min(last_.real, now.real);
    last_ = now;
  }

 private:
  ResourceUse last_ = ResourceUse::sample();
};

}  // namespace

// Some of the data, in blocks one behind the other.
struct GaussianMixtureModel::Part {
  const Column* columns;
  size_t count, dimensions;

  size_t blocks() const { return (count + DataBlock::kSize - 1) / DataBlock::kSize; }
  // Makes `block` the one of this number, and gives the count of its data.
  size_t show(size_t number, DataBlock& block) const {
    block.columns = {columns + number * dimensions, dimensions};
    return std::min(DataBlock::kSize, count - number * DataBlock::kSize);
  }
};

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
  const size_t parts = (count_ + partsize() - 1) / partsize();
  std::vector<double> sums(std::max<size_t>(parts, 1) * size);
  inChunks(pool_, count_, partsize(), [&](size_t first, size_t last) {
    const size_t part = first / partsize();
    const Column* const columns = blocks_.data() + part * blocksPerPart() * dimensions_;
    add(Part{columns, last - first, dimensions_}, sums.data() + part * size);
  });
  for (size_t part = 1; part < parts; ++part)
    for (size_t i = 0; i < size; ++i) sums[i] += sums[part * size + i];
  sums.resize(size);
  return sums;
}

void GaussianMixtureModel::load(const VariantData& data) {
  count_ = data.size();
  const size_t whole = count_ / partsize() * blocksPerPart(), left = count_ % partsize();
  blocks_.assign((whole + (left + DataBlock::kSize - 1) / DataBlock::kSize) * dimensions_, {});
  for (size_t i = 0; i < count_; ++i) {
    const size_t within = i % partsize(),
                 block = i / partsize() * blocksPerPart() + within / DataBlock::kSize;
    for (size_t d = 0; d < dimensions_; ++d)
      blocks_[block * dimensions_ + d][within % DataBlock::kSize] = data[i]->annotations[d];
  }
}

void GaussianMixtureModel::train(VariantData data) {
  load(data);
  VariantData().swap(data);
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
  std::vector<Column>().swap(blocks_);  // = {} would keep the room
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

std::vector<double> GaussianMixtureModel::allMeans() const {
  std::vector<double> means;
  for (const BayesianMultivariateGaussian& gaussian : gaussians_)
    means.insert(means.end(), gaussian.mu.begin(), gaussian.mu.end());
  return means;
}

// One round of k-means. False when no mean has moved: none will in another round.
bool GaussianMixtureModel::moveMeans() {
  const size_t row = dimensions_ + 1;  // sums of the values, and the count
  const std::vector<double> means = allMeans();
  const std::vector<double> sums = sumParts(gaussians_.size() * row, [&](const Part& part, double* partSums) {
    DataBlock block(dimensions_);
    Column nearest;
    for (size_t b = 0; b < part.blocks(); ++b) {
      const size_t count = part.show(b, block);
      block.findNearest(means, nearest);
      for (size_t i = 0; i < count; ++i) {
        double* const own = partSums + size_t(nearest[i]) * row;
        for (size_t d = 0; d < dimensions_; ++d) own[d] += block.columns[d][i];
        ++own[dimensions_];
      }
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

void GaussianMixtureModel::findResponsibilities(DataBlock& block, size_t count, std::span<Column> r) const {
  for (size_t c = 0; c < gaussians_.size(); ++c)
    block.findLogs(gaussians_[c], gaussians_[c].cachedDenomLog10, r[c]);
  Column most, sum;
  DataBlock::scaleByMost(r, most, sum);
  for (Column& own : r) {
    for (size_t k = 0; k < DataBlock::kSteps; ++k) own.at[k] /= sum.at[k];
    for (size_t i = count; i < DataBlock::kSize; ++i) own[i] = 0;
  }
}

void GaussianMixtureModel::accumulateMu(DataBlock& block, std::span<const Column> r, double* sums) const {
  for (size_t c = 0; c < gaussians_.size(); ++c, sums += sumsPerComponent()) {
    block.centre(gaussians_[c].mu);
    sums[0] += DataBlock::sum(r[c]);
    for (size_t i = 0; i < dimensions_; ++i) sums[1 + i] += DataBlock::sumOfProducts(r[c], block.centred[i]);
  }
}

void GaussianMixtureModel::accumulateSigma(DataBlock& block, std::span<const Column> r, double* sums) const {
  Column weighted;
  for (size_t c = 0; c < gaussians_.size(); ++c, sums += sumsPerComponent()) {
    double* const products = sums + 1 + dimensions_;
    block.centre(gaussians_[c].mu);
    for (size_t i = 0; i < dimensions_; ++i) {
      for (size_t k = 0; k < DataBlock::kSteps; ++k) weighted.at[k] = r[c].at[k] * block.centred[i].at[k];
      for (size_t j = 0; j <= i; ++j)
        products[i * dimensions_ + j] += DataBlock::sumOfProducts(weighted, block.centred[j]);
    }
  }
}

// What the M-step sums up is summed up here, while the responsibilities of a stretch of blocks are at hand.
void GaussianMixtureModel::eStep() {
  static Timer* const step_timer = timer("VBEM::EStep");
  static Timer* const compute_timer = timer("EStep_compute");
  static Timer* const mu_timer = timer("accumMu_compute");
  static Timer* const sigma_timer = timer("accumSigma_compute");
  TimerScope scope(step_timer);
  double lambdas = 0;
  for (const BayesianMultivariateGaussian& gaussian : gaussians_) lambdas += gaussian.hp_lambda;
  for (BayesianMultivariateGaussian& gaussian : gaussians_) gaussian.precomputeDenominator(lambdas);
  means_ = allMeans();
  const size_t k = gaussians_.size(), stretch = std::max<size_t>(kStretch / k, 1);
  sums_ = sumParts(k * sumsPerComponent(), [&](const Part& part, double* sums) {
    TurnTimer turns;
    DataBlock block(dimensions_);
    std::vector<Column> r(std::min(stretch, part.blocks()) * k);
    for (size_t first = 0; first < part.blocks(); first += stretch) {
      const size_t last = std::min(first + stretch, part.blocks());
      const auto eachBlock = [&](Timer* charged, const auto& work) {
        for (size_t b = first; b < last; ++b) {
          const size_t count = part.show(b, block);
          work(count, std::span(r).subspan((b - first) * k, k));
        }
        turns.charge(*charged);
      };
      eachBlock(compute_timer, [&](size_t count, auto own) { findResponsibilities(block, count, own); });
      eachBlock(mu_timer, [&](size_t, auto own) { accumulateMu(block, own, sums); });
      eachBlock(sigma_timer, [&](size_t, auto own) { accumulateSigma(block, own, sums); });
    }
    for (Timer* charged : {compute_timer, mu_timer, sigma_timer}) ++charged->calls;
  });
}

// ---- maximisation ----

double GaussianMixtureModel::mStep(bool last) {
  static Timer* const step_timer = timer("VBEM::MStep");
  TimerScope scope(step_timer);
  double delta = 0;
  for (size_t c = 0; c < gaussians_.size(); ++c) {
    maximise(c, last);
    const double weight = gaussians_[c].probSum / double(count_);
    if (!std::isfinite(weight)) throw std::overflow_error("numeric overflow");
    delta = std::max(delta, std::abs(weight - gaussians_[c].mixtureWeight));
    gaussians_[c].mixtureWeight = weight;
  }
  return delta;
}

// The sums are around the mean that the E-step had: `moved` is from there to the mean of what the component answers for.
void GaussianMixtureModel::maximise(size_t component, bool last) {
  BayesianMultivariateGaussian& gaussian = gaussians_[component];
  const size_t n = dimensions_;
  const double* const sums = sums_.data() + component * sumsPerComponent();
  gaussian.probSum = std::max(sums[0], kLeastSum);
  const double f = gaussian.probSum / (options_.shrinkage + gaussian.probSum), g = 1 - f;
  std::vector<double> moved(n), raw(n);
  for (size_t d = 0; d < n; ++d) {
    moved[d] = sums[1 + d] / gaussian.probSum;
    raw[d] = means_[component * n + d] + moved[d];
    gaussian.mu[d] = f * raw[d] + g * empiricalMu_[d];
  }
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j <= i; ++j) {
      const double scatter = sums[1 + n + i * n + j] - gaussian.probSum * moved[i] * moved[j];
      const double outer = f * options_.shrinkage * (raw[i] - empiricalMu_[i]) * (raw[j] - empiricalMu_[j]);
      double value = scatter + empiricalSigma_[i][j] + outer;
      if (last) value /= gaussian.probSum;
      gaussian.sigma[i][j] = gaussian.sigma[j][i] = value;
    }
  }
  if (last) return;
  gaussian.hp_a = options_.prior_counts + gaussian.probSum;
  gaussian.hp_b = options_.shrinkage + gaussian.probSum;
  gaussian.hp_lambda = options_.dirichlet + gaussian.probSum;
}

void GaussianMixtureModel::finalWeights() {
  mStep(true);
  for (BayesianMultivariateGaussian& gaussian : gaussians_) {
    gaussian.log10MixtureWeight = std::log10(gaussian.probSum / double(count_));
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
  Evaluation(const GaussianMixtureModel& model, bool bad)
      : model_(model),
        bad_(bad),
        rows_(model.dimensions_),
        block_(model.dimensions_),
        logs_(model.gaussians_.size()) {
    block_.columns = rows_;
  }
  Evaluation(const Evaluation&) = delete;

  // The density of row `x` is a draw for that of a datum, which is the mean over `draws` rows in a row.
  void add(const double* x, int draws, VariantDatum* datum) {
    for (size_t d = 0; d < rows_.size(); ++d) rows_[d][waiting_.size()] = x[d];
    waiting_.push_back({draws, datum});
    if (waiting_.size() == DataBlock::kSize) flush();
  }

  void flush() {
    Column most, sum;
    for (size_t c = 0; c < logs_.size(); ++c) {
      const BayesianMultivariateGaussian& gaussian = model_.gaussians_[c];
      block_.findLogs(gaussian, gaussian.log10MixtureWeight + gaussian.cachedDenomLog10, logs_[c]);
    }
    DataBlock::scaleByMost(logs_, most, sum);
    for (size_t i = 0; i < waiting_.size(); ++i) {
      const Row& row = waiting_[i];
      drawn_.add(most[i] + std::log10(sum[i]));
      if (++draws_ < row.draws) continue;
      put(*row.datum, drawn_.value() - std::log10(double(draws_)));
      drawn_ = {};
      draws_ = 0;
    }
    waiting_.clear();
  }

  void put(VariantDatum& datum, double density) const { datum.lod = bad_ ? datum.lod - density : density; }

 private:
  struct Row {
    int draws;
    VariantDatum* datum;
  };

  const GaussianMixtureModel& model_;
  bool bad_;
  std::vector<Column> rows_;  // by dimension
  DataBlock block_;
  std::vector<Column> logs_;  // by component
  std::vector<Row> waiting_;
  Log10Sum drawn_;  // of the datum that the next rows belong to
  int draws_ = 0;
};

void GaussianMixtureModel::evaluateData(const VariantData& data, bool bad) {
  static Timer* const evaluate_timer = timer("VBEM::evaluateData");
  TimerScope scope(evaluate_timer);
  fprintf(stderr, "evaluating %lu variants\n", (unsigned long)data.size());
  std::vector<JavaUtil::Random> generators;
  for (size_t first = 0; first < data.size(); first += partsize())
    generators.emplace_back(random_->nextLong());
  inChunks(pool_, data.size(), partsize(), [&](size_t first, size_t last) {
    JavaUtil::Random& random = generators[first / partsize()];
    Evaluation evaluation(*this, bad);
    std::vector<double> drawn(dimensions_);
    for (size_t i = first; i < last; ++i) {
      VariantDatum& datum = *data[i];
      bool complete = true;
      for (size_t d = 0; d < dimensions_; ++d) complete = complete && !datum.isMissing(d);
      if (complete) {
        evaluation.add(datum.annotations, 1, &datum);
      } else if (options_.iter_for_marginal < 1) {
        evaluation.put(datum, kNaN);
      } else if (options_.iter_for_marginal_mode != 0) {
        evaluation.put(datum, marginalByComponent(datum, random));
      } else {
        std::copy_n(datum.annotations, dimensions_, drawn.begin());
        for (int draw = 0; draw < options_.iter_for_marginal; ++draw) {
          for (size_t d = 0; d < dimensions_; ++d)
            if (datum.isMissing(d)) drawn[d] = random.nextGaussian();
          evaluation.add(drawn.data(), options_.iter_for_marginal, &datum);
        }
      }
    }
    evaluation.flush();
  });
}

// The mean over draws of what is missing, which each component makes of its own.
double GaussianMixtureModel::marginalByComponent(const Datum& datum, JavaUtil::Random& random) const {
  std::vector<double> x(datum.annotations, datum.annotations + dimensions_), normal(dimensions_);
  Log10Sum sum;
  for (int draw = 0; draw < options_.iter_for_marginal; ++draw) {
    for (const BayesianMultivariateGaussian& gaussian : gaussians_) {
      for (double& value : normal) value = random.nextGaussian();
      for (size_t d = 0; d < dimensions_; ++d)
        if (datum.isMissing(d)) x[d] = gaussian.drawn(normal, d);
      sum.add(gaussian.evaluate(x));
    }
  }
  return sum.value() - std::log10(double(options_.iter_for_marginal));
}

void GaussianMixtureModel::dump(FILE* stream) const {
  for (const BayesianMultivariateGaussian& gaussian : gaussians_) gaussian.dump(stream, "");
}

int32_t findCulprit(const Datum& datum, size_t annotations, const GaussianMixtureModel& good,
                    const GaussianMixtureModel& bad) {
  int32_t culprit = -1;
  double least = std::numeric_limits<double>::max();
  for (size_t i = 0; i < annotations; ++i) {
    const double ahead =
        good.evaluateDatumInOneDimension(datum, i) - bad.evaluateDatumInOneDimension(datum, i);
    if (std::isnan(ahead) || ahead >= least) continue;
    least = ahead;
    culprit = int32_t(i);
  }
  return culprit;
}
