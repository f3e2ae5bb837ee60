#include "algo/preprocess/histogram.h"

#include <algorithm>
#include <cassert>
#include <cmath>

void LocusStat::Histogram::add(double value) {
  maximum = std::max(maximum, value);
  const auto bin = static_cast<size_t>(std::max(0.0, std::ceil((std::min(cap, value) - min) / binsize)));
  if (bin >= bins.size()) bins.resize(bin + 1);
  ++bins[bin];
}

LocusStat::Histogram& LocusStat::Histogram::operator+=(const Histogram& a) {
  assert(a.min == min && a.binsize == binsize);
  if (a.bins.size() > bins.size()) bins.resize(a.bins.size());
  for (size_t i = 0; i < a.bins.size(); ++i) bins[i] += a.bins[i];
  maximum = std::max(maximum, a.maximum);
  return *this;
}
