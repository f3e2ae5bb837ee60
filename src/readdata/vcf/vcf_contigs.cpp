#include "readdata/vcf/vcf_contigs.h"

#include <algorithm>
#include <cstdio>

namespace {

using Group = std::vector<VCFHeader::Contig>;

ptrdiff_t known(const Group& group, const ContigMap& contigMap) {
  return std::count_if(group.begin(), group.end(),
                       [&](const auto& contig) { return contigMap.contains(contig.name); });
}

}  // namespace

ContigMap contigMapOf(const std::vector<Contig>& contigs) {
  ContigMap map;
  for (size_t i = 0; i < contigs.size(); i++) map.emplace(contigs[i].contig, i);
  return map;
}

bool checkContigs(const VCFHeader& header, const std::string& vcfPath, const std::vector<Contig>& contigs,
                  const ContigMap& contigMap, bool strict) {
  const auto groups = header.contigs();
  const Group* best = nullptr;
  ptrdiff_t most = -1;
  for (const auto& [assembly, group] : groups) {
    const ptrdiff_t count = known(group, contigMap);
    if (count <= most) continue;
    most = count;
    best = &group;
  }
  if (best == nullptr) return true;
  bool good = true;
  for (const VCFHeader::Contig& contig : *best) {
    const auto found = contigMap.find(contig.name);
    if (found == contigMap.end()) {
      if (!strict) continue;
      fprintf(stderr, "Contig %s from the vcf file %s is not present in the reference\n", contig.name.c_str(),
              vcfPath.c_str());
      good = false;
    } else if (contig.length != -1 && contig.length != contigs.at(found->second).end) {
      fprintf(stderr, "Contig %s has a different size in the vcf file %s than in the reference\n",
              contig.name.c_str(), vcfPath.c_str());
      good = false;
    }
  }
  if (most == 0 && !best->empty())
    fprintf(stderr, "Warning: Contigs in the vcf file %s do not match any contigs in the reference\n",
            vcfPath.c_str());
  return good;
}

std::unique_ptr<VCFCache> openOfReference(const std::string& path, const std::vector<Contig>& contigs) {
  auto cache = std::make_unique<VCFCache>(path);
  VCFHeader header;
  cache->getHeader(header);
  if (!checkContigs(header, path, contigs, contigMapOf(contigs), true)) return nullptr;
  return cache;
}

const char* assemblyOf(std::string_view referencePath, const char* otherwise) {
  // The first that the name holds.
  constexpr const char* kMarks[][2] = {{"hg18", "hg18"}, {"hg19", "hg19"}, {"b36", "b36"},
                                       {"b37", "b37"},   {"v37", "b37"},   {"hg38", "hg38"}};
  for (const auto& [mark, assembly] : kMarks)
    if (referencePath.find(mark) != referencePath.npos) return assembly;
  return otherwise;
}
