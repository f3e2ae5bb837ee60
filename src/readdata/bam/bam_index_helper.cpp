// Building BAI indexes, from records as they are written or from a scan of a file.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "base/text.h"
#include "base/timer.h"
#include "readdata/bam/bam_impl.h"
#include "readdata/bam/bam_index.h"
#include "readdata/stream/genome_bins.h"

namespace {

constexpr uint32_t kNoBin = 0xFFFFFFFF;
constexpr uint32_t kMaxBases = kMaxBinnedLength - 1;

}  // namespace

void checkBaiContigs(const bam_header& header, const std::string& path) {
  for (size_t i = 0; i < header.contigCount(); ++i)
    if (header.lengths[i] > kMaxBases)
      throw std::invalid_argument(
          "Contig " + header.names[i] + (path.empty() ? "" : " of BAM file " + path) +
          format(" has %u bases, more than the %u that a .bai index can hold", header.lengths[i], kMaxBases));
}

BamIndexHelper::BamIndexHelper(BamIndex& index, size_t contig_count, std::string path, uint64_t offset)
    : index_(index), path_(std::move(path)), dump_(getenv("bam_index_dump") != nullptr) {
  index_.contigs.clear();
  index_.contigs.resize(contig_count);
  index_.n_no_coor = 0;
  first_offset_ = last_offset_ = offset;
}

void BamIndexHelper::refuse(int32_t ref_id, int32_t pos, const char* name) const {
  if (no_coor_)
    throw std::runtime_error("BAM file " + path_ +
                             " is not sorted: reads without coordinates  precedes reads with coordinates.");
  std::string subject = name != nullptr ? format("Read %s is", name) : "Reads are";
  if (ref_id < last_ref_)
    throw std::runtime_error(
        format("%s not sorted: refID %d > refID %d\n", subject.c_str(), last_ref_, ref_id));
  if (ref_id == last_ref_ && pos < last_pos_)
    throw std::runtime_error(
        format("%s not sorted: %u > %u on refID %d\n", subject.c_str(), last_pos_, pos, ref_id));
  throw std::runtime_error(
      format("BAM file %s: a read at position %lld of contig number %d cannot be indexed", path_.c_str(),
             static_cast<long long>(pos) + 1, ref_id));
}

void BamIndexHelper::settleEnd(uint64_t offset) {
  if (!end_open_) return;
  end_open_ = false;
  chunk_end_ = last_offset_ = std::max(offset, last_offset_);
}

void BamIndexHelper::add(int32_t ref_id, int32_t pos, int64_t end, bool mapped, uint64_t begin_offset,
                         uint64_t end_offset, const char* name) {
  settleEnd(begin_offset);
  if (ref_id < 0) {
    if (!no_coor_) closeContig();
    no_coor_ = true;
    ++index_.n_no_coor;
    return;
  }
  bool in_order = !no_coor_ && (ref_id > last_ref_ || (ref_id == last_ref_ && pos >= last_pos_));
  bool in_range = static_cast<size_t>(ref_id) < index_.contigs.size() && pos >= 0 &&
                  static_cast<uint32_t>(pos) < kMaxBinnedLength;
  if (!in_order || !in_range) refuse(ref_id, pos, name);
  if (ref_id != last_ref_) {
    closeContig();
    last_ref_ = ref_id;
    first_offset_ = begin_offset;
  }
  last_pos_ = pos;
  end = std::clamp<int64_t>(end, int64_t(pos) + 1, kMaxBinnedLength);
  uint32_t bin = bin_of(pos, static_cast<uint32_t>(end));
  if (dump_)
    fprintf(stderr, "bi_add: %d %d %d %d %lld\n", ref_id, pos, static_cast<int>(end), static_cast<int>(bin),
            static_cast<long long>(begin_offset));

  std::vector<uint64_t>& linear = index_.contigs[ref_id].linear;
  size_t first_window = static_cast<uint32_t>(pos) >> kWindowShift;
  size_t last_window = static_cast<uint32_t>(end - 1) >> kWindowShift;
  if (linear.size() <= last_window) linear.resize(last_window + 1);
  for (size_t window = first_window; window <= last_window; ++window)
    if (linear[window] == 0) linear[window] = begin_offset;

  if (bin != bin_) {
    closeChunk();
    bin_ = bin;
    chunk_begin_ = begin_offset;
  }
  ++(mapped ? mapped_ : unmapped_);
  end_open_ = end_offset == 0;
  chunk_end_ = last_offset_ = end_open_ ? begin_offset : end_offset;
}

void BamIndexHelper::addMore(uint64_t mapped, uint64_t unmapped) {
  if (no_coor_) {
    index_.n_no_coor += mapped + unmapped;
    return;
  }
  mapped_ += mapped;
  unmapped_ += unmapped;
}

void BamIndexHelper::closeChunk() {
  if (bin_ == kNoBin) return;
  std::vector<Chunk>& chunks = index_.contigs[last_ref_].bins[bin_];
  if (!chunks.empty() && chunks.back().end >> 16 == chunk_begin_ >> 16)
    chunks.back().end = chunk_end_;
  else
    chunks.push_back({chunk_begin_, chunk_end_});
  bin_ = kNoBin;
}

void BamIndexHelper::closeContig() {
  if (last_ref_ < 0) return;
  closeChunk();
  BamIndex::ContigIndex& contig = index_.contigs[last_ref_];
  contig.has_counts = !bam_max_bin_disabled();
  if (contig.has_counts) {
    contig.first_offset = first_offset_;
    contig.last_offset = last_offset_;
    contig.mapped = mapped_;
    contig.unmapped = unmapped_;
  }
  mapped_ = unmapped_ = 0;
}

void BamIndexHelper::finish(uint64_t end_offset) {
  settleEnd(end_offset);
  if (!no_coor_) closeContig();
  index_.has_no_coor = true;
  for (BamIndex::ContigIndex& contig : index_.contigs) {
    uint64_t next = 0;
    for (size_t window = contig.linear.size(); window-- > 0;) {
      if (contig.linear[window] == 0) contig.linear[window] = next;
      next = contig.linear[window];
    }
  }
}

std::shared_ptr<BamIndex> BamIndex::build(const std::string& bam_path) {
  static Timer* build_timer = timer("bam_index_build");
  TimerScope scope(build_timer);
  BAMImpl bam(bam_path);
  bam.open("r");
  bam.readHeader();
  checkBaiContigs(*bam.header);
  auto index = std::make_shared<BamIndex>();
  uint64_t begin = bam.tell();
  BamIndexHelper helper(*index, bam.header->contigCount(), bam_path, begin);
  bam_record record;
  while (bam.readRecord(record) > 0) {
    uint64_t end = bam.tell();
    helper.add(record.ref_id, record.pos, alignment_end(record), (record.flag & FLAG_UNMAPPED) == 0, begin,
               end, record.name());
    begin = end;
  }
  helper.finish(begin);
  return index;
}
