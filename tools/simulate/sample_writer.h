// sample_writer.h - a sample's sorted BAM with its index, and the count of what is in it.
// Errors   std::runtime_error or std::invalid_argument that names the file.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "artefact.h"
#include "fragments.h"
#include "genome.h"
#include "options.h"
#include "variants.h"

// What a summary is made of: names and counts, in the order of printing.
using Tally = std::vector<std::pair<std::string, uint64_t>>;

// Writes `path` and `path`.bai; `sample` is the number of the sample, `artefacts` are its own. Records are made in the order of the
// genome, so memory holds the fragments' plan and the few records that wait for their turn.
Tally writeSample(const SimulateOptions& options, const Genome& genome, const Variants& variants,
                  const std::vector<Artefact>& artefacts, size_t sample, const std::string& path);
