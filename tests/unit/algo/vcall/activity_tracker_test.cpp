#include "algo/vcall/activity_tracker.h"

#include <cmath>
#include <gtest/gtest.h>
#include <optional>
#include <random>

namespace {

struct Raw {
  uint32_t position;
  double activity;
  int clip;
};
using Regions = std::vector<std::pair<uint32_t, uint32_t>>;

std::vector<double> kernel(int half, double sigma) {
  std::vector<double> weights;
  double sum = 0;
  for (int i = -half; i <= half; ++i) sum += weights.emplace_back(std::exp(-i * i / (2 * sigma * sigma)));
  for (double& weight : weights) weight /= sum;
  return weights;
}

// Clipped positions as many unclipped ones, each convolved.
std::vector<double> smooth(const std::vector<Raw>& raw, int64_t size) {
  const std::vector<double> weights = kernel(50, 17);
  std::vector<double> values(size_t(size), 0.0);
  for (const Raw& r : raw)
    for (int64_t s = -std::min(r.clip, 150); s <= std::min(r.clip, 150); ++s)
      for (int64_t k = -50; k <= 50; ++k)
        if (const int64_t p = r.position + s + k; p >= 0 && p < size)
          values[size_t(p)] += r.activity * weights[size_t(k + 50)];
  return values;
}

Regions cut(const std::vector<double>& values, size_t start, size_t end) {
  Regions regions;
  while (start < end) {
    if (values[start] <= 0.002) {
      ++start;
      continue;
    }
    size_t stop = start;
    while (stop < end && stop < start + 300 && values[stop] > 0.002) ++stop;
    if (stop == start + 300 && stop < end && values[stop] > 0.002) {
      double least = 1e300;
      for (size_t p = start + 50; p < start + 300; ++p)
        if (values[p] <= values[p - 1] && values[p] <= values[p + 1])
          if (values[p] < least || (values[p] == least && values[p - 1] > values[p])) {
            least = values[p];
            stop = p;
          }
    }
    regions.emplace_back(start, stop);
    start = stop;
  }
  return regions;
}

// Asks after every `step` positions.
Regions track(ActivityTracker& tracker, const std::vector<Raw>& raw, uint32_t start, uint32_t end,
              uint32_t step, uint32_t length) {
  Regions regions;
  ActiveRegion region;
  tracker.reset(start, end);
  size_t next = 0;
  for (uint32_t until = step;; until += step) {
    for (; next < raw.size() && raw[next].position < until; ++next)
      tracker.add(raw[next].position, raw[next].activity, raw[next].clip);
    const bool last = until >= length;
    tracker.advanceTo(std::min(until, length));
    while (tracker.nextRegion(region, last)) {
      EXPECT_LE(regions.empty() ? 0 : regions.back().second, region.start);
      regions.emplace_back(region.start, region.end);
      EXPECT_GE(tracker.settledTo(), region.end);
      EXPECT_TRUE(last || region.start + 300 + uint32_t(tracker.reach()) < until);
    }
    if (last) break;
  }
  EXPECT_EQ(tracker.settledTo(), std::min(end, length));
  return regions;
}

TEST(ActivityTracker, CutsTheNaiveConvolution) {
  std::mt19937 rng(1);
  ActivityTracker tracker;
  for (int trial = 0; trial < 40; ++trial) {
    const uint32_t length = 6000, start = trial % 2 ? 700 : 0, end = trial % 4 > 1 ? 5200 : UINT32_MAX;
    std::vector<Raw> raw;
    for (uint32_t p = 0; p < length; p += 1 + uint32_t(rng() % (trial % 3 ? 200 : 30)))
      raw.push_back({p, double(rng() % 1000) / 999, rng() % 4 ? 0 : int(rng() % 300)});
    std::vector<double> values = smooth(raw, length);
    if (end < length) std::fill(values.begin() + end, values.end(), 0.0);
    const Regions expected = cut(values, start, std::min(end, length));
    ASSERT_GT(expected.size(), 5u);
    for (const uint32_t step : {1u, 37u, 1000u, length})
      ASSERT_EQ(track(tracker, raw, start, end, step, length), expected) << trial << ' ' << step;
  }
}

}  // namespace
