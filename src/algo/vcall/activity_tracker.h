// activity_tracker.h - where the reads differ from the reference: activity per position, smoothed, and cut into regions.
// Coords   zero-based half open.
// Threads  one object per thread.
#pragma once

#include <cstdint>
#include <vector>

struct ActiveRegion {
  uint32_t start = 0, end = 0;
};

class ActivityTracker {
 public:
  // A Gaussian kernel over -halfWidth..halfWidth, cut where it falls below `floor`, of sum 1.
  ActivityTracker(int halfWidth = 50, double sigma = 17.0, double floor = 1e-5);

  // Begins anew: positions before `start` are of no interest to regions, but may be added to be smoothed over.
  void reset(uint32_t start);
  // The raw activity of a position, a probability; positions come in ascending order. With `softClip` above 0 it counts
  // for all positions up to so many bases away, at most window().
  void add(uint32_t position, double activity, int softClip);
  // No position before `end` will be added any more.
  void advanceTo(uint32_t end);
  // Cuts the next region off, of minSize to maxSize bases; with `last` nothing follows what was added. False when none
  // can be cut yet.
  bool nextRegion(ActiveRegion& region, bool last, uint32_t minSize = 50, uint32_t maxSize = 300);

  int window() const;  // how far an activity may reach, bases
  // Before it no region will begin any more: positions that are neither in a region cut off nor at or behind this are
  // inactive for good.
  uint32_t settledTo() const;

 private:
  std::vector<double> kernel_;
};
