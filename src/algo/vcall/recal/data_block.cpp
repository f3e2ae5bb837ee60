#include "algo/vcall/recal/data_block.h"

#include <cmath>
#include <limits>

namespace {

double totalOf(const DataBlock::Lanes& even, const DataBlock::Lanes& odd) {
  const DataBlock::Lanes both = even + odd;
  return (both[0] + both[1]) + (both[2] + both[3]);
}

}  // namespace

void DataBlock::centre(std::span<const double> mean) {
  for (size_t d = 0; d < columns.size(); ++d)
    for (size_t k = 0; k < kSteps; ++k) centred[d].at[k] = columns[d].at[k] - mean[d];
}

// The inverse is symmetric: what lies off the diagonal counts twice.
void DataBlock::findLogs(const MultivariateGaussian& gaussian, double constant, Column& logs) {
  centre(gaussian.mu);
  const size_t n = columns.size();
  terms_.clear();
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j < i; ++j)
      terms_.push_back(Lanes{} + (gaussian.sigmaInverse[i][j] + gaussian.sigmaInverse[j][i]));
    terms_.push_back(Lanes{} + gaussian.sigmaInverse[i][i]);
  }
  for (size_t k = 0; k < kSteps; ++k) {
    Lanes distance{};
    const Lanes* term = terms_.data();
    for (size_t i = 0; i < n; ++i) {
      Lanes product{};
      for (size_t j = 0; j <= i; ++j) product += *term++ * centred[j].at[k];
      distance += product * centred[i].at[k];
    }
    logs.at[k] = constant - MultivariateGaussian::kHalfLog10E * distance;
  }
}

void DataBlock::findNearest(std::span<const double> means, Column& nearest) const {
  const size_t n = columns.size();
  for (size_t k = 0; k < kSteps; ++k) {
    Lanes least = Lanes{} + std::numeric_limits<double>::max(), best{};
    const double* mean = means.data();
    for (double c = 0; mean < means.data() + means.size(); ++c) {
      Lanes distance{};
      for (size_t d = 0; d < n; ++d) {
        const Lanes away = columns[d].at[k] - *mean++;
        distance += away * away;
      }
      const auto nearer = distance < least;
      least = nearer ? distance : least;
      best = nearer ? Lanes{} + c : best;
    }
    nearest.at[k] = best;
  }
}

void DataBlock::scaleByMost(std::span<Column> values, Column& most, Column& sum) {
  most.fill(-std::numeric_limits<double>::infinity());
  sum.fill(0);
  for (const Column& column : values)
    for (size_t k = 0; k < kSteps; ++k) most.at[k] = column.at[k] > most.at[k] ? column.at[k] : most.at[k];
  for (Column& column : values) {
    for (size_t i = 0; i < kSize; ++i) column[i] = std::exp2((column[i] - most[i]) * kLog2Of10);
    for (size_t k = 0; k < kSteps; ++k) sum.at[k] += column.at[k];
  }
}

double DataBlock::sum(const Column& values) {
  Lanes even{}, odd{};
  for (size_t k = 0; k < kSteps; k += 2) {
    even += values.at[k];
    odd += values.at[k + 1];
  }
  return totalOf(even, odd);
}

double DataBlock::sumOfProducts(const Column& a, const Column& b) {
  Lanes even{}, odd{};
  for (size_t k = 0; k < kSteps; k += 2) {
    even += a.at[k] * b.at[k];
    odd += a.at[k + 1] * b.at[k + 1];
  }
  return totalOf(even, odd);
}
