// gaussian_mixture_model.h - the density of variants in the space of their annotations: a mixture of Gaussians, fitted by
// variational Bayes expectation and maximisation.
// Units    log10 densities.
// Threads  one object per thread; the members spread parts of the data over the pool. Results are the same at any number
//          of threads: sums are added, and generators seeded, in the order of the parts.
// Errors   train() ends with converged() false when numbers overflow. A covariance without Cholesky factor is told on
//          standard error, and a constant stands in for its determinant.
// Cost     train(): 8 bytes per datum and dimension; responsibilities live for a stretch of some thousand data, in which
//          they are summed up. Time is linear in data, components and the square of dimensions.
// Source   Bishop, Pattern Recognition and Machine Learning (2006), 10.2; MacQueen's k-means to begin with.
#pragma once

#include <cstdio>
#include <span>
#include <vector>

#include "algo/vcall/recal/data_block.h"
#include "algo/vcall/recal/java_random.h"
#include "algo/vcall/recal/multivariate_gaussian.h"
#include "algo/vcall/recal/variant_datum.h"
#include "base/thread_coop.h"

struct MixtureOptions {
  double shrinkage = 1.0, dirichlet = 0.001, prior_counts = 20.0;
  int kmeans_iter = 100, max_iter = 150, min_iter = 2;
  double prob_tol = 0.002;  // of mixture weights: what changes less has settled
  int iter_for_marginal = 20;
  int iter_for_marginal_mode = 0;  // not 0: what is missing is drawn from each component
  int partsize = 131072;           // data
};

class GaussianMixtureModel {
 public:
  // `components` Gaussians of `dimensions`; generator and pool outlive the model, the pool may be null.
  GaussianMixtureModel(size_t components, size_t dimensions, const MixtureOptions& options,
                       JavaUtil::Random* random, thread_coop* pool);
  virtual ~GaussianMixtureModel() = default;

  void train(VariantData data);
  bool converged() const { return converged_; }

  // Sets lod to the density, or as the `bad` model subtracts the density from it; of what is missing as the mean over
  // draws, NaN without draws.
  void evaluateData(const VariantData& data, bool bad);
  double evaluateDatum(std::span<const double> x) const;
  double evaluateDatumInOneDimension(const Datum& datum, size_t annotation) const;  // NaN when it is missing

  void dump(FILE* stream) const;

  // The steps of train(), one by one.
  void load(const VariantData& data);
  void initRandomModel();
  void eStep();
  // The largest change of a mixture weight. The `last` one leaves covariances in place of scatter.
  double mStep(bool last = false);
  void finalWeights();

  std::vector<BayesianMultivariateGaussian>& gaussians() { return gaussians_; }

 private:
  class Evaluation;
  struct Part;

  std::vector<double> allMeans() const;
  void drawMean(BayesianMultivariateGaussian& gaussian);
  void drawScatter(BayesianMultivariateGaussian& gaussian);
  bool moveMeans();
  void maximise(size_t component, bool last);
  double marginalByComponent(const Datum& datum, JavaUtil::Random& random) const;
  size_t partsize() const { return size_t(options_.partsize > 0 ? options_.partsize : 1); }
  size_t blocksPerPart() const { return (partsize() + DataBlock::kSize - 1) / DataBlock::kSize; }
  // Places of a component in the sums of an E-step: its responsibilities; those times the distance from its mean; times
  // two dimensions of it.
  size_t sumsPerComponent() const { return 1 + dimensions_ + dimensions_ * dimensions_; }
  // The sums, over all data, of what add(part, sums) adds to `size` zeros for each part.
  template <typename Add>
  std::vector<double> sumParts(size_t size, const Add& add) const;
  // Responsibilities of a block of `count` data, and what they add to the sums: by component, one behind the other.
  void findResponsibilities(DataBlock& block, size_t count, std::span<DataBlock::Column> r) const;
  void accumulateMu(DataBlock& block, std::span<const DataBlock::Column> r, double* sums) const;
  void accumulateSigma(DataBlock& block, std::span<const DataBlock::Column> r, double* sums) const;

  MixtureOptions options_;
  size_t dimensions_;
  std::vector<BayesianMultivariateGaussian> gaussians_;
  std::vector<double> empiricalMu_;
  SquareMatrix empiricalSigma_;
  // While it trains: the data, by block of a part and dimension, with zeros behind the last.
  std::vector<DataBlock::Column> blocks_;
  size_t count_ = 0;
  std::vector<double> sums_;   // of the E-step
  std::vector<double> means_;  // of the components when it began, one behind the other
  JavaUtil::Random* random_;
  thread_coop* pool_;
  bool converged_ = true;
};

// Of the first `annotations` ones that for which `good` is least ahead of `bad`, -1 without any.
int32_t findCulprit(const Datum& datum, size_t annotations, const GaussianMixtureModel& good,
                    const GaussianMixtureModel& bad);
