// data_block.h - some hundred data, one dimension behind the other, for loops that take four data in a step.
// Threads  plain values. Sums are formed in an order that depends on nothing but the length of a block.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "algo/vcall/recal/multivariate_gaussian.h"

struct DataBlock {
  static constexpr size_t kSize = 256;  // data, whose values stay in the first cache
  static constexpr size_t kSteps = kSize / 4;
  static constexpr double kLog2Of10 = 3.321928094887362;
  typedef double Lanes __attribute__((vector_size(4 * sizeof(double))));

  // One value of each datum.
  struct Column {
    Lanes at[kSteps];
    double& operator[](size_t datum) { return reinterpret_cast<double*>(at)[datum]; }
    double operator[](size_t datum) const { return reinterpret_cast<const double*>(at)[datum]; }
    void fill(double value) {
      for (Lanes& lanes : at) lanes = Lanes{value, value, value, value};
    }
  };

  explicit DataBlock(size_t dimensions) : centred(dimensions) {}

  void centre(std::span<const double> mean);  // `centred` becomes what is left
  // `constant` - log10(e) / 2 (x - mu)' sigmaInverse (x - mu)
  void findLogs(const MultivariateGaussian& gaussian, double constant, Column& logs);
  // The number of the mean, of `means` one behind the other, that is nearest to each datum; the first of equal ones.
  void findNearest(std::span<const double> means, Column& nearest) const;

  // Of one column of logs (base 10) per component: most[i], and 10^(value - most[i]) for each value, which add up to
  // sum[i].
  static void scaleByMost(std::span<Column> values, Column& most, Column& sum);
  static double sum(const Column& values);
  static double sumOfProducts(const Column& a, const Column& b);

  std::span<const Column> columns;  // by dimension; not owned
  std::vector<Column> centred;

 private:
  std::vector<Lanes> terms_;  // scratch
};
