#include "algo/vcall/pairhmm/phred_tables.h"

#include <algorithm>
#include <cmath>

#include "base/log_math.h"

namespace {

double stayMatchedOf(int min, int max) {
  return std::max(1 - std::pow(10, log10SumFast(min / -10.0, max / -10.0)), 0.0);
}

}  // namespace

template <typename T>
PhredTables<T>::PhredTables() {
  for (int q = 0; q < 256; ++q) pow10Neg[q] = static_cast<T>(std::pow(10, q / -10.0));
  for (int max = 0; max <= kMaxTabled; ++max)
    for (int min = 0; min <= max; ++min)
      matchToMatch[min + max * (max + 1) / 2] = static_cast<T>(stayMatchedOf(min, max));
}

template <typename T>
T PhredTables<T>::stayMatched(uint8_t insQual, uint8_t delQual) const {
  const int min = std::min(insQual, delQual), max = std::max(insQual, delQual);
  return max > kMaxTabled ? static_cast<T>(stayMatchedOf(min, max)) : matchToMatch[min + max * (max + 1) / 2];
}

template <typename T>
const PhredTables<T>& phredTables() {
  static const PhredTables<T> tables;
  return tables;
}

template struct PhredTables<float>;
template struct PhredTables<double>;
template const PhredTables<float>& phredTables();
template const PhredTables<double>& phredTables();
