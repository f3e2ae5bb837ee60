#include "algo/vcall/recal/multivariate_gaussian.h"

#include <cmath>
#include <stdexcept>

namespace {

constexpr double kLn10 = 2.302585092994046, kLn2 = 0.6931471805599453;
constexpr double kLog10TwoPi = 0.798179868358115, kSqrtTwoPi = 2.5066282746310002;
constexpr double kLogSmallest = -708.3964185322641;  // of the smallest normal double

}  // namespace

double MultivariateGaussian::distance(std::span<const double> x) const {
  double sum = 0;
  for (size_t i = 0; i < n; ++i) {
    const double* const row = sigmaInverse[i];
    double product = 0;
    for (size_t j = 0; j < n; ++j) product += row[j] * (x[j] - mu[j]);
    sum += product * (x[i] - mu[i]);
  }
  return sum;
}

double MultivariateGaussian::logDeterminant() const {
  SquareMatrix factor = sigma;
  if (const size_t info = factor.factorise(); info != 0) {
    fprintf(stderr, "Cholesky factorization failed (info = %d)\n", int(info));
    return kLogSmallest;
  }
  double sum = 0;
  for (size_t i = 0; i < n; ++i) sum += std::log(factor[i][i]);
  return 2 * sum;
}

void MultivariateGaussian::dump(FILE* stream, const char* indent) const {
  SquareMatrix factor = sigma;
  double determinant = factor.factorise() == 0 ? 1 : 0;
  for (size_t i = 0; i < n && determinant != 0; ++i) determinant *= factor[i][i] * factor[i][i];
  fprintf(stream, "%shp_a = %f, hp_b = %f, hp_lambda = %f, probSum = %f, cachedDenomLog10 = %f, det = %f\n",
          indent, hp_a, hp_b, hp_lambda, probSum, cachedDenomLog10, determinant);
  fprintf(stream, "%smu = [ ", indent);
  for (double value : mu) fprintf(stream, "%5.6f\t", value);
  fprintf(stream, "]\n%ssigma = \n", indent);
  for (size_t i = 0; i < n; ++i) {
    fputs(indent, stream);
    for (size_t j = 0; j < n; ++j) fprintf(stream, "%5.6f\t", sigma[i][j]);
    fputc('\n', stream);
  }
}

void BayesianMultivariateGaussian::precomputeDenominator(double lambdaSum) {
  if (!sigma.invert(sigmaInverse)) throw std::overflow_error("numeric overflow");
  for (size_t i = 0; i < n; ++i)
    for (size_t j = 0; j < n; ++j) sigmaInverse[i][j] *= hp_a;
  double digammas = 0;
  for (size_t i = 1; i <= n; ++i) digammas += digamma((hp_a + 1 - double(i)) / 2);
  const double weight = digamma(hp_lambda) - digamma(lambdaSum);
  if (!std::isfinite(digammas) || !std::isfinite(weight)) throw std::overflow_error("numeric overflow");
  const auto dimensions = double(n);
  cachedDenomLog10 =
      (weight + (dimensions * kLn2 + digammas - logDeterminant()) * 0.5 - dimensions / (2 * hp_b)) / kLn10;
}

void BayesianMultivariateGaussian::precomputePlain() {
  if (!sigma.invert(sigmaInverse)) throw std::overflow_error("numeric overflow");
  cachedDenomLog10 = -0.5 * double(n) * kLog10TwoPi - 0.5 * logDeterminant() / kLn10;
  factor_ = sigma;
  const bool has_factor = factor_.factorise() == 0;
  if (!has_factor) factor_ = SquareMatrix(n);
  marginals_.resize(n);
  for (size_t i = 0; i < n; ++i) {
    const double deviation = std::sqrt(sigma[i][i]);
    marginals_[i] = {1 / deviation, log10MixtureWeight - std::log10(kSqrtTwoPi * deviation)};
    if (!has_factor) factor_[i][i] = deviation;
  }
}

double BayesianMultivariateGaussian::evaluateOneDimension(double x, size_t dimension) const {
  const double z = (x - mu[dimension]) * marginals_[dimension].precision;
  return marginals_[dimension].constant - z * z * kHalfLog10E;
}

double BayesianMultivariateGaussian::drawn(std::span<const double> normal, size_t dimension) const {
  double value = mu[dimension];
  for (size_t k = 0; k <= dimension; ++k) value += factor_[dimension][k] * normal[k];
  return value;
}
