// multivariate_gaussian.h - one component of the mixture.
// Units    densities are log10.
// Threads  changed by one thread; const members by any.
#pragma once

#include <cstdio>
#include <span>
#include <vector>

#include "algo/vcall/recal/square_matrix.h"

struct MultivariateGaussian {
  explicit MultivariateGaussian(size_t dimensions)
      : n(dimensions), mu(dimensions), sigma(dimensions), sigmaInverse(dimensions) {}
  virtual ~MultivariateGaussian() = default;

  // (x - mu)' sigmaInverse (x - mu)
  double distance(std::span<const double> x) const;
  // log(determinant) of sigma. One that is not positive definite is told on standard error, and has the logarithm of the
  // smallest normal double.
  double logDeterminant() const;
  // Each line begins with `indent`.
  void dump(FILE* stream, const char* indent) const;

  static constexpr double kHalfLog10E = 0.21714724095162588;

  size_t n;
  std::vector<double> mu;
  SquareMatrix sigma, sigmaInverse;
  double probSum = 0;  // data that it answers for
  double hp_a = 0, hp_b = 0, hp_lambda = 0;
  double cachedDenomLog10 = 0;
};

struct BayesianMultivariateGaussian final : MultivariateGaussian {
  explicit BayesianMultivariateGaussian(size_t dimensions) : MultivariateGaussian(dimensions) {}

  // Sets sigmaInverse and cachedDenomLog10 so that cachedDenomLog10 - kHalfLog10E * distance(x) is the expectation of the
  // weighted density under what is believed of weight, mean and covariance. `lambdaSum` is hp_lambda of all components.
  // Throws std::overflow_error.
  void precomputeDenominator(double lambdaSum);

  // Makes evaluate() ready: the inverse and the plain normal density's factor.
  void precomputePlain();
  double evaluate(std::span<const double> x) const {
    return log10MixtureWeight + cachedDenomLog10 - kHalfLog10E * distance(x);
  }
  double evaluateOneDimension(double x, size_t dimension) const;
  // Of the draw that `normal`, n standard normal numbers, stands for, one dimension.
  double drawn(std::span<const double> normal, size_t dimension) const;

  double mixtureWeight = 0, log10MixtureWeight = 0;

 private:
  struct Marginal {
    double precision, constant;  // 1 / deviation; of the log10 density
  };
  std::vector<Marginal> marginals_;  // by dimension
  SquareMatrix factor_;              // the lower triangle, of sigma
};
