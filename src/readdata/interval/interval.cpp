#include "readdata/interval/interval.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/text.h"
#include "readdata/interval/merge_sorted.h"

namespace {

constexpr uint32_t kOpenEnd = 0xFFFFFFFF;

// The numbers behind the colon, with the meaning of scanf's "%u%c%u": what stands behind the last one is not
// looked at.
bool parseRange(const char* text, uint32_t& start, uint32_t& end) {
  uint64_t first, second;
  if (!scanUnsigned(text, kOpenEnd, first) || first == 0 || first > kOpenEnd) return false;
  uint64_t zero_based = first - 1, stop = kOpenEnd;
  if (!*text) {
    stop = first;
  } else {
    char separator = *text++;
    if (separator != '-' && separator != '+') return false;
    if (scanUnsigned(text, kOpenEnd, second))
      stop = std::min<uint64_t>(separator == '+' ? zero_based + second : second, kOpenEnd);
  }
  if (zero_based > stop) return false;
  start = static_cast<uint32_t>(zero_based);
  end = static_cast<uint32_t>(stop);
  return true;
}

}  // namespace

std::string toText(const Interval& interval) {
  char text[256];
  snprintf(text, sizeof text, "%s:%u-%u", interval.contig, interval.start + 1, interval.end);
  return text;
}

bool parse_interval(char* text, Interval& interval) {
  char* colon = strchr(text, ':');
  uint32_t start = 0, end = kOpenEnd;
  if (colon) {
    size_t length = std::min<size_t>(colon - text, sizeof kNoCoor);
    if (strncmp(text, kNoCoor, length) != 0 && !parseRange(colon + 1, start, end)) return false;
    *colon = '\0';
  }
  interval = {text, start, end};
  return true;
}

bool parse_shard_list(const char* text, IntervalMap& map) {
  for (std::string& item : split(text, ',')) {
    Interval interval;
    if (!parse_interval(item.data(), interval)) {
      fprintf(stderr, "Failed to parse interval string %s\n", item.c_str());
      return false;
    }
    if (!*interval.contig) continue;
    auto place = map.try_emplace(interval.contig).first;
    interval.contig = place->first.c_str();
    place->second.push_back(interval);
  }
  return true;
}

void normalize(IntervalMap& map) {
  for (auto& [name, intervals] : map) mergeSorted(intervals, [](Interval&, Interval&) {});
}
