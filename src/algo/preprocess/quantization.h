// quantization.h - maps from quality to the few levels that calibrated reads take.
// Units    phred qualities.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "algo/preprocess/recal_table.h"

using QualityCounts = std::array<uint64_t, kRecalQualities>;

// How many of the table's observations take each quality when the table is applied to them: the deltas of context and
// of cycle are taken as independent within a read group, event and reported quality. Adds up to all observations but
// for rounding.
QualityCounts calibratedCounts(const RecalTable& table);

// Joins neighbouring qualities from 6 up, the pair with the smallest penalty first and the lowest on a tie, until
// `levels` intervals are left, and gives each the quality of its error rate. `levels` of 0: every quality is its own.
std::vector<uint8_t> quantize(const QualityCounts& counts, int levels);

// Map of the qualities 0 to 253 to stated levels (each 0 to 93, at least one, in any order). Qualities to 5 are kept;
// with several levels 6 is a level too. A quality between two levels takes the nearer by probability of being right,
// or always the lower.
std::vector<uint8_t> staticQuantization(std::vector<int> levels, bool round_down);
