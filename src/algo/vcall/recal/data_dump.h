// data_dump.h - everything that is known of each datum, for those who look for a fault.
#pragma once

#include <string>
#include <vector>

#include "algo/vcall/recal/variant_datum.h"
#include "readdata/interval/interval.h"

// Writes the data as the models have seen them, one line each, positions one-based, to the file that the environment
// variable debugDump names; nothing without it. Throws std::runtime_error, `name` in front.
void dumpData(const std::string& name, const VariantData& data, size_t annotations,
              const std::vector<Contig>& contigs);
