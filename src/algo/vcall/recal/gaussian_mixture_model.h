// gaussian_mixture_model.h - the density of variants in the space of their annotations: a mixture of Gaussians, fitted by
// variational Bayes expectation and maximisation.
// Units    log10 densities.
// Threads  one object per thread; train() and evaluateData() spread parts of the data over the pool. Results are the same
//          at any number of threads: sums are added in the order of the parts.
// Errors   std::overflow_error "numeric overflow"; a covariance without Cholesky factor is told on standard error, and
//          constants stand in for its determinant.
// Source   Bishop, Pattern Recognition and Machine Learning (2006), 10.2.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "algo/vcall/recal/java_random.h"
#include "algo/vcall/recal/variant_datum.h"
#include "base/thread_coop.h"

struct MixtureOptions {
  double shrinkage = 1.0, dirichlet = 0.001, prior_counts = 20.0;
  int kmeans_iter = 100, max_iter = 150, min_iter = 2;
  double prob_tol = 0.002;
  int iter_for_marginal = 20, iter_for_marginal_mode = 0;
  int partsize = 131072;
};

class BayesianMultivariateGaussian;

class GaussianMixtureModel {
 public:
  using Data = std::vector<Datum*>;

  // `components` Gaussians of `dimensions`; the generator and the pool outlive the model, the pool may be null.
  GaussianMixtureModel(size_t components, size_t dimensions, const MixtureOptions& options,
                       JavaUtil::Random* random, thread_coop* pool);
  virtual ~GaussianMixtureModel();

  void train(const Data& data);
  bool converged() const { return converged_; }

  // By datum, the density of what is not missing; the missing is drawn and averaged over.
  std::vector<double> evaluateData(const Data& data) const;
  double evaluateDatum(const std::vector<double>& x) const;
  double evaluateDatumInOneDimension(const Datum& datum, size_t annotation) const;  // NaN when missing

  void dump(FILE* stream) const;

  const std::vector<std::unique_ptr<BayesianMultivariateGaussian>>& gaussians() const { return gaussians_; }

 private:
  MixtureOptions options_;
  size_t dimensions_;
  std::vector<std::unique_ptr<BayesianMultivariateGaussian>> gaussians_;
  JavaUtil::Random* random_;
  thread_coop* pool_;
  bool converged_ = true;
};

// The annotation for which `good` is least ahead of `bad`, -1 without any.
int32_t findCulprit(const Datum& datum, const GaussianMixtureModel& good, const GaussianMixtureModel& bad);
