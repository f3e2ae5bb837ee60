// output_check.h - what a run writes is no file of its input, and no two of its outputs are one file.
#pragma once

#include <vector>

#include "algo/algo.h"

// Holds the outputs that `algos` declare against the inputs of the run (reads, reference, their indexes, the
// file of intervals, the algorithms' own with their indexes) and against each other, those of one algorithm included. To be called before the first
// init(), which empties its outputs. Files are compared, not names: links are followed, folders are told
// apart by their inodes, and an output need not exist yet. Devices and pipes may be written to by several.
// Throws std::invalid_argument, text beginning with the algorithm's name, at the first clash.
void refuseOutputClashes(const DriverContext& context, const std::vector<Algo*>& algos);
