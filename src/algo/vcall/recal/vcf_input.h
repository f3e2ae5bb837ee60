// vcf_input.h - the VCF files that recalibration reads.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "readdata/interval/interval.h"
#include "readdata/vcf/vcf_cache.h"

// Opens an indexed VCF file. Throws std::invalid_argument, `name` of the algorithm in front, when its contigs are not those
// of the reference, which are `contigs`, and what VCFCache throws.
std::unique_ptr<VCFCache> openVcfInput(const std::string& name, const std::string& path,
                                       const std::vector<Contig>& contigs);
