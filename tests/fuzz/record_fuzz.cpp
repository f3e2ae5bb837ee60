// Any bytes as one record: what check() accepts must stand every routine, and stay a record that check() accepts.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "readdata/bam/read.h"
#include "readdata/bam/sam_text.h"

namespace {

void require(bool condition) {
  if (!condition) abort();
}

// To the byte, so that a step beyond the data is seen.
bam_record copyOf(const uint8_t* data, size_t size) {
  bam_record record;
  memcpy(record.fixedBlock(), data, bam_record::kFixedSize);
  record.data_len = record.data_capacity = int32_t(size - bam_record::kFixedSize);
  record.data =
      static_cast<uint8_t*>(malloc(size - bam_record::kFixedSize + (size == bam_record::kFixedSize)));
  memcpy(record.data, data + bam_record::kFixedSize, size - bam_record::kFixedSize);
  return record;
}

volatile uint64_t sink;

void useTags(bam_record& record) {
  for (const char* tag : {"RG", "NM", "BI", "XA"}) {
    uint8_t* type = aux_find(record, tag);
    sink = uint64_t(aux_int(type)) + uint64_t(aux_char(type)) + strlen(aux_text(type));
    sink = uint64_t(aux_double(type) > aux_float(type));
  }
  aux_append(record, "RG", 'Z', 4, "new");
  aux_delete(record, aux_find(record, "RG"));
  aux_delete(record, aux_find(record, "NM"));
  strip_pg(record);
  const char* text = aux_text(aux_find(record, "PG"));
  require(*text == 0);
}

void useRead(Read& read) {
  const char* letters = read.getBases();
  uint64_t sum = 0;
  for (int32_t i = 0; i < read.length; ++i)
    sum += uint8_t(letters[i]) + read.getQuals()[i] + read.getBITag()[i] + read.getBDTag()[i];
  sink = sum;
  for (int from : {0, 1, int(read.start), int(read.end), INT32_MAX - 20}) {
    int start, end;
    if (read.getAlignment({read.ref_id, from}, {read.ref_id, from + 20}, start, end))
      require(0 <= start && start <= end && end <= read.length);
  }
  for (bool keep_adaptor : {false, true}) {
    Read::Region region;
    if (!read.effectiveRegion(20, keep_adaptor, region)) continue;
    require(region.start < region.end && 0 <= region.first_offset);
    require(region.first_offset < region.end_offset && region.end_offset <= read.length);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < bam_record::kFixedSize) return 0;
  bam_record record = copyOf(data, size);
  if (check(record)) return 0;
  bam_record original = copyOf(data, size);
  check(original);

  bam_header header;
  header.names = {"chr1", "chr2"};
  std::string text;
  to_text(record, header, text);
  text = shortText(record, header) + cigarString(record.cigarBytes(), record.n_cigar);
  const std::string difference = compare_records(record, original);
  require(difference.empty() || difference.starts_with("corrupt aux data"));
  require(compare_pair(record, original) == 0);

  const bool merged = normalise_cigar(record) == 0;
  require(check(record) == nullptr);
  require(alignment_end(record) >= record.pos);
  if (merged)
    for (uint32_t i = 0; i < record.n_cigar; ++i) require(cigarOp(record.cigarWord(i)) != CIGAR_B);
  else
    require(record.flag & FLAG_UNMAPPED);
  useTags(record);
  require(check(record) == nullptr);

  BAMRead read;
  read.attach(record);
  useRead(read);
  read.prepareBaseTags();
  useRead(read);
  bam_record out;
  read.toRecord(out);
  require(check(out) == nullptr);
  require(compareReads(read, read) == 0);
  RealignedRead realigned(read, 7, Cigar{uint32_t(read.length & 0xFFFFFFF) << 4 | CIGAR_M});
  realigned.toRecord(out);
  require(check(out) == nullptr);
  return 0;
}
