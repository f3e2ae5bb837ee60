// data_block.h - some hundred data, one dimension behind the other, for loops that take four data in a step.
// Threads  plain values. Sums are formed in an order that depends on nothing but the length of a block.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "algo/vcall/recal/multivariate_gaussian.h"
#include "algo/vcall/recal/variant_datum.h"

struct DataBlock {
  static constexpr size_t kSize = 256;  // data, whose values stay in the first cache
  static constexpr size_t kSteps = kSize / 4;
  typedef double Lanes __attribute__((vector_size(4 * sizeof(double))));

  // One value of each datum.
  struct Column {
    Lanes at[kSteps];
    double& operator[](size_t datum) { return reinterpret_cast<double*>(at)[datum]; }
    double operator[](size_t datum) const { return reinterpret_cast<const double*>(at)[datum]; }
    void fill(double value) {
      for (Lanes& lanes : at) lanes = Lanes{value, value, value, value};
    }
    // Of `count` values, and zeros behind them.
    void load(const double* values, size_t count) {
      for (size_t i = 0; i < kSize; ++i) (*this)[i] = i < count ? values[i] : 0;
    }
  };

  explicit DataBlock(size_t dimensions) : columns(dimensions), centred(dimensions) {}

  // At most kSize data; zeros stand behind them.
  void load(std::span<Datum* const> data);
  void setRow(size_t datum, std::span<const double> x) {
    for (size_t d = 0; d < columns.size(); ++d) columns[d][datum] = x[d];
  }
  void centre(std::span<const double> mean);  // `centred` becomes what is left
  // `constant` - log10(e) / 2 (x - mu)' sigmaInverse (x - mu)
  void findLogs(const MultivariateGaussian& gaussian, double constant, Column& logs);

  static double sum(const Column& values);
  static double sumOfProducts(const Column& a, const Column& b);

  std::vector<Column> columns, centred;  // by dimension

 private:
  Column product_;
};
