// Any bytes as the .idx of a data file, or, with a first byte that is odd, as the uncompressed contents of a .tbi. What
// is loaded answers any region with chunks that are in order, can be joined and thinned out, and comes back the same.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include "readdata/stream/bgzf_handle.h"
#include "readdata/vcf/linear_index.h"
#include "readdata/vcf/tabix.h"

namespace {

using Chunks = std::vector<GenomeIndex::Chunk>;

std::vector<Chunks> answers(const GenomeIndex::ContigIndex& index) {
  constexpr int32_t kPlaces[] = {
      INT32_MIN, -1, 0, 1, 16383, 16384, 100000, 1 << 26, 1 << 29, (1 << 29) + 1, INT32_MAX - 1, INT32_MAX};
  std::vector<Chunks> all;
  for (int32_t start : kPlaces)
    for (int32_t end : kPlaces) {
      Chunks chunks;
      if (index.query(start, end, chunks) == chunks.empty()) abort();
      for (size_t i = 0; i < chunks.size(); ++i)
        if (chunks[i].begin < 0 || chunks[i].begin > chunks[i].end ||
            (i > 0 && chunks[i - 1].end >= chunks[i].begin))
          abort();
      all.push_back(chunks);
    }
  return all;
}

void check(GenomeIndex& index, GenomeIndex& again, const std::string& path) {
  if (!index.load(path)) return;
  std::vector<std::vector<Chunks>> before;
  for (const auto& [name, contig] : index.indices)
    if (contig != nullptr) {
      before.push_back(answers(*contig));
      auto joined = index.newContigIndex(name);
      joined->start(5);
      try {
        joined->add(*contig, {{7, 7}});
      } catch (const std::logic_error&) {
        continue;  // bins too narrow
      }
      answers(*joined);
      joined->dropFront(1, 1000);
      joined->add(INT32_MAX - 1, INT32_MAX, contig->last);
      joined->finish();
    }
  if (!index.save(path) || !again.load(path)) abort();
  size_t place = 0;
  for (const auto& [name, contig] : index.indices)
    if (contig != nullptr && answers(*again.find(name)) != before[place++]) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static FuzzFolder folder;
  static const std::string path = folder.write("a.vcf", std::string(100, 'x'));
  const char* bytes = reinterpret_cast<const char*>(data + 1);
  const GenomeIndex::Options options{.format = "", .partial = true, .wideBins = false};
  if ((data[0] & 1) != 0) {
    BGZFHandle file;
    if (!file.openFile((path + ".tbi").c_str(), "w0") || file.write(bytes, size - 1) < 0 || file.close() != 0)
      abort();
    Tabix index(options), again(options);
    check(index, again, path);
  } else {
    folder.write("a.vcf.idx", std::string(bytes, size - 1));
    LinearIndex index(options), again(options);
    check(index, again, path);
  }
  return 0;
}
