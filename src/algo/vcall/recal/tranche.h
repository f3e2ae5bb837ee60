// tranche.h - cuts on VQSLOD by the share of truth sites that lie above.
// Threads  plain values.
// Errors   std::invalid_argument and std::runtime_error with the texts that users see.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "algo/vcall/recal/variant_datum.h"

struct Tranche {
  std::string name;                   // of the filter
  double targetTruthSensitivity = 0;  // percent
  double minVQSLod = 0;
  double knownTiTv = 0, novelTiTv = 0;
  uint32_t numKnown = 0, numNovel = 0;
  uint32_t model = 0;  // index in kModelNames
  uint32_t accessibleTruthSites = 0, callsAtTruthSites = 0;
};

inline const std::vector<double> kDefaultTargets = {100, 99.9, 99, 90};

// Throws std::invalid_argument unless `target` is a percentage; `place` ends the text.
void checkTarget(double target, const std::string& place = "");

// The tranches of the data that are not aggregate, in the order of `targets` (percent). A target that no cut
// keeps to has none, nor has any without truth sites, or one that the file could not tell from an earlier one.
std::vector<Tranche> createTranches(const VariantData& data, const std::vector<double>& targets,
                                    uint32_t model);

// Writes the tranches in ascending order of target. `name` of the algorithm stands in front of errors.
void writeTranches(const std::string& name, const std::string& path, std::vector<Tranche> tranches);
// Sorted by target, descending. A file of a later version, with other columns, cut short, or whose cuts of one model fall
// where the targets do is refused.
std::vector<Tranche> readTranches(const std::string& path);

inline constexpr char kPass[] = "PASS", kLowVQSLod[] = "LOW_VQSLOD";

// What a variant is filtered by: its tranche or, without tranches, one cut.
struct RecalFilter {
  std::vector<Tranche> tranches;  // descending by target, so that minVQSLod rises; the last one passes
  double cutoff = std::numeric_limits<double>::lowest();
  uint32_t model = kSNPModel;

  // Keeps of `all` those of the model that lose no more truth than `sensitivity` (percent) allows, at the precision of
  // the file.
  void choose(std::vector<Tranche> all, double sensitivity);
  // The name of the filter that a variant of this VQSLOD gets.
  std::string filterFor(double lod) const;
};

// Adds a filter to the words of FILTER, "PASS" only where there is no other one.
void addFilter(std::vector<std::string>& filters, const std::string& added);
