// square_matrix.h - the small matrices of a Gaussian: a Cholesky factor, an inverse.
// Threads  plain values.
// Source   Golub and Van Loan, Matrix Computations, 3.4 and 4.2.
#pragma once

#include <cstddef>
#include <vector>

class SquareMatrix {
 public:
  explicit SquareMatrix(size_t n = 0) : n_(n), values_(n * n) {}

  size_t size() const { return n_; }
  double* operator[](size_t row) { return values_.data() + row * n_; }
  const double* operator[](size_t row) const { return values_.data() + row * n_; }

  // Replaces the lower triangle, diagonal included, of a symmetric matrix by its Cholesky factor. Returns 0, or the
  // one-based row at which the matrix turns out not to be positive definite.
  size_t factorise();
  // By elimination with partial pivoting. Of a singular matrix it is a generalised inverse, which leaves out the rows
  // that say nothing new. False, and the result not to be used, when numbers overflow.
  bool invert(SquareMatrix& inverse) const;

 private:
  size_t n_;
  std::vector<double> values_;  // row-major
};

// The logarithm's derivative of the gamma function, NaN at its poles. Source: Abramowitz and Stegun, 6.3.5, 6.3.7 and
// 6.3.18.
double digamma(double x);
