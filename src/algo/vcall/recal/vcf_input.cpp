#include "algo/vcall/recal/vcf_input.h"

#include <algorithm>
#include <stdexcept>

#include "readdata/vcf/vcf_contigs.h"

std::unique_ptr<VCFCache> openVcfInput(const std::string& name, const std::string& path,
                                       const std::vector<Contig>& contigs) {
  std::unique_ptr<VCFCache> cache = openOfReference(path, contigs);
  const ContigMap known = contigMapOf(contigs);
  // Records of contigs that are in no header would be lost.
  if (!cache || !std::ranges::all_of(cache->index().indices, [&](const auto& contig) {
        return !contig.second || contig.second->count == 0 || known.contains(contig.first);
      }))
    throw std::invalid_argument(name + ": Contigs in vcf " + path + " are not compatible with reference");
  return cache;
}
