// The cursor over one BAM file, and the way to its reads without coordinates.
#include <cstdio>
#include <stdexcept>

#include "base/text.h"
#include "readdata/bam/bam_impl.h"

// State    `chunks_` from `chunk_` on are still to be read. Between requests `resume_` tells where in the
// file
//          the reads behind the last range begin; the first of them may stand in `held_` already.
class BAMImpl::Cursor final : public BAMHandle::FetchState {
 public:
  explicit Cursor(BAMImpl& handle) : handle_(handle) {}

  bool seek(int32_t contig, uint32_t start, uint32_t end) override;
  bool readNext() override;
  void close() override;

 private:
  static constexpr uint64_t kOpenEnd = ~uint64_t(0);

  bool nextRecord();
  bool nextUnplaced();
  bool nextPlaced();
  bool stop(uint64_t resume, bool hold);
  bool resume();
  void seekTo(uint64_t offset);
  void checkOrder();
  uint64_t lastChunkEnd();
  [[noreturn]] void failTruncated() const;
  [[noreturn]] void failForeign() const;
  [[noreturn]] void failBehind() const;

  BAMImpl& handle_;
  int32_t contig_ = -1;
  uint32_t start_ = 0, end_ = 0;
  bool active_ = false;

  std::vector<Chunk> chunks_;
  size_t chunk_ = 0;
  bool open_end_ = false;       // reading on without a lookup, to the end of the contig
  bool fresh_ = false;          // no record before the range's end was met since the lookup
  uint64_t record_offset_ = 0;  // of `current`
  uint64_t gap_ = 0;            // end of the chunk before, while `current` is the first record behind a jump

  uint64_t resume_ = 0;  // 0: the last range was not read to its end
  bool held_valid_ = false;
  bam_record held_;
  uint64_t held_end_ = 0;  // where the record behind it begins

  int32_t last_ref_ = -1, last_pos_ = -1;  // of the record before, -1 after a seek
  int32_t last_end_contig_ = -1;           // contig of last_chunk_end_
  uint64_t last_chunk_end_ = 0;
  uint64_t no_coor_count_ = 0;
};

void BAMImpl::Cursor::failTruncated() const {
  throw std::runtime_error("BAM file " + handle_.path + " ends before the reads that its index " +
                           handle_.index->path + " promises: truncated, or the index of another file");
}

void BAMImpl::Cursor::failForeign() const {
  throw std::runtime_error("BAM file " + handle_.path + " has " + handle_.placeText(current) +
                           " where its index " + handle_.index->path + " promises " +
                           (contig_ < 0 ? "reads without coordinates" : handle_.header->names[contig_]) +
                           ": not sorted, or the index of another file");
}

void BAMImpl::Cursor::failBehind() const {
  throw std::runtime_error("BAM file " + handle_.path + " has " + handle_.placeText(current) +
                           " behind the last one of " + handle_.header->names[contig_] + " that its index " +
                           handle_.index->path + " knows: not sorted, or the index of another file");
}

void BAMImpl::Cursor::checkOrder() {
  bool placed = current.ref_id >= 0;
  bool falls = last_ref_ >= 0 && placed &&
               (current.ref_id < last_ref_ || (current.ref_id == last_ref_ && current.pos < last_pos_));
  if (falls)
    throw std::runtime_error(format("BAM file %s is not sorted: %s follows one at %s:%lld",
                                    handle_.path.c_str(), handle_.placeText(current).c_str(),
                                    handle_.header->names[last_ref_].c_str(),
                                    static_cast<long long>(last_pos_) + 1));
  if (!placed) return;
  last_ref_ = current.ref_id;
  last_pos_ = current.pos;
}

uint64_t BAMImpl::Cursor::lastChunkEnd() {
  if (last_end_contig_ != contig_) {
    last_end_contig_ = contig_;
    last_chunk_end_ = handle_.index->contigs[contig_].lastChunkEnd();
  }
  return last_chunk_end_;
}

void BAMImpl::Cursor::seekTo(uint64_t offset) {
  if (handle_.tell() == offset) return;
  if (handle_.io->seek(static_cast<int64_t>(offset), SEEK_SET) >= 0) return;
  fprintf(stderr, "Failed to seek in BAM file %s: %s\n", handle_.path.c_str(),
          handle_.io->error_text().c_str());
  throw std::runtime_error("bam seek error");
}

// The next record of the chunks, into `current`; false when they are used up.
bool BAMImpl::Cursor::nextRecord() {
  if (held_valid_) {
    held_valid_ = false;
    current.swap(held_);
    record_offset_ = resume_;
    return true;
  }
  gap_ = 0;
  for (uint64_t at = handle_.tell(); chunk_ < chunks_.size();) {
    if (at < chunks_[chunk_].end) {
      record_offset_ = at;
      if (handle_.readRecord(current) > 0) {
        checkOrder();
        return true;
      }
      // An end that lies behind an empty last block is no promise of reads.
      if (handle_.tell() < (open_end_ ? lastChunkEnd() : chunks_[chunk_].end)) failTruncated();
      chunk_ = chunks_.size();
      return false;
    }
    if (++chunk_ < chunks_.size() && at < chunks_[chunk_].begin) {
      if (gap_ == 0) gap_ = at;
      at = chunks_[chunk_].begin;
      seekTo(at);
      handle_.sought_by_index_ = true;
    }
  }
  return false;
}

// Ends the range; the next one may go on from `resume`, with the record in `current` as its first if `hold`.
bool BAMImpl::Cursor::stop(uint64_t resume, bool hold) {
  active_ = false;
  resume_ = resume;
  held_valid_ = hold;
  if (hold) {
    held_.swap(current);
    held_end_ = handle_.tell();
  } else if (gap_ != 0) {
    last_ref_ = last_pos_ = -1;  // going back
  }
  return false;
}

bool BAMImpl::Cursor::nextPlaced() {
  while (nextRecord()) {
    if (current.ref_id != contig_) {
      // Chunks hold reads of one contig only. Reading on without them, the contig ends here.
      if (!open_end_ || record_offset_ < lastChunkEnd()) failForeign();
      return stop(record_offset_, true);
    }
    if (open_end_ && record_offset_ >= lastChunkEnd()) failBehind();
    auto pos = static_cast<uint32_t>(current.pos);
    if (pos >= end_) {
      // The chunks of wide bins may begin far behind the range. What stands between is known to a lookup only.
      if (fresh_) return stop(0, false);
      // Behind a jump, what was jumped over is behind this range as well and has to be read before this one.
      return gap_ != 0 ? stop(gap_, false) : stop(record_offset_, true);
    }
    fresh_ = false;
    if (pos >= start_ || alignment_end(current) > start_) return true;
  }
  return stop(fresh_ ? 0 : handle_.tell(), false);
}

bool BAMImpl::Cursor::nextUnplaced() {
  if (handle_.readRecord(current) > 0) {
    if (current.ref_id >= 0) failForeign();
    ++no_coor_count_;
    return true;
  }
  active_ = false;
  const BamIndex& index = *handle_.index;
  if (index.has_no_coor && no_coor_count_ != index.n_no_coor)
    throw std::runtime_error(format(
        "BAM file %s has %llu reads without coordinates, its index %s counts %llu: truncated, or the index "
        "of another file",
        handle_.path.c_str(), static_cast<unsigned long long>(no_coor_count_), index.path.c_str(),
        static_cast<unsigned long long>(index.n_no_coor)));
  return false;
}

bool BAMImpl::Cursor::readNext() {
  if (!active_) return false;
  return contig_ < 0 ? nextUnplaced() : nextPlaced();
}

// Goes on where the former range ended.
bool BAMImpl::Cursor::resume() {
  seekTo(held_valid_ ? held_end_ : resume_);
  chunks_.assign(1, {resume_, kOpenEnd});
  chunk_ = 0;
  open_end_ = true;
  fresh_ = false;
  return readNext();
}

bool BAMImpl::Cursor::seek(int32_t contig, uint32_t start, uint32_t end) {
  if (handle_.index == nullptr) {
    fprintf(stderr, "Index not loaded for BAM file %s\n", handle_.path.c_str());
    throw std::runtime_error("bam seek error");
  }
  bool continues = contig >= 0 && !active_ && resume_ > 0 && contig == contig_ && start == end_;
  contig_ = contig;
  start_ = start;
  end_ = end;
  active_ = true;
  if (continues) return resume();

  held_valid_ = false;
  resume_ = gap_ = 0;
  last_ref_ = last_pos_ = -1;
  open_end_ = false;
  if (contig < 0) {
    no_coor_count_ = 0;
    handle_.seekUnmapped();
    return readNext();
  }
  handle_.index->query(contig, start, end, chunks_);
  chunk_ = 0;
  fresh_ = true;
  if (!chunks_.empty()) {
    seekTo(chunks_[0].begin);
    handle_.sought_by_index_ = true;
  }
  return readNext();
}

void BAMImpl::Cursor::close() {
  active_ = held_valid_ = false;
  resume_ = 0;
}

std::unique_ptr<BAMHandle::FetchState> BAMImpl::newFetchState() {
  return std::make_unique<Cursor>(*this);
}

void BAMImpl::seekUnmapped() {
  auto fail = [&] {
    fprintf(stderr, "Cannot skip to unmapped reads\n");
    throw std::runtime_error("bam seek error");
  };
  uint64_t from = index != nullptr ? index->firstUnmappedOffset() : 0;
  if (from == 0) from = records_begin_;
  if (io->seek(static_cast<int64_t>(from), SEEK_SET) < 0) fail();
  sought_by_index_ = index != nullptr;
  bam_record record;
  uint64_t at;
  do {
    at = tell();
    if (readRecord(record) == 0) return;
    // Behind the last read that the index knows there is none with coordinates.
    if (index != nullptr && record.ref_id >= 0)
      throw std::runtime_error("BAM file " + path + " has " + placeText(record) +
                               " behind the last one that its index " + index->path +
                               " knows: not sorted, or the index of another file");
  } while (record.ref_id >= 0);
  if (io->seek(static_cast<int64_t>(at), SEEK_SET) < 0) fail();
}
