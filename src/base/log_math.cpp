#include "base/log_math.h"

#include <cmath>
#include <limits>

namespace {
constexpr size_t kEntriesAtStart = 201;

std::vector<double> firstEntry(double value) {
  return {value};
}

std::array<double, 80001> sumTable() {
  std::array<double, 80001> table;
  for (size_t i = 0; i < table.size(); ++i) table[i] = std::log10(1 + std::pow(10.0, double(i) * -0.0001));
  return table;
}
}  // namespace

std::vector<double> log10Table = firstEntry(-std::numeric_limits<double>::infinity());
std::vector<double> log10FactorialTable = firstEntry(0);
const std::array<double, 80001> log10SumTable = sumTable();

namespace {
[[maybe_unused]] const bool at_start = (growLogTables(kEntriesAtStart), true);
}

void growLogTables(size_t entries) {
  for (size_t i = log10Table.size(); i < entries; ++i) {
    log10Table.push_back(std::log10(double(i)));
    log10FactorialTable.push_back(log10FactorialTable.back() + log10Table.back());
  }
}

double log10SumExact(const double* first, const double* last) {
  double max = -std::numeric_limits<double>::infinity();
  for (const double* x = first; x != last; ++x) max = std::max(max, *x);
  if (max < -DBL_MAX || last - first == 1) return max;
  double sum = 0;
  for (const double* x = first; x != last; ++x) sum += std::pow(10.0, *x - max);
  return max + std::log10(sum);
}

void normalizeLog10(double* first, double* last) {
  double sum = log10SumExact(first, last);
  if (sum < -DBL_MAX) return;
  for (double* x = first; x != last; ++x) *x -= sum;
}
