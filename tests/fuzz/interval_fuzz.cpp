// Any bytes as an interval file, as a RefSeq table and as an interval string.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_file.h"
#include "readdata/interval/gene_list.h"
#include "readdata/interval/interval_list.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static FuzzFolder folder;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::string path = folder.write("list", bytes);

  IntervalList list;
  if (list.load(path.c_str())) {
    list.pad(int64_t(size) - 40);
    list.merge();
    IntervalMap map;
    list.append_to(map);
    uint64_t total = 0;
    for (auto& [name, intervals] : map) {
      uint64_t last = 0;
      for (const Interval& interval : intervals) {
        if (interval.start >= interval.end || (last && interval.start <= last)) abort();
        if (interval.contig != name.c_str()) abort();
        last = interval.end;
        ++total;
      }
    }
    if (total != list.total()) abort();
  }

  IntervalMap shards;
  if (parse_shard_list(bytes.c_str(), shards)) normalize(shards);

  GeneList genes;
  if (genes.load(path.c_str()) && genes.genes().size() != genes.by_gene().size()) abort();
  return 0;
}
