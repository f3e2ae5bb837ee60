// log_math.h - sums, products and binomials of numbers that are kept as log10.
// Threads  pure functions over tables; growLogTables() is for the time before threads start.
#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <vector>

inline constexpr double kLog10Of2 = 0.3010299956639812;  // log10(2)

// Makes log10Of() and log10Factorial() answer for numbers below `entries`; at start for numbers up to 200. Never
// shrinks.
void growLogTables(size_t entries);

extern std::vector<double> log10Table;           // log10(i), -infinity at 0
extern std::vector<double> log10FactorialTable;  // log10(i!)

// Numbers that the tables were not grown for end in an assertion.
inline double log10Of(int n) {
  assert(static_cast<size_t>(n) < log10Table.size());
  return log10Table[static_cast<size_t>(n)];
}
inline double log10Factorial(int n) {
  assert(static_cast<size_t>(n) < log10FactorialTable.size());
  return log10FactorialTable[static_cast<size_t>(n)];
}
// log10 of "n choose k", 0 <= k <= n.
inline double log10Choose(int n, int k) {
  return log10Factorial(n) - log10Factorial(k) - log10Factorial(n - k);
}

// log10(1 + 10^(-i * 0.0001)).
extern const std::array<double, 80001> log10SumTable;

// log10(10^a + 10^b) by a table in steps of 1e-4, within 3e-5; -infinity is taken for 0.
inline double log10SumFast(double a, double b) {
  double hi = std::max(a, b), lo = std::min(a, b);
  double ahead = hi - lo;
  // Written so that NaN goes this way, too.
  if (!(ahead < 8.0) || lo < -DBL_MAX) return hi;
  // Never negative, and lround() would be a call.
  return hi +
         log10SumTable[static_cast<size_t>(10000 * ahead + 0.5)];  // NOLINT(bugprone-incorrect-roundings)
}
// log10 of the sum of 10^x over [first, last), -infinity when the range is empty or all of it is.
double log10SumExact(const double* first, const double* last);
// Subtracts log10SumExact() of the range from each element, so that they sum to 1.
void normalizeLog10(double* first, double* last);
