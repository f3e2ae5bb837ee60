// Any bytes as the index of a small BAM file. What comes out of a range
// lies in it and in order.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "bam_files.h"
#include "fuzz_file.h"
#include "readdata/bam/bam_impl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static FuzzFolder folder;
  static const std::string bam_path =
      folder.write("a.bam", inBlocks(rawBam(sampleContigs(), sampleReads(60, 5, 1)), 600));
  folder.write("a.bam.bai", std::string(reinterpret_cast<const char*>(data), size));
  try {
    auto bam = open_read_source(bam_path, nullptr, true);
    auto cursor = bam->newFetchState();
    for (size_t i = 0; i <= bam->header->contigCount(); ++i) {
      const bool placed = i < bam->header->contigCount();
      const int32_t contig = placed ? static_cast<int32_t>(i) : -1;
      const uint32_t length = placed ? bam->header->lengths[i] : 1, tile = length / 7 + 1;
      for (uint32_t start = 0; start < length; start += tile) {
        int32_t last = -1;
        for (bool more = cursor->seek(contig, start, start + tile); more; more = cursor->readNext()) {
          const bam_record& read = cursor->current;
          if (read.ref_id != contig) abort();
          if (!placed) continue;
          if (read.pos < last || static_cast<uint32_t>(read.pos) >= start + tile) abort();
          if (static_cast<uint32_t>(read.pos) < start && alignment_end(read) <= start) abort();
          last = read.pos;
        }
      }
    }
  } catch (const std::invalid_argument&) {
    // refused, as it should be
  } catch (const std::runtime_error&) {
    // likewise
  }
  return 0;
}
