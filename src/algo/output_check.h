// output_check.h - what a run writes is no file of its input, and no two of its outputs are one file; what a failed run
// has written goes.
#pragma once

#include <vector>

#include "algo/algo.h"

// Holds the outputs that `algos` declare against the inputs of the run (reads, reference, their indexes, the
// file of intervals, the algorithms' own with their indexes) and against each other, those of one algorithm included.
// To be called before the first init(), which empties its outputs. Files are compared, not names: links are followed,
// folders are told apart by their inodes, and an output need not exist yet. Devices and pipes may be written to by
// several.
// Throws std::invalid_argument, text beginning with the algorithm's name, at the first clash.
void refuseOutputClashes(const DriverContext& context, const std::vector<Algo*>& algos);

// Removes the files that a failed run has written in part, which would look like whole ones, and the shards' files beside
// them, those that other threads have open among them. A link stays, and the file that it leads to becomes empty; a
// device or pipe is left alone. Reports nothing: the failure that led here is told.
void discardOutputs(const std::vector<OutputFile>& files);
