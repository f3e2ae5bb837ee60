#include "algo/vcall/activity_tracker.h"

#include <algorithm>
#include <cmath>
#include <limits>

ActivityTracker::ActivityTracker(int halfWidth, double sigma, double floor) {
  const auto density = [sigma](size_t i) { return std::exp(-double(i * i) / (2 * sigma * sigma)); };
  half_ = 0;
  while (half_ < size_t(halfWidth) && density(half_ + 1) >= floor) ++half_;
  double sum = 0;
  for (size_t i = 0; i <= 2 * half_; ++i) {
    kernel_.push_back(density(i < half_ ? half_ - i : i - half_));
    sum += kernel_.back();
  }
  running_.push_back(0);
  for (double& weight : kernel_) {
    weight /= sum;
    running_.push_back(running_.back() + weight);
  }
}

void ActivityTracker::reset(uint32_t start, uint32_t end) {
  values_.clear();
  head_ = 0;
  first_ = start;
  end_ = end;
  advanced_ = 0;
}

void ActivityTracker::advanceTo(uint32_t end) {
  advanced_ = std::max(advanced_, end);
}

void ActivityTracker::add(uint32_t position, double activity, int softClip) {
  advanceTo(position + 1);
  if (!(activity > 0)) return;
  const int64_t half = int64_t(half_), spread = softClip > 0 ? std::min(softClip, window()) : 0;
  const int64_t from = std::max<int64_t>(int64_t(position) - half - spread, first_);
  const int64_t to = std::min<int64_t>(int64_t(position) + half + spread + 1, end_);
  if (from >= to) return;
  const size_t needed = head_ + size_t(to - first_);
  if (values_.size() < needed) values_.resize(needed, 0.0);
  double* value = values_.data() + head_ + size_t(from - first_);
  // Of a flat stretch a position gets the part of the kernel that lies over it.
  for (int64_t place = from; place < to; ++place) {
    const int64_t offset = place - position + half;  // in the kernel
    if (spread == 0) {
      *value++ += activity * kernel_[size_t(offset)];
    } else {
      const int64_t low = std::max<int64_t>(offset - spread, 0);
      const int64_t high = std::min<int64_t>(offset + spread + 1, int64_t(kernel_.size()));
      *value++ += activity * (running_[size_t(high)] - running_[size_t(low)]);
    }
  }
}

// The end of the positions that nothing can change.
uint32_t ActivityTracker::knownEnd(bool last) const {
  const uint32_t reach = last ? 0 : uint32_t(this->reach());
  return std::max(first_, std::min(end_, advanced_ > reach ? advanced_ - reach : 0));
}

void ActivityTracker::drop(uint32_t end) {
  head_ += end - first_;
  first_ = end;
  if (head_ >= values_.size()) {
    values_.clear();
    head_ = 0;
  } else if (head_ > 4096 && head_ > values_.size() / 2) {
    values_.erase(values_.begin(), values_.begin() + ptrdiff_t(head_));
    head_ = 0;
  }
}

// The least of the positions that are not above their neighbours. Of equal ones the last that the activity falls to;
// without any, the longest region.
uint32_t ActivityTracker::bestCut(uint32_t start, uint32_t minSize, uint32_t maxSize) const {
  uint32_t best = start + maxSize;
  double least = std::numeric_limits<double>::infinity();
  for (uint32_t p = start + std::max(minSize, 1u); p < start + maxSize; ++p) {
    const double before = value(p - 1), here = value(p);
    if (here > before || here > value(p + 1)) continue;
    if (here < least || (here == least && before > here)) {
      best = p;
      least = here;
    }
  }
  return best;
}

bool ActivityTracker::nextRegion(ActiveRegion& region, bool last, uint32_t minSize, uint32_t maxSize) {
  const uint32_t known = knownEnd(last);
  uint32_t start = first_;
  const uint32_t filled = uint32_t(std::min<size_t>(known - first_, values_.size() - head_)) + first_;
  while (start < filled && !(value(start) > kThreshold)) ++start;
  if (start == filled) start = known;
  drop(start);
  if (start == known || (!last && known - start <= maxSize)) return false;

  uint32_t end = start;
  while (end < known && end - start < maxSize && value(end) > kThreshold) ++end;
  if (end - start == maxSize && end < known && value(end) > kThreshold)
    end = bestCut(start, minSize, maxSize);
  region = {start, end};
  drop(end);
  return true;
}
