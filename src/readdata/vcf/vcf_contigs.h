// vcf_contigs.h - whether the contigs of a VCF file are those of the run.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "readdata/interval/interval.h"
#include "readdata/vcf/vcf_cache.h"
#include "readdata/vcf/vcf_header.h"

using ContigMap = std::map<std::string, size_t>;  // name -> place in the list of contigs

ContigMap contigMapOf(const std::vector<Contig>& contigs);

// Compares the header's contigs with those of the reference; what differs goes to standard error. False when a length
// differs or, with `strict`, when a contig is unknown.
bool checkContigs(const VCFHeader& header, const std::string& vcfPath, const std::vector<Contig>& contigs,
                  const ContigMap& contigMap, bool strict);
// Opens an indexed VCF file; null when its contigs, held against those of the reference with `strict`, differ. Throws what
// VCFCache throws.
std::unique_ptr<VCFCache> openOfReference(const std::string& path, const std::vector<Contig>& contigs);

// The assembly that the name of a reference file speaks of; `otherwise` when it does not.
const char* assemblyOf(std::string_view referencePath, const char* otherwise);
