// read.cpp - reads over records, and back to records.
#include "readdata/bam/read.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace {

constexpr size_t kSharedTagSize = 4096;

constexpr std::array<uint8_t, kSharedTagSize> makeSharedTag() {
  std::array<uint8_t, kSharedTagSize> text{};
  for (uint8_t& letter : text) letter = 'N';
  return text;
}

constexpr std::array<uint8_t, kSharedTagSize> kSharedTag = makeSharedTag();

// What a read without BI or BD presents. Longer reads than the constant has room for share a buffer for each
// power of two.
uint8_t* sharedTag(size_t length) {
  if (length <= kSharedTagSize) return const_cast<uint8_t*>(kSharedTag.data());
  static std::mutex mutex;
  static std::map<size_t, std::unique_ptr<uint8_t[]>> longer;
  const size_t size = std::bit_ceil(length);
  std::lock_guard lock(mutex);
  std::unique_ptr<uint8_t[]>& buffer = longer[size];
  if (!buffer) {
    buffer.reset(new uint8_t[size]);
    std::fill_n(buffer.get(), size, 'N');
  }
  return buffer.get();
}

}  // namespace

uint8_t* Read::getBITag() {
  return sharedTag(size_t(length));
}

uint8_t* Read::getBDTag() {
  return sharedTag(size_t(length));
}

void Read::attach(bam_record& record) {
  name = record.name();
  bases = nullptr;
  quals = record.quals();
  length = record.l_seq;
  mapq = record.mapq;
  flag = record.flag;
  ref_id = record.ref_id;
  start = uint32_t(record.pos);
  end = record.n_cigar > 0 ? uint32_t(alignment_end(record)) : start + 1;
  mate_ref_id = record.next_ref_id;
  mate_start = record.next_pos;
  tlen = record.tlen;
  cigar = record.cigarBytes();
  n_cigar = record.n_cigar;
  setFilterClass();
}

void Read::setFilterClass() {
  const bool mate_mapped = (flag & (FLAG_PAIRED | FLAG_MATE_UNMAPPED)) == FLAG_PAIRED;
  filter_class = mate_mapped && mate_ref_id != ref_id ? kMateElsewhere : 0;
  if (mapq == 255) filter_class |= kMapq255;
  if (mapq == 0) filter_class |= kMapq0;
}

void Read::toRecord(bam_record& out) {
  const char* letters = getBases();
  const size_t name_length = strnlen(name, UINT8_MAX - 1);
  const size_t count = size_t(length), packed = (count + 1) / 2;
  assert(length >= 0 && n_cigar <= UINT16_MAX);

  out.ref_id = ref_id;
  out.pos = int32_t(start);
  out.l_read_name = uint8_t(name_length + 1);
  out.mapq = mapq;
  out.bin = bin_of(start, end);
  out.n_cigar = uint16_t(n_cigar);
  out.flag = flag;
  out.l_seq = length;
  out.next_ref_id = mate_ref_id;
  out.next_pos = mate_start;
  out.tlen = tlen;
  out.l_aux = 0;
  const size_t used = out.l_read_name + 4 * size_t(n_cigar) + packed + count;
  out.data_len = 0;
  out.growData(used);
  out.data_len = int32_t(used);

  memcpy(out.data, name, name_length);
  out.data[name_length] = 0;
  if (n_cigar > 0) memcpy(out.cigarBytes(), cigar, 4 * size_t(n_cigar));
  if (count == 0) return;
  bam_seq_encode(letters, count, out.packedBases());
  if (quals)
    memcpy(out.quals(), quals, count);
  else
    memset(out.quals(), 0xff, count);
}

uint32_t Read::cigarWord(uint32_t i) const {
  uint32_t word;
  memcpy(&word, cigar + 4 * size_t(i), sizeof word);
  return word;
}

std::string Read::cigarString() const {
  return ::cigarString(cigar, n_cigar);
}

int compareReads(const Read& a, const Read& b) {
  if (a.isReverse() != b.isReverse()) return a.isReverse() ? 1 : -1;
  if (int order = strcmp(a.name, b.name)) return order;
  auto order = [](auto x, auto y) { return x < y ? -1 : x > y; };
  if (int by = order(a.flag, b.flag)) return by;
  if (int by = order(a.mapq, b.mapq)) return by;
  if (int by = order(a.mate_ref_id, b.mate_ref_id)) return by;
  if (int by = order(a.mate_start, b.mate_start)) return by;
  return order(a.tlen, b.tlen);
}

void BAMRead::attach(bam_record& record) {
  record_.swap(record);
  refresh();
}

void BAMRead::refresh() {
  Read::attach(record_);
  bi_offset_ = bd_offset_ = 0;
}

const char* BAMRead::getBases() {
  if (bases) return bases;
  const size_t used = size_t(record_.data_len), room = used + size_t(record_.l_seq);
  if (room > size_t(record_.data_capacity)) {
    record_.growData(room);
    Read::attach(record_);  // data has moved
  }
  char* letters = reinterpret_cast<char*>(record_.data + used);
  decodeBases(record_.packedBases(), size_t(record_.l_seq), letters);
  return bases = letters;
}

// A text that is shorter than the read is as good as none.
uint8_t* BAMRead::findBaseTag(const char* tag, int32_t& offset) {
  if (offset == 0) {
    const uint8_t* type = aux_find(record_, tag);
    const bool found = type && *type == 'Z' && strlen(aux_text(type)) >= size_t(length);
    offset = found ? int32_t(type + 1 - record_.data) : -1;
  }
  return offset > 0 ? record_.data + offset : nullptr;
}

uint8_t* BAMRead::getBITag() {
  uint8_t* text = findBaseTag("BI", bi_offset_);
  return text ? text : sharedTag(size_t(length));
}

uint8_t* BAMRead::getBDTag() {
  uint8_t* text = findBaseTag("BD", bd_offset_);
  return text ? text : sharedTag(size_t(length));
}

void BAMRead::prepareBaseTags() {
  const bool has_bi = findBaseTag("BI", bi_offset_), has_bd = findBaseTag("BD", bd_offset_);
  if (has_bi && has_bd) return;
  auto append = [this](const char* tag) {
    aux_delete(record_, aux_find(record_, tag));
    const size_t size = size_t(length) + 1;
    aux_append(record_, tag, 'Z', size, sharedTag(size));
    record_.auxEnd()[-1] = 0;
  };
  if (!has_bi) append("BI");
  if (!has_bd) append("BD");
  refresh();
}

void BAMRead::toRecord(bam_record& out) {
  copy_record(out, record_);
  strip_pg(out);
}

const bam_record& BAMRead::asRecord(bam_record& scratch) {
  if (!aux_find(record_, "PG")) return record_;
  toRecord(scratch);
  return scratch;
}

RealignedRead::RealignedRead(Read& original, uint32_t new_start, Cigar new_cigar)
    : Read((original.getBases(), original)), original_(original), own_cigar_(std::move(new_cigar)) {
  start = new_start;
  cigar = reinterpret_cast<const uint8_t*>(own_cigar_.data());
  n_cigar = uint32_t(own_cigar_.size());
  int64_t new_end = start;
  for (uint32_t word : own_cigar_)
    if (consumesReference(word)) new_end += cigarLength(word);
  assert(new_end <= INT32_MAX);
  end = n_cigar > 0 ? uint32_t(new_end) : start + 1;
}
