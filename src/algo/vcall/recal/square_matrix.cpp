#include "algo/vcall/recal/square_matrix.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

size_t SquareMatrix::factorise() {
  SquareMatrix& a = *this;
  for (size_t i = 0; i < n_; ++i) {
    for (size_t j = 0; j <= i; ++j) {
      double sum = a[i][j];
      for (size_t k = 0; k < j; ++k) sum -= a[i][k] * a[j][k];
      if (i != j)
        a[i][j] = sum / a[j][j];
      else if (sum > 0 && std::isfinite(sum))
        a[i][i] = std::sqrt(sum);
      else
        return i + 1;
    }
  }
  return 0;
}

bool SquareMatrix::invert(SquareMatrix& inverse) const {
  SquareMatrix a = *this;
  inverse = SquareMatrix(n_);
  for (size_t i = 0; i < n_; ++i) inverse[i][i] = 1;
  for (size_t column = 0; column < n_; ++column) {
    size_t pivot = column;
    for (size_t row = column + 1; row < n_; ++row)
      if (std::abs(a[row][column]) > std::abs(a[pivot][column])) pivot = row;
    const double value = a[pivot][column];
    if (!std::isfinite(value)) return false;
    if (value == 0) {
      std::fill_n(inverse[column], n_, 0.0);
      continue;
    }
    std::swap_ranges(a[pivot], a[pivot] + n_, a[column]);
    std::swap_ranges(inverse[pivot], inverse[pivot] + n_, inverse[column]);
    for (size_t k = 0; k < n_; ++k) {
      a[column][k] /= value;
      inverse[column][k] /= value;
    }
    for (size_t row = 0; row < n_; ++row) {
      const double factor = a[row][column];
      if (row == column || factor == 0) continue;
      for (size_t k = 0; k < n_; ++k) {
        a[row][k] -= factor * a[column][k];
        inverse[row][k] -= factor * inverse[column][k];
      }
    }
  }
  return true;
}

double digamma(double x) {
  if (!std::isfinite(x) || (x <= 0 && x == std::floor(x))) return std::numeric_limits<double>::quiet_NaN();
  if (x < 0) return digamma(1 - x) - std::numbers::pi / std::tan(std::numbers::pi * x);
  double result = 0;
  for (; x < 10; ++x) result -= 1 / x;
  const double y = 1 / (x * x);
  constexpr double kTerms[] = {1.0 / 12,  -1.0 / 120,     1.0 / 252, -1.0 / 240,
                               1.0 / 132, -691.0 / 32760, 1.0 / 12};
  double series = 0;
  for (size_t i = std::size(kTerms); i-- > 0;) series = (series + kTerms[i]) * y;
  return result + std::log(x) - 0.5 / x - series;
}
