// merge_sorted.h - the one way in which lists of regions of a contig are sorted and merged.
#pragma once

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <utility>
#include <vector>

// Sorts by (start, end), drops entries with start >= end, and makes one of those that overlap or touch: the
// first takes the larger end, and `join(first, merged)` may move over what else is to be kept. Equal entries
// keep their order.
template <class Entry, class Join>
void mergeSorted(std::vector<Entry>& entries, Join join) {
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.start, a.end) < std::tie(b.start, b.end);
  });
  size_t kept = 0;
  for (size_t i = 0; i < entries.size(); ++i) {
    Entry& entry = entries[i];
    if (entry.start >= entry.end) continue;
    if (kept == 0 || entry.start > entries[kept - 1].end) {
      if (kept != i) entries[kept] = std::move(entry);
      ++kept;
    } else {
      Entry& last = entries[kept - 1];
      last.end = std::max(last.end, entry.end);
      join(last, entry);
    }
  }
  entries.resize(kept);
}
