// optical_duplicates.h - copies that the sequencer made of one cluster: duplicates that lie side by side on a tile.
// Units    coordinates are those of read names, in the sequencer's own unit.
// Threads  one object per thread; its memory is used again from group to group.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class OpticalDuplicates {
 public:
  explicit OpticalDuplicates(int distance) : distance_(distance) {}

  void clear() { points_.clear(); }
  // Takes a member of the group by its name, which ends in ":tile:x:y" behind two fields or more. A name of another
  // form, or with a tile below 0, takes no part.
  void add(int32_t read_group, const char* name);
  // Members but one of each cluster. Two of one read group and tile are in one cluster when steps of at most the
  // distance, in both axes, lead from one to the other.
  int64_t count();

 private:
  struct Point {
    int32_t read_group;
    int16_t tile;
    int32_t x, y;
  };
  int64_t countTile(size_t begin, size_t end);
  uint32_t rootOf(uint32_t point);

  const int64_t distance_;
  std::vector<Point> points_;
  std::vector<uint32_t> parents_;  // of each point of a tile; a root is its own
};
