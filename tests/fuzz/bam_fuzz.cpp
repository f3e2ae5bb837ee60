// Any bytes as the uncompressed contents of a BAM file, or, with a first byte that is odd, as the file
// itself. What is accepted has to come back the same when it is written, and through an index.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "fuzz_file.h"
#include "readdata/bam/bam_impl.h"

namespace {

void append(std::string& all, const bam_record& record) {
  if (record.data_len < 0 || record.data_len + record.l_seq > record.data_capacity) abort();
  all.append(reinterpret_cast<const char*>(record.fixedBlock()), bam_record::kFixedSize);
  all.append(reinterpret_cast<const char*>(record.data), record.data_len);
}

std::string readAll(BAMHandle& bam, uint64_t* records) {
  std::string all;
  bam_record record;
  for (*records = 0; bam.readRecord(record) > 0; ++*records) append(all, record);
  return all;
}

void writeCopy(const std::string& from, const std::string& to) {
  BAMImpl in(from), out(to);
  in.open("r");
  in.readHeader();
  out.open("w0");
  out.header = in.header;
  out.writeHeader();
  bam_record record;
  while (in.readRecord(record) > 0) out.writeRecord(record);
  out.close();
}

uint64_t countByCursor(BAMHandle& bam) {
  auto cursor = bam.newFetchState();
  uint64_t count = 0;
  for (size_t contig = 0; contig < bam.header->contigCount(); ++contig) {
    // At most a hundred ranges of any contig, side by side.
    uint32_t length = bam.header->lengths[contig], tile = std::max<uint32_t>(length / 100 + 1, 50);
    for (uint64_t start = 0; start < length; start += tile)
      for (bool more = cursor->seek(static_cast<int32_t>(contig), static_cast<uint32_t>(start),
                                    static_cast<uint32_t>(std::min<uint64_t>(start + tile, length)));
           more; more = cursor->readNext())
        ++count;
  }
  for (bool more = cursor->seek(-1, 0, 0); more; more = cursor->readNext()) ++count;
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static FuzzFolder folder;
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string path = folder.path("a.bam"), copy = folder.path("b.bam");
  if (data[0] & 1) {
    folder.write("a.bam", bytes);
  } else {
    BGZFHandle file;
    if (!file.openFile(path.c_str(), "w0") || file.write(bytes.data(), bytes.size()) < 0 || file.close() != 0)
      abort();
  }
  try {
    auto bam = open_read_source(path, nullptr, false);
    if (bam->header->contigCount() > 1000) return 0;
    uint64_t records, again;
    const std::string all = readAll(*bam, &records);
    writeCopy(path, copy);
    if (readAll(*open_read_source(copy, nullptr, false), &again) != all || records != again) abort();
    auto index = BamIndex::build(copy);
    if (!index->save(copy + ".bai")) abort();
    if (countByCursor(*open_read_source(copy, nullptr, true)) != records) abort();
  } catch (const std::invalid_argument&) {
    // refused, as it should be
  } catch (const std::runtime_error&) {
    // likewise
  }
  return 0;
}
