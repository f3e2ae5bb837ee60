// output_check.h - inputs are never written to: the check that outputs are not files of the run's input.
#pragma once

#include <string>

#include "algo/driver_context.h"

// Throws std::invalid_argument, text beginning with `algo_name`, when a file that is about to be written (the
// output, its index, or output_N, the temporary file of a shard) is an input of the run, the index of one, or
// the reference or its index: the same file under whatever name.
void refuseInputsAsOutput(const std::string& algo_name, const DriverContext& context,
                          const std::string& output, const std::string& index);
