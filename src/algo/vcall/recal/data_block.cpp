#include "algo/vcall/recal/data_block.h"

#include <cstdint>
#include <iterator>
#include <limits>

namespace {

double totalOf(const DataBlock::Lanes& even, const DataBlock::Lanes& odd) {
  const DataBlock::Lanes both = even + odd;
  return (both[0] + both[1]) + (both[2] + both[3]);
}

// 2^x, for x at most 0, to the last bits of a double: what is left of x beside a whole number by the series of e^(x ln 2).
// Below 2^-1000 it stays there.
inline void raiseTwo(DataBlock::Lanes& x) {
  using Lanes = DataBlock::Lanes;
  typedef int64_t Bits __attribute__((vector_size(4 * sizeof(int64_t))));
  constexpr double kRound = 0x1.8p52, kLeast = -1000;  // beyond 2^52, doubles are whole numbers
  constexpr int64_t kBias = 1023;
  // ln(2)^n / n!
  constexpr double kTerms[] = {1.0,
                               0.6931471805599453,
                               0.2402265069591007,
                               0.05550410866482158,
                               0.009618129107628477,
                               0.0013333558146428443,
                               0.0001540353039338161,
                               1.5252733804059841e-05,
                               1.3215486790144309e-06,
                               1.01780860092396997e-07,
                               7.0549116208011233e-09,
                               4.4455382718708115e-10,
                               2.5678435993488205e-11,
                               1.3691488853904129e-12};
  const Lanes bounded = x < kLeast ? Lanes{} + kLeast : x;
  const Lanes shifted = bounded + kRound;
  const Lanes rest = bounded - (shifted - kRound);
  Lanes power{};
  for (size_t i = std::size(kTerms); i-- > 0;) power = power * rest + kTerms[i];
  // These casts keep the bits.
  const Bits exponent = ((Bits)shifted + kBias) << 52;
  x = power * (Lanes)exponent;
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

void DataBlock::scaleByMost(std::vector<Column>& values, Column& most, Column& sum) {
  constexpr double kLog2Of10 = 3.321928094887362;
  most.fill(-std::numeric_limits<double>::infinity());
  sum.fill(0);
  for (const Column& column : values)
    for (size_t k = 0; k < kSteps; ++k) most.at[k] = column.at[k] > most.at[k] ? column.at[k] : most.at[k];
  for (Column& column : values) {
    for (size_t k = 0; k < kSteps; ++k) {
      Lanes power = (column.at[k] - most.at[k]) * kLog2Of10;
      raiseTwo(power);
      column.at[k] = power;
      sum.at[k] += power;
    }
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
