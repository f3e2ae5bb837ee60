#include "readdata/vcf/genome_index.h"

#include <stdexcept>
#include <unistd.h>

#include "readdata/vcf/linear_index.h"
#include "readdata/vcf/tabix.h"

GenomeIndex::GenomeIndex(const Options& options)
    : format(options.format), partial(options.partial), wideBins(options.wideBins) {}

void GenomeIndex::addContigIndex(std::unique_ptr<ContigIndex> index) {
  auto [place, fresh] = indices.try_emplace(index->name);
  if (place->second != nullptr) throw std::logic_error("!pib.first->second");
  if (fresh) contigs.push_back({index->name, 0});
  count += index->count;
  place->second = std::move(index);
}

void GenomeIndex::setContigs(const std::vector<Contig>& list) {
  contigs = list;
  for (const Contig& contig : contigs) indices.try_emplace(contig.name);
}

GenomeIndex::ContigIndex* GenomeIndex::find(const std::string& name) const {
  auto place = indices.find(name);
  return place == indices.end() ? nullptr : place->second.get();
}

void GenomeIndex::ContigIndex::start(int64_t offset) {
  first = last = offset;
}

int64_t translateOffset(const OffsetMap& offsetMap, int64_t offset) {
  if (offsetMap.empty()) return offset;
  auto next = offsetMap.upper_bound(static_cast<uint64_t>(offset));
  if (next == offsetMap.begin())
    return static_cast<int64_t>(next->second);  // what is before it was not copied
  const auto& [from, to] = *std::prev(next);
  return static_cast<int64_t>(to + (static_cast<uint64_t>(offset) - from));
}

std::unique_ptr<GenomeIndex> newGenomeIndex(const std::string& path, const GenomeIndex::Options& options) {
  auto exists = [](const std::string& name) { return access(name.c_str(), F_OK) == 0; };
  if (exists(path + ".idx")) return std::make_unique<LinearIndex>(options);
  if (exists(path + ".tbi")) return std::make_unique<Tabix>(options);
  if (path.ends_with(".gz")) return std::make_unique<Tabix>(options);
  return std::make_unique<LinearIndex>(options);
}
