#include "algo/preprocess/recal_plot.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "algo/preprocess/empirical_quality.h"
#include "base/plain_file.h"

namespace {

constexpr const char* kEventNames[] = {"Base Substitution", "Base Insertion", "Base Deletion"};
enum Covariate { kQualityScore, kCycle, kContext };
constexpr const char* kCovariateNames[] = {"QualityScore", "Cycle", "Context"};

// One value of a covariate, over all reported qualities.
struct Cell {
  RecalCounts counts;
  double promised_errors = 0;

  void add(const RecalCounts& more, int reported) {
    counts += more;
    promised_errors += double(more.observations) * std::pow(10.0, -0.1 * reported);
  }
};

size_t cellCount(const RecalTable& table, RecalEvent event, Covariate covariate) {
  if (covariate == kQualityScore) return kRecalQualities;
  if (covariate == kCycle) return 2 * size_t(table.arguments.maximum_cycle_value) + 1;
  return size_t(1) << 2 * RecalTable::contextSize(event, table.arguments);
}

std::string valueText(const RecalTable& table, RecalEvent event, Covariate covariate, size_t i) {
  if (covariate == kQualityScore) return std::to_string(i);
  if (covariate == kCycle) return std::to_string(int64_t(i) - table.arguments.maximum_cycle_value);
  return contextText(i, RecalTable::contextSize(event, table.arguments));
}

std::vector<Cell> sumCells(const RecalTable& table, const RecalGroup& group, RecalEvent event,
                           Covariate covariate) {
  std::vector<Cell> cells(cellCount(table, event, covariate));
  for (int quality = 0; quality < kRecalQualities; quality++) {
    const RecalRow* row = group.find(event, quality);
    if (!row) continue;
    if (covariate == kQualityScore) {
      cells[size_t(quality)].add(row->total, quality);
      continue;
    }
    const std::vector<RecalCounts>& from = covariate == kCycle ? row->cycles : row->contexts;
    for (size_t i = 0; i < cells.size(); i++)
      if (from[i].observations > 0) cells[i].add(from[i], quality);
  }
  return cells;
}

// A read group's name as a field: quoted where it has a comma or a quote.
std::string groupField(const std::string& name) {
  if (name.empty()) return "Invalid";
  if (name.find_first_of(",\"") == name.npos) return name;
  std::string quoted = "\"";
  for (char c : name) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

void writeCells(FILE* out, const RecalVersion& version, const RecalGroup& group, RecalEvent event,
                Covariate covariate) {
  const std::vector<Cell> cells = sumCells(*version.table, group, event, covariate);
  for (size_t i = 0; i < cells.size(); i++) {
    const RecalCounts& counts = cells[i].counts;
    if (counts.observations == 0) continue;
    const double reported = -10 * std::log10(cells[i].promised_errors / double(counts.observations));
    const double empirical = observedQuality(counts);
    fprintf(out, "%s,%s,%s,%s,", groupField(group.name).c_str(),
            valueText(*version.table, event, covariate, i).c_str(), kCovariateNames[covariate],
            kEventNames[event]);
    fprintf(out, "%ld,%.2f,%.2f,%.2f,%.2f,", long(counts.observations), counts.errorCount(), empirical,
            reported, empirical - reported);
    fprintf(out, "%s\n", version.name.c_str());
  }
}

}  // namespace

void writeRecalPlot(const std::string& path, const std::vector<RecalVersion>& versions) {
  FileOwner file(fopen(path.c_str(), "we"));
  FILE* const out = file.get();
  if (!out) throw std::runtime_error("QualCal: failed to open csv file " + path + " for writing");
  fputs(
      "ReadGroup,CovariateValue,CovariateName,EventType,Observations,Errors,EmpiricalQuality,"
      "AverageReportedQuality,Accuracy,Recalibration\n",
      out);
  for (const RecalVersion& version : versions)
    for (Covariate covariate : {kQualityScore, kCycle, kContext})
      for (const RecalGroup& group : version.table->groups)
        for (RecalEvent event : {kMismatch, kInsertion, kDeletion})
          writeCells(out, version, group, event, covariate);
  if (!close_written(std::move(file)))
    throw std::runtime_error("QualCal: failed to write csv file " + path + ": " + strerror(errno));
}
