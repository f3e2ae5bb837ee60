// Any bytes as the records of a VCF file, with the index of a good one beside it. What a window holds is in order.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "fuzz_file.h"
#include "readdata/vcf/vcf_cache.h"
#include "vcf_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static FuzzFolder folder;
  static const std::string path = [] {
    writeVcf(folder.path("a.vcf.gz"), madeRecords({"c", "d"}, 50, 100, 60, 1));
    return folder.path("a.vcf.gz");
  }();
  auto stream = openStream(path, "w");
  stream->write(kVcfStart.data(), kVcfStart.size());
  stream->write(data, size);
  if (stream->close() != 0) abort();
  try {
    VCFCache cache(path);
    VCFHeader header;
    std::vector<char> buffer;
    cache.peekRecord(header, buffer);
    for (const char* contig : {"c", "d"}) {
      cache.setContig(contig);
      for (int32_t start = 0; start < 6000; start += 500) {
        cache.fetch(start, start + 500);
        int32_t last = INT32_MIN;
        for (const VCFLine& record : cache.records()) {
          if (record.pos < last) abort();
          last = record.pos;
        }
      }
    }
  } catch (const std::runtime_error&) {
    // refused, as it should be
  }
  return 0;
}
