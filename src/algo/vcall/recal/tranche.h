// tranche.h - cuts on VQSLOD by the share of truth sites that lie above.
// Threads  plain values.
// Errors   std::invalid_argument and std::runtime_error with the texts that users see.
#pragma once

#include <cstdint>
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

// The tranches of the data that are not aggregate, in the order of `targets` (percent).
std::vector<Tranche> createTranches(const std::vector<VariantDatum>& data, const std::vector<double>& targets,
                                    uint32_t model);

// `name` of the algorithm stands in front of what the system tells.
void writeTranches(const std::string& name, const std::string& path, std::vector<Tranche> tranches);
// Sorted by target, descending.
std::vector<Tranche> readTranches(const std::string& name, const std::string& path);
