#include "driver/target_list.h"

#include <algorithm>
#include <cstring>
#include <iterator>

std::vector<TargetEntry> wholeContigs(const std::vector<Contig>& contigs) {
  std::vector<TargetEntry> entries;
  for (const Contig& contig : contigs) entries.push_back({contig, 0});
  return entries;
}

std::vector<Interval> regionsOutside(const std::vector<Contig>& contigs, const IntervalMap& regions) {
  std::vector<Interval> outside;
  for (const Contig& contig : contigs) {
    auto found = regions.find(contig.contig);
    if (found == regions.end()) continue;
    std::copy_if(found->second.begin(), found->second.end(), std::back_inserter(outside),
                 [&contig](const Interval& region) { return region.start >= contig.end; });
  }
  return outside;
}

std::vector<TargetEntry> clipToContigs(const std::vector<Contig>& contigs, IntervalMap& regions) {
  std::vector<TargetEntry> entries;
  for (const Contig& contig : contigs) {
    auto found = regions.find(contig.contig);
    if (found == regions.end()) continue;
    uint32_t previous_end = 0;
    for (const Interval& region : found->second) {
      const uint32_t start = std::max(region.start, contig.start), end = std::min(region.end, contig.end);
      if (start >= end) continue;
      entries.push_back({{contig.contig, start, end}, previous_end});
      previous_end = end;
    }
    regions.erase(found);
  }
  return entries;
}

namespace {

Target targetOf(const std::vector<TargetEntry>& entries, size_t number, uint32_t start, uint32_t end) {
  const TargetEntry& entry = entries[number];
  return {entry.contig, start, end, int32_t(number), &entry};
}

}  // namespace

std::vector<Target> wholeTargets(const std::vector<TargetEntry>& entries) {
  std::vector<Target> targets;
  for (size_t i = 0; i < entries.size(); ++i)
    targets.push_back(targetOf(entries, i, entries[i].start, entries[i].end));
  return targets;
}

std::vector<Target> intersectTargets(const std::vector<TargetEntry>& entries, const IntervalMap& shards) {
  std::vector<Target> targets;
  for (size_t i = 0; i < entries.size(); ++i) {
    const TargetEntry& entry = entries[i];
    auto found = shards.find(entry.contig);
    if (found == shards.end()) continue;
    if (strcmp(entry.contig, kNoCoor) == 0) {  // has no positions that could be tested
      targets.push_back(targetOf(entries, i, entry.start, entry.end));
      continue;
    }
    const std::vector<Interval>& regions = found->second;
    auto region = std::upper_bound(regions.begin(), regions.end(), entry.start,
                                   [](uint32_t start, const Interval& region) { return start < region.end; });
    for (; region != regions.end() && region->start < entry.end; ++region)
      targets.push_back(
          targetOf(entries, i, std::max(region->start, entry.start), std::min(region->end, entry.end)));
  }
  return targets;
}

uint64_t totalBases(const std::vector<Target>& targets) {
  uint64_t sum = 0;
  for (const Target& target : targets) sum += target.end - target.start;
  return sum;
}
