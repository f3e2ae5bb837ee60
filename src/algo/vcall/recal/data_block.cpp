#include "algo/vcall/recal/data_block.h"

namespace {

double totalOf(const DataBlock::Lanes& even, const DataBlock::Lanes& odd) {
  const DataBlock::Lanes both = even + odd;
  return (both[0] + both[1]) + (both[2] + both[3]);
}

}  // namespace

void DataBlock::load(std::span<Datum* const> data) {
  for (size_t i = 0; i < data.size(); ++i) setRow(i, data[i]->annotations);
  for (Column& column : columns)
    for (size_t i = data.size(); i < kSize; ++i) column[i] = 0;
}

void DataBlock::centre(std::span<const double> mean) {
  for (size_t d = 0; d < columns.size(); ++d)
    for (size_t k = 0; k < kSteps; ++k) centred[d].at[k] = columns[d].at[k] - mean[d];
}

// The inverse is symmetric: what lies off the diagonal counts twice.
void DataBlock::findLogs(const MultivariateGaussian& gaussian, double constant, Column& logs) {
  centre(gaussian.mu);
  logs.fill(0);
  for (size_t i = 0; i < columns.size(); ++i) {
    const double diagonal = gaussian.sigmaInverse[i][i];
    for (size_t k = 0; k < kSteps; ++k) product_.at[k] = diagonal * centred[i].at[k];
    for (size_t j = 0; j < i; ++j) {
      const double twice = gaussian.sigmaInverse[i][j] + gaussian.sigmaInverse[j][i];
      for (size_t k = 0; k < kSteps; ++k) product_.at[k] += twice * centred[j].at[k];
    }
    for (size_t k = 0; k < kSteps; ++k) logs.at[k] += product_.at[k] * centred[i].at[k];
  }
  for (Lanes& lanes : logs.at) lanes = constant - MultivariateGaussian::kHalfLog10E * lanes;
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
