// activity_tracker.h - where the reads differ from the reference: activity per position, smoothed, and cut into regions.
//
// The smoothed activity of a position is the sum of the kernel-weighted raw ones around it; above kThreshold it is active.
// Regions do not depend on how often they are asked for: a position is looked at when nothing can change it any more.
//
// Coords   zero-based half open.
// Owns     the activity of the positions that are not settled.
// Threads  one object per thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct ActiveRegion {
  uint32_t start = 0, end = 0;
};

class ActivityTracker {
 public:
  static constexpr double kThreshold = 0.002;
  static constexpr uint32_t kMinRegion = 50, kMaxRegion = 300;

  // A Gaussian kernel over -halfWidth..halfWidth, cut where it falls below `floor`, of sum 1.
  ActivityTracker(int halfWidth = 50, double sigma = 17.0, double floor = 1e-5);

  // Begins anew: regions lie in [start, end). Positions outside may be added to be smoothed over.
  void reset(uint32_t start, uint32_t end = UINT32_MAX);
  // The raw activity of a position, a probability; positions come in ascending order. With `softClip` above 0 it counts
  // for all positions up to so many bases away, at most window().
  void add(uint32_t position, double activity, int softClip);
  // No position before `end` will be added any more.
  void advanceTo(uint32_t end);
  // Cuts the next region off, of at most maxSize bases: a longer one at the least activity behind minSize bases. With
  // `last` nothing follows what was added, and regions end where the tracker was advanced to. False when none can be cut
  // yet.
  bool nextRegion(ActiveRegion& region, bool last, uint32_t minSize = kMinRegion,
                  uint32_t maxSize = kMaxRegion);

  // How far an activity may be spread; how far it then matters.
  int window() const { return 49 + static_cast<int>(2 * half_ + 1); }
  int reach() const { return window() + static_cast<int>(half_); }
  // Before it no region will begin any more: positions that are neither in a region cut off nor at or behind this are
  // inactive for good.
  uint32_t settledTo() const { return first_; }

 private:
  double value(uint32_t position) const {
    const size_t index = head_ + (position - first_);
    return index < values_.size() ? values_[index] : 0;
  }
  uint32_t knownEnd(bool last) const;
  uint32_t bestCut(uint32_t start, uint32_t minSize, uint32_t maxSize) const;
  void drop(uint32_t end);

  size_t half_;                  // the kernel is over -half_..half_
  std::vector<double> kernel_;   // its values
  std::vector<double> running_;  // its sums: of the first 0, 1, ... values
  std::vector<double> values_;   // smoothed activity; that of first_ is at head_, behind the last it is 0
  size_t head_ = 0;
  uint32_t first_ = 0, end_ = UINT32_MAX, advanced_ = 0;
};
