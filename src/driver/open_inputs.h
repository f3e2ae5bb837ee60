// open_inputs.h - opens what the command line names, once, and settles the contigs of the run.
// Errors   a message on standard error and ExitRun, or an exception whose text is the message.
#pragma once

#include <string>

#include "driver/run_inputs.h"

// Ends a run whose fault has been told already; carries the exit status.
struct ExitRun {
  int status;
};

// --interval: loaded, padded and merged.
void loadIntervals(RunInputs& run);

// Reference, read inputs, their cache and the transforms of its reads. Adds to `summary` the sizes of the
// inputs. `algo_count` is the number of stacked algorithms, for the count of files.
void openInputs(RunInputs& run, size_t algo_count, std::string& summary);

// The contig list of the run and its checks: reads, reference and intervals have to agree.
void buildContigs(RunInputs& run);

// Adds the pseudo contig of the reads without coordinates.
void appendNoCoor(RunInputs& run);
