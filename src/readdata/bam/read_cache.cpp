#include "readdata/bam/read_cache.h"

#include <algorithm>
#include <cassert>
#include <stdexcept>

namespace {

// Bounds of what is kept of freed reads: their number, and the bytes of their records, alone and in all.
constexpr size_t kMaxSpareReads = 8192;
constexpr size_t kMaxSpareRecord = size_t(1) << 16;
constexpr size_t kMaxSpareBytes = size_t(1) << 25;

constexpr size_t kBaseTagHeaders = 2 * 4;  // "BI", "BD": tag, type and the terminating zero

// Puts the least front, which has changed, back in its place.
template <class Front>
void siftDown(std::vector<Front>& heap) {
  const Front moved = heap[0];
  size_t at = 0;
  for (size_t child = 1; child < heap.size(); child = 2 * at + 1) {
    if (child + 1 < heap.size() && heap[child + 1] < heap[child]) child++;
    if (!(heap[child] < moved)) break;
    heap[at] = heap[child];
    at = child;
  }
  heap[at] = moved;
}

}  // namespace

ReadCache::ReadCache(std::vector<BAMHandle*> handles, bool quiet, size_t batch_bytes)
    : input_(std::move(handles), InputSet::kNeedHeaderLine, quiet),
      transform_(std::make_unique<ReadTransform>()),
      cursors_(input_.handles().size()),
      batch_bytes_(batch_bytes) {}

ReadCache::~ReadCache() {
  clear();
}

void ReadCache::setTransform(std::unique_ptr<ReadTransform> transform) {
  assert(transform);
  transform_ = std::move(transform);
}

uint64_t ReadCache::readTotal() const {
  uint64_t total = 0;
  for (const BAMHandle* handle : input_.handles()) total += handle->readCount();
  return total;
}

void ReadCache::recycle(const Held& held) {
  if (held.read != held.record) delete held.read;
  std::unique_ptr<BAMRead> record(held.record);
  size_t bytes = size_t(record->record().data_capacity);
  if (spare_.size() >= kMaxSpareReads || bytes > kMaxSpareRecord || spare_bytes_ + bytes > kMaxSpareBytes)
    return;
  spare_bytes_ += bytes;
  spare_.push_back(std::move(record));
}

// Makes spare reads of all that is held, beyond the bounds too: the next batch takes them up at once, and
// trimSpare() drops what it leaves.
void ReadCache::retireBatch() {
  spare_.reserve(spare_.size() + readsHeld());
  for (size_t i = head_; i < reads_.size(); i++) {
    if (reads_[i].read != reads_[i].record) delete reads_[i].read;
    spare_bytes_ += size_t(reads_[i].record->record().data_capacity);
    spare_.emplace_back(reads_[i].record);
  }
  reads_.clear();
  head_ = 0;
}

void ReadCache::trimSpare() {
  size_t count = 0;
  spare_bytes_ = 0;
  std::erase_if(spare_, [&](const std::unique_ptr<BAMRead>& read) {
    size_t bytes = size_t(read->record().data_capacity);
    if (count >= kMaxSpareReads || bytes > kMaxSpareRecord || spare_bytes_ + bytes > kMaxSpareBytes)
      return true;
    count++;
    spare_bytes_ += bytes;
    return false;
  });
}

// Empties the window. The cursors go too: one that continues where it stopped would leave out reads that were
// in the window.
void ReadCache::clear() {
  for (size_t i = head_; i < reads_.size(); i++) recycle(reads_[i]);
  reads_.clear();
  head_ = 0;
  low_ = high_ = last_start_ = 0;
  fronts_.clear();
  for (auto& cursor : cursors_) cursor.reset();
}

BAMHandle::FetchState& ReadCache::cursor(size_t file) {
  if (!cursors_[file]) cursors_[file] = input_.handles()[file]->newFetchState();
  return *cursors_[file];
}

const Contig* ReadCache::setContig(const char* name) {
  int32_t number = input_.contigNumber(name);
  if (number != contig_ || number < 0) {
    clear();
    contig_ = number;
    no_coor_file_ = 0;
    no_coor_seeked_ = false;
  }
  return number < 0 ? nullptr : &input_.contigs()[number];
}

void ReadCache::load(uint32_t from, uint32_t to) {
  if (low_ > from) clear();
  low_ = std::max(low_, from);
  if (high_ >= to || from >= to) return;
  for (size_t bytes = 0; high_ < to;) {
    if (fronts_.empty() || low_ > high_) {
      const uint64_t ahead = std::min(uint64_t(high_) + kBatch, uint64_t(UINT32_MAX));
      openRange(std::max(low_, high_), std::max(uint32_t(ahead), to));
    }
    bytes = readRange(to, bytes);
  }
}

// Begins to read [from, to) of the current contig.
void ReadCache::openRange(uint32_t from, uint32_t to) {
  // Behind a gap the cursors look up anew and deliver again what began before the gap and reaches over it.
  held_below_ = from > high_ ? high_ : 0;
  range_end_ = to;
  fronts_.clear();
  if (contig_ < 0) return;
  for (size_t file = 0; file < cursors_.size(); file++)
    if (seekFile(file, from, to)) fronts_.push_back({uint32_t(cursors_[file]->current.pos), uint32_t(file)});
  std::make_heap(fronts_.begin(), fronts_.end(), [](const Front& a, const Front& b) { return b < a; });
}

// Reads on in the range: its reads that start below `to`, then others as long as the load has read less than
// batch_bytes_. Returns what the load has read, `bytes` of it before.
size_t ReadCache::readRange(uint32_t to, size_t bytes) {
  while (!fronts_.empty()) {
    const auto [position, file] = fronts_[0];
    // All reads of one start are in the window, or none.
    if (bytes >= batch_bytes_ && position >= to && position < range_end_ && position > last_start_) {
      high_ = position;
      return bytes;
    }
    bytes += addPlaced(file);
    if (cursors_[file]->readNext()) {
      fronts_[0].position = uint32_t(cursors_[file]->current.pos);
    } else {
      fronts_[0] = fronts_.back();
      fronts_.pop_back();
      if (fronts_.empty()) break;
    }
    siftDown(fronts_);
  }
  high_ = range_end_;
  return bytes;
}

bool ReadCache::seekFile(size_t file, uint32_t from, uint32_t to) {
  int32_t contig = input_.fileContig(file, contig_);
  return contig >= 0 && cursor(file).seek(contig, from, to);
}

void ReadCache::fail(const bam_record& record, size_t file, const char* what) const {
  throw std::runtime_error(std::string("Read (") + record.name() + ") " + what + " from " +
                           input_.handles()[file]->path);
}

// Takes the read on which the cursor of `file` stands, unless it is in the window already. Returns the bytes
// that it takes there.
size_t ReadCache::addPlaced(size_t file) {
  bam_record& record = cursors_[file]->current;
  if (record.ref_id != input_.fileContig(file, contig_))
    fail(record, file, "lies on another contig than asked");
  if (record.pos < 0 || uint32_t(record.pos) >= input_.contigs()[contig_].end)
    fail(record, file, "lies outside of its contig");
  uint32_t start = uint32_t(record.pos);
  if (start < held_below_) return 0;
  if (start < last_start_) fail(record, file, "is not in the order of positions");
  last_start_ = start;
  return add(record, file);
}

size_t ReadCache::loadNoCoor(size_t limit) {
  if (contig_ >= 0) setContig(kNoCoor);
  retireBatch();
  size_t loaded = 0, bytes = 0;
  while (loaded < limit && bytes < kNoCoorBytes && no_coor_file_ < cursors_.size()) {
    BAMHandle::FetchState& from = cursor(no_coor_file_);
    bool found = no_coor_seeked_ ? from.readNext() : from.seek(-1, 0, 0);
    no_coor_seeked_ = found;
    if (!found) {
      cursors_[no_coor_file_++].reset();
      continue;
    }
    if (from.current.ref_id >= 0) fail(from.current, no_coor_file_, "has a place among reads without one");
    bytes += add(from.current, no_coor_file_);
    loaded++;
  }
  trimSpare();
  return loaded;
}

// Takes the record, and returns the bytes of it.
size_t ReadCache::add(bam_record& record, size_t file) {
  int32_t group = input_.translate(file, record);
  // A read without mate has no mate's state either. With a mate the flag is left to what it says, also when
  // the mate is unmapped and without contig: a copy must not turn it into a mapped one.
  if (contig_ >= 0 && record.next_ref_id < 0 && !(record.flag & (FLAG_PAIRED | FLAG_UNMAPPED)))
    record.flag &= uint16_t(~FLAG_MATE_UNMAPPED);

  const bool base_tags = transform_->needsBaseTags(group);
  if (base_tags) record.growData(size_t(record.data_len) + 3 * size_t(record.l_seq) + kBaseTagHeaders);
  std::unique_ptr<BAMRead> owned;
  if (spare_.empty()) {
    owned = std::make_unique<BAMRead>();
  } else {
    owned = std::move(spare_.back());
    spare_.pop_back();
    spare_bytes_ -= size_t(owned->record().data_capacity);
  }
  owned->attach(record);
  owned->read_group = group;
  if (base_tags) owned->prepareBaseTags();
  owned->read_group = group;
  Read* read = transform_->transform(owned.get());
  assert(read);
  uint32_t end = std::max(read->end, read->start + 1);
  const size_t bytes = sizeof(BAMRead) + size_t(owned->record().data_capacity);
  keep({read, owned.release(), read->start, end});
  read_count_++;
  return bytes;
}

// Appends to the window; when that is full, the room of freed reads is taken back before it grows.
void ReadCache::keep(const Held& held) {
  if (reads_.size() == reads_.capacity() && head_ > reads_.size() / 2) {
    reads_.erase(reads_.begin(), reads_.begin() + int64_t(head_));
    head_ = 0;
  }
  reads_.push_back(held);
}

size_t ReadCache::fetch(uint32_t start, uint32_t end, uint32_t mask, std::vector<Read*>& out) {
  if (low_ >= end || high_ <= start) return 0;
  const size_t before = out.size();
  size_t at = head_, kept_end = head_;
  for (; at < reads_.size() && reads_[at].start < end; at++) {
    const Held held = reads_[at];
    if (held.end <= low_) {
      recycle(held);
      continue;
    }
    if (kept_end != at) reads_[kept_end] = held;
    kept_end++;
    if (held.end <= start) continue;
    const Read& read = *held.read;
    if (!mask || !((uint32_t(read.filter_class) << 16 | read.flag) & mask)) out.push_back(held.read);
  }
  // The reads that stay move up to those behind them.
  if (kept_end != at) {
    std::move_backward(reads_.begin() + int64_t(head_), reads_.begin() + int64_t(kept_end),
                       reads_.begin() + int64_t(at));
    head_ += at - kept_end;
  }
  return out.size() - before;
}

size_t ReadCache::fetchAll(uint32_t mask, std::vector<Read*>& out) {
  const size_t before = out.size();
  for (size_t i = head_; i < reads_.size(); i++) {
    Read* read = reads_[i].read;
    if (!((uint32_t(read->filter_class) << 16 | read->flag) & mask)) out.push_back(read);
  }
  return out.size() - before;
}
