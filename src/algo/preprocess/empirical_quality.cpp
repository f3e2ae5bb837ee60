#include "algo/preprocess/empirical_quality.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

constexpr int kHighest = 60;
constexpr int kMaxDistance = 40;
constexpr double kMaxTrials = 2147483646.0;

// log10 of an error and of none per trial, at each quality.
struct Rates {
  std::array<double, kHighest + 1> error, none;

  Rates() {
    for (int q = 0; q <= kHighest; q++) {
      error[size_t(q)] = -0.1 * q;
      none[size_t(q)] = std::log10(1 - std::pow(10.0, -0.1 * q));
    }
  }
};

// log10(0.9 exp(-2 d^2)), taken so that far distances stay finite.
double priorOf(int quality, double prior) {
  const double distance = std::min(std::abs(std::trunc(quality - prior)), double(kMaxDistance));
  return std::log10(0.9) - 2 * distance * distance * std::numbers::log10e;
}

}  // namespace

// The number of ways to choose the errors is the same for every quality, and is left out.
int empiricalQuality(const RecalCounts& counts, double prior) {
  static const Rates rates;
  double errors = std::floor(counts.errorCount() + 0.5) + 1;
  double trials = double(counts.observations) + 2;
  if (trials > kMaxTrials) {
    errors = std::floor(errors * (kMaxTrials / trials) + 0.5);
    trials = kMaxTrials;
  }
  if (errors > trials) return 0;

  int best = 0;
  double best_score = -std::numeric_limits<double>::infinity();
  for (int q = 0; q <= kHighest; q++) {
    const double likelihood = errors * rates.error[size_t(q)] + (trials - errors) * rates.none[size_t(q)];
    if (!std::isfinite(likelihood)) continue;
    const double score = priorOf(q, prior) + likelihood;
    if (score > best_score) {
      best = q;
      best_score = score;
    }
  }
  return best;
}

double observedQuality(const RecalCounts& counts) {
  return -10 * std::log10((std::max(counts.errorCount(), 0.0) + 1) / (double(counts.observations) + 2));
}
