#include "algo/vcall/recal/java_random.h"

#include <cmath>

namespace JavaUtil {

namespace {

constexpr uint64_t kMultiplier = 25214903917, kIncrement = 11, kMask = (uint64_t{1} << 48) - 1;

}  // namespace

void Random::setSeed(int64_t seed) {
  seed_ = (uint64_t(seed) ^ kMultiplier) & kMask;
  haveNextNextGaussian_ = false;
}

int32_t Random::next(int bits) {
  seed_ = (seed_ * kMultiplier + kIncrement) & kMask;
  return int32_t(uint32_t(seed_ >> (48 - bits)));
}

int64_t Random::nextLong() {
  const auto high = uint64_t(int64_t{next(32)}) << 32;
  return int64_t(high + uint64_t(int64_t{next(32)}));
}

double Random::nextDouble() {
  const int64_t high = int64_t{next(26)} << 27;
  return double(high + next(27)) * 1.1102230246251565e-16;
}

double Random::nextGaussian() {
  if (haveNextNextGaussian_) {
    haveNextNextGaussian_ = false;
    return nextNextGaussian_;
  }
  double a, b, s;
  do {
    a = 2 * nextDouble() - 1;
    b = 2 * nextDouble() - 1;
    s = a * a + b * b;
  } while (s >= 1 || s == 0);
  const double multiplier = std::sqrt(-2 * std::log(s) / s);
  nextNextGaussian_ = b * multiplier;
  haveNextNextGaussian_ = true;
  return a * multiplier;
}

}  // namespace JavaUtil
