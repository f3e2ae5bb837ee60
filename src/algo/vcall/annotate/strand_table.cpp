#include "algo/vcall/annotate/strand_table.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr int64_t kMaxTotal = 400, kScaledTotal = 200;
constexpr double kTolerance = 1e-10;  // relative: tables as likely as the one observed, but for rounding

using FactorialTable = std::array<double, kMaxTotal + 1>;

FactorialTable makeLog10Factorials() {
  FactorialTable values{};
  for (size_t i = 1; i < values.size(); ++i) values[i] = values[i - 1] + std::log10(static_cast<double>(i));
  return values;
}

const FactorialTable kLog10Factorials = makeLog10Factorials();

double log10Factorial(int64_t n) {
  return kLog10Factorials[static_cast<size_t>(n)];
}

}  // namespace

double fisherP(StrandTable table) {
  if (const int64_t total = table.total(); total > kMaxTotal) {
    const double scale = static_cast<double>(kScaledTotal) / static_cast<double>(total);
    for (int64_t* cell : {&table.refForward, &table.refReverse, &table.altForward, &table.altReverse})
      *cell = static_cast<int64_t>(static_cast<double>(*cell) * scale);
  }
  const int64_t ref = table.refForward + table.refReverse, alt = table.altForward + table.altReverse,
                forward = table.refForward + table.altForward, reverse = table.refReverse + table.altReverse;
  const double margins = log10Factorial(ref) + log10Factorial(alt) + log10Factorial(forward) +
                         log10Factorial(reverse) - log10Factorial(ref + alt);
  const auto probability = [&](int64_t ref_forward) {  // of the table with these margins
    return std::pow(10, margins - log10Factorial(ref_forward) - log10Factorial(ref - ref_forward) -
                            log10Factorial(forward - ref_forward) -
                            log10Factorial(alt - forward + ref_forward));
  };
  const double observed = probability(table.refForward), limit = observed * (1 + kTolerance);
  double sum = observed;
  const auto add = [&](int64_t ref_forward) {
    if (const double p = probability(ref_forward); p <= limit) sum += p;
  };
  for (int64_t i = table.refForward - 1; i >= std::max<int64_t>(0, forward - alt); --i) add(i);
  for (int64_t i = table.refForward + 1; i <= std::min(ref, forward); ++i) add(i);
  return std::min(sum, 1.0);
}

double strandOddsRatio(const StrandTable& table) {
  const double a = static_cast<double>(table.refForward + 1), b = static_cast<double>(table.refReverse + 1),
               c = static_cast<double>(table.altForward + 1), d = static_cast<double>(table.altReverse + 1);
  const double r = (a * d) / (b * c);
  const double ref_ratio = std::min(a, b) / std::max(a, b), alt_ratio = std::min(c, d) / std::max(c, d);
  return std::log((r + 1 / r) * ref_ratio / alt_ratio);
}
