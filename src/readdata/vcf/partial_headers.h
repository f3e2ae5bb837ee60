// partial_headers.h - whether the partial files of a sharded run, which are to be joined, are of the same run.
#pragma once

#include <string>
#include <vector>

#include "readdata/vcf/vcf_header.h"

// What headers of one run have in common, beside the samples.
struct PartialTrait {
  const char* what;
  std::vector<std::string> (*of)(const VCFHeader&);
};

// Compares the samples and the traits of the files' headers, and returns the first one's; at least one path. Throws
// std::runtime_error for a file that cannot be read and std::invalid_argument for one that differs from the first; the
// texts begin with the name of the algorithm.
VCFHeader checkPartials(const std::string& algo, const std::vector<std::string>& paths,
                        const std::vector<PartialTrait>& traits);
