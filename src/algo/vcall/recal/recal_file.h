// recal_file.h - the log-odds of all variants, as a VCF with an index.
#pragma once

#include <string>
#include <vector>

#include "algo/vcall/recal/variant_datum.h"
#include "readdata/interval/interval.h"

// Writes one record for each datum, in the order of the data, by which contigs come one after the other. `annotations`
// names the culprits; `name` stands in front of errors (std::runtime_error).
void writeRecalFile(const std::string& name, const std::string& path, const VariantData& data,
                    const std::vector<std::string>& annotations, const std::vector<Contig>& contigs,
                    const std::string& referencePath);
