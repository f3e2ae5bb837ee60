#include "algo/preprocess/optical_duplicates.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <tuple>

namespace {

// Behind the third colon from the end, null when there are fewer than four.
const char* tileField(const char* name) {
  const char* field = nullptr;
  int colons = 0;
  for (const char* p = name + strlen(name); p > name;) {
    if (*--p != ':') continue;
    if (++colons == 3) field = p + 1;
    if (colons == 4) return field;
  }
  return nullptr;
}

bool scanNumber(const char*& cursor, int32_t& value) {
  char* end = nullptr;
  value = static_cast<int32_t>(strtol(cursor, &end, 10));
  if (end == cursor) return false;
  cursor = end;
  return true;
}

bool scanColon(const char*& cursor) {
  if (*cursor != ':') return false;
  ++cursor;
  return true;
}

}  // namespace

void OpticalDuplicates::add(int32_t read_group, const char* name) {
  const char* cursor = tileField(name);
  int32_t tile, x, y;
  if (cursor == nullptr || !scanNumber(cursor, tile) || !scanColon(cursor) || !scanNumber(cursor, x) ||
      !scanColon(cursor) || !scanNumber(cursor, y))
    return;
  const auto short_tile = static_cast<int16_t>(tile);
  if (short_tile >= 0) points_.push_back({read_group, short_tile, x, y});
}

int64_t OpticalDuplicates::count() {
  if (points_.size() < 2) return 0;
  std::sort(points_.begin(), points_.end(), [](const Point& a, const Point& b) {
    return std::tie(a.read_group, a.tile, a.x, a.y) < std::tie(b.read_group, b.tile, b.x, b.y);
  });
  // Points that fall together are joined whatever the distance, and would cost their number squared.
  const auto same = [](const Point& a, const Point& b) {
    return std::tie(a.read_group, a.tile, a.x, a.y) == std::tie(b.read_group, b.tile, b.x, b.y);
  };
  const auto end_of_different = std::unique(points_.begin(), points_.end(), same);
  auto total = static_cast<int64_t>(points_.end() - end_of_different);
  points_.erase(end_of_different, points_.end());
  for (size_t begin = 0, end; begin < points_.size(); begin = end) {
    const Point& first = points_[begin];
    for (end = begin + 1; end < points_.size(); ++end)
      if (points_[end].read_group != first.read_group || points_[end].tile != first.tile) break;
    total += countTile(begin, end);
  }
  return total;
}

// Each join of two clusters leaves one cluster less, so the joins are what is counted.
int64_t OpticalDuplicates::countTile(size_t begin, size_t end) {
  const Point* const points = points_.data() + begin;
  const auto size = static_cast<uint32_t>(end - begin);
  parents_.resize(size);
  std::iota(parents_.begin(), parents_.end(), 0);
  int64_t joins = 0;
  for (uint32_t i = 0; i < size; ++i)
    for (uint32_t j = i + 1; j < size && points[j].x <= points[i].x + distance_; ++j) {
      if (std::abs(int64_t{points[j].y} - points[i].y) > distance_) continue;
      const uint32_t a = rootOf(i), b = rootOf(j);
      if (a == b) continue;
      parents_[std::max(a, b)] = std::min(a, b);
      ++joins;
    }
  return joins;
}

uint32_t OpticalDuplicates::rootOf(uint32_t point) {
  while (parents_[point] != point) point = parents_[point] = parents_[parents_[point]];
  return point;
}
