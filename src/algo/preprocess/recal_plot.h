// recal_plot.h - calibration tables side by side, in the form that plots are drawn from.
#pragma once

#include <string>
#include <vector>

#include "algo/preprocess/recal_table.h"

struct RecalVersion {
  std::string name;  // "Before", "After", "QCal"
  const RecalTable* table;
};

// One CSV file of all versions, in their order: a row per read group, kind of event and value of reported quality,
// cycle or context, each summed over the other two. Cells without observations and invalid values have no row. Throws
// std::runtime_error.
void writeRecalPlot(const std::string& path, const std::vector<RecalVersion>& versions);
