#include "algo/preprocess/quantization.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "algo/preprocess/empirical_quality.h"

namespace {

// Qualities below mark bases that are no use; they are never joined with others.
constexpr int kLowestJoined = 6;
constexpr size_t kStaticQualities = 254;

double errorRate(int quality) {
  return std::pow(10.0, -0.1 * quality);
}

struct Interval {
  int first, last;
  double count, errors;

  double rate() const { return (errors + 1) / (count + 1); }
};

Interval joined(const Interval& a, const Interval& b) {
  return {a.first, b.last, a.count + b.count, a.errors + b.errors};
}

double penalty(const Interval& interval, const std::vector<Interval>& singles) {
  const double rate = std::log10(interval.rate());
  double sum = 0;
  for (int q = interval.first; q <= interval.last; q++)
    sum += singles[size_t(q)].errors * std::abs(-0.1 * q - rate);
  return sum;
}

// An interval of several qualities stays within them: with few observations its rate says little.
int levelOf(const Interval& interval) {
  if (interval.first == interval.last) return interval.first;
  return std::clamp(int(std::lround(-10 * std::log10(interval.rate()))), interval.first, interval.last);
}

// Observations of a row by the difference of their cell's quality to the row's.
using Deltas = std::array<double, 2 * kRecalQualities>;

Deltas deltasOf(const RecalRow& row, const std::vector<RecalCounts>& cells, int quality) {
  Deltas deltas{};
  double rest = double(row.total.observations);
  for (size_t i = 0; i + 1 < cells.size(); i++) {  // the last cell is of invalid values, which change nothing
    if (cells[i].observations == 0) continue;
    deltas[size_t(kRecalQualities + empiricalQuality(cells[i], quality) - quality)] +=
        double(cells[i].observations);
    rest -= double(cells[i].observations);
  }
  deltas[kRecalQualities] += std::max(rest, 0.0);
  return deltas;
}

void addRow(const RecalRow& row, int quality, std::array<double, kRecalQualities>& counts) {
  const Deltas contexts = deltasOf(row, row.contexts, quality), cycles = deltasOf(row, row.cycles, quality);
  for (int a = 0; a < int(contexts.size()); a++) {
    if (contexts[size_t(a)] == 0) continue;
    for (int b = 0; b < int(cycles.size()); b++) {
      const int value = std::clamp(quality + a + b - 2 * kRecalQualities, 1, kRecalQualities - 1);
      counts[size_t(value)] += contexts[size_t(a)] * cycles[size_t(b)] / double(row.total.observations);
    }
  }
}

}  // namespace

QualityCounts calibratedCounts(const RecalTable& table) {
  std::array<double, kRecalQualities> counts{};
  for (const RecalGroup& group : table.groups) {
    for (RecalEvent event : {kMismatch, kInsertion, kDeletion}) {
      const int of_group = empiricalQuality(group.sum(event));
      for (int quality = 0; quality < kRecalQualities; quality++) {
        const RecalRow* row = group.find(event, quality);
        if (row && row->total.observations > 0) addRow(*row, empiricalQuality(row->total, of_group), counts);
      }
    }
  }
  QualityCounts rounded;
  for (size_t q = 0; q < counts.size(); q++) rounded[q] = uint64_t(std::llround(counts[q]));
  return rounded;
}

std::vector<uint8_t> quantize(const QualityCounts& counts, int levels) {
  std::vector<Interval> singles;
  for (int q = 0; q < kRecalQualities; q++) {
    const auto count = double(counts[size_t(q)]);
    singles.push_back({q, q, count, count * errorRate(q)});
  }
  std::vector<Interval> intervals = singles;
  while (levels > 0 && int(intervals.size()) > std::max(levels, kLowestJoined + 1)) {
    size_t best = kLowestJoined;
    double least = -1;
    for (size_t i = kLowestJoined; i + 1 < intervals.size(); i++) {
      const double loss = penalty(joined(intervals[i], intervals[i + 1]), singles);
      if (least >= 0 && loss >= least) continue;
      least = loss;
      best = i;
    }
    intervals[best] = joined(intervals[best], intervals[best + 1]);
    intervals.erase(intervals.begin() + int64_t(best) + 1);
  }
  std::vector<uint8_t> map(kRecalQualities);
  for (const Interval& interval : intervals)
    std::fill(map.begin() + interval.first, map.begin() + interval.last + 1, uint8_t(levelOf(interval)));
  return map;
}

std::vector<uint8_t> staticQuantization(std::vector<int> levels, bool round_down) {
  std::vector<uint8_t> map(kStaticQualities);
  std::iota(map.begin(), map.begin() + kLowestJoined, uint8_t(0));
  std::sort(levels.begin(), levels.end());
  int previous = kLowestJoined;
  if (levels.size() > 1) {
    for (int level : levels) {
      if (level <= previous) continue;
      for (int q = previous; q < level; q++) {
        const double above = (1 - errorRate(q)) - (1 - errorRate(previous));
        const double below = (1 - errorRate(level)) - (1 - errorRate(q));
        map[size_t(q)] = uint8_t(!round_down && above > below ? level : previous);
      }
      previous = level;
    }
  }
  std::fill(map.begin() + previous, map.end(), uint8_t(levels.back()));
  return map;
}
