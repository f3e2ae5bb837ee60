#include "readdata/bam/bam_writer.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

#include "base/text.h"
#include "readdata/stream/genome_bins.h"

void BamIndexData::add(int32_t ref_id, int32_t start, int64_t end, bool mapped, int64_t offset) {
  // A place that no index can hold stays as it is, for the builder to refuse.
  const bool indexable = ref_id >= 0 && start >= 0 && uint32_t(start) < kMaxBinnedLength;
  if (indexable) end = std::clamp<int64_t>(end, int64_t(start) + 1, kMaxBinnedLength);
  const uint32_t bin = indexable ? bin_of(uint32_t(start), uint32_t(end)) : 0;
  const uint32_t window = indexable ? uint32_t(end - 1) >> kWindowShift : 0;

  const IndexItem item{ref_id, start, int32_t(end), offset, mapped, !mapped};
  if ((ref_id < 0 || indexable) && joinsRun(ref_id, start, bin, window)) {
    ++(mapped ? items_.back().mapped : items_.back().unmapped);
  } else {
    if (!inOrder(ref_id, start)) splitLast();
    const bool same_contig = !items_.empty() && last_.ref_id == ref_id;
    last_window_ = same_contig ? std::max(last_window_, window) : window;
    items_.push_back(item);
  }
  last_ = item;
  bin_ = bin;
}

bool BamIndexData::inOrder(int32_t ref_id, int32_t start) const {
  if (items_.empty() || ref_id < 0) return true;
  return ref_id != last_.ref_id ? ref_id > last_.ref_id : start >= last_.start;
}

bool BamIndexData::joinsRun(int32_t ref_id, int32_t start, uint32_t bin, uint32_t last_window) const {
  if (items_.empty() || ref_id != last_.ref_id) return false;
  return ref_id < 0 || (start >= last_.start && bin == bin_ && last_window <= last_window_);
}

// Makes the last record an item of its own, so that the order of what follows is checked against it.
void BamIndexData::splitLast() {
  if (items_.empty()) return;
  IndexItem& run = items_.back();
  if (run.mapped + run.unmapped < 2) return;
  --(last_.mapped ? run.mapped : run.unmapped);
  items_.push_back(last_);
}

void BamIndexData::complete() {
  splitLast();
  items_.shrink_to_fit();
}

void BamIndexData::resolve(uint32_t block_index, uint64_t block_address) {
  auto place = [&](IndexItem& item) {
    if (item.offset >= 0) return true;
    const uint64_t in_file = uint64_t(-item.offset);
    if (in_file >> 16 != block_index) return false;
    item.offset = int64_t(block_address << 16 | (in_file & 0xffff));
    return true;
  };
  while (first_waiting_ < items_.size() && place(items_[first_waiting_])) ++first_waiting_;
  place(last_);
}

void BamIndexData::addTo(BamIndexHelper& helper, uint64_t position) const {
  for (const IndexItem& item : items_) {
    assert(item.offset >= 0);
    const bool mapped = item.mapped > 0;
    helper.add(item.ref_id, item.start, item.end, mapped, uint64_t(item.offset) + (position << 16), 0,
               nullptr);
    helper.addMore(item.mapped - mapped, item.unmapped - !mapped);
  }
}

uint64_t BamIndexData::memorySize() const {
  return sizeof *this + items_.capacity() * sizeof(IndexItem);
}

std::string indexPath(const std::string& output, const ReadWriterBase::Options& options) {
  auto named = options.find("output_index_file");
  return named != options.end() && !named->second.empty() ? named->second : output + ".bai";
}

BamWriter::BamWriter(std::string output, Options options)
    : ReadWriterBase(std::move(output), std::move(options)) {}

BamWriter::~BamWriter() = default;

void BamWriter::open(int sequence, std::shared_ptr<const bam_header> header, bool is_final, bool with_index) {
  assert(!handle_);
  current_ = sequence < 0 ? output_ : format("%s_%d", output_.c_str(), sequence);
  // What a killed run has left there goes, rather than what a link of that name leads to.
  if (sequence >= 0) unlink(current_.c_str());
  header_ = std::move(header);
  is_final_ = is_final;
  auto data = with_index ? std::make_unique<BamIndexData>() : nullptr;
  index_data_ = data.get();
  data_ = std::move(data);

  handle_ = std::make_unique<BAMImpl>(current_);
  handle_->open(modeText().c_str());
  if (header_ && is_final_) {
    if (with_index) checkBaiContigs(*header_);
    handle_->header = header_;
    handle_->writeHeader();
  }
}

void BamWriter::write(const bam_record& record) {
  if (index_data_) {
    BGZFHandle& file = handle_->bgzf();
    // A record lies in one block if it can, and its offset is where it will begin. A failure shows up in
    // the writing.
    file.ensure_room(sizeof(int32_t) + bam_record::kFixedSize + size_t(record.data_len));
    const int64_t offset = file.parallel() ? -file.tell() : file.tell();
    index_data_->add(record.ref_id, record.pos, alignment_end(record), !(record.flag & FLAG_UNMAPPED),
                     offset);
  }
  handle_->writeRecord(record);
}

void BamWriter::setParallel(thread_coop* pool) {
  handle_->bgzf().set_index_callback(index_data_ ? blockWritten : nullptr, index_data_);
  handle_->setParallel(pool);
}

void BamWriter::blockWritten(void* context, uint32_t block_index, uint64_t block_address) {
  static_cast<BamIndexData*>(context)->resolve(block_index, block_address);
}

void BamWriter::close() {
  assert(handle_);
  if (index_data_) index_data_->complete();
  uint64_t position = 0;
  if (is_final_) {
    handle_->flush();
    handle_->setParallel(nullptr);  // a failure shows up in the closing
    position = handle_->tell();
  }
  handle_->close();
  handle_.reset();
  if (is_final_ && index_data_)
    writeIndex((position & ~uint64_t(0xffff)) + (uint64_t(BGZFHandle::kEofSize) << 16));
  index_data_ = nullptr;
}

void BamWriter::writeIndex(uint64_t end_offset) {
  BamIndex index;
  BamIndexHelper helper(index, header_ ? header_->contigCount() : 0, current_, 0);
  index_data_->addTo(helper, 0);
  helper.finish(end_offset);
  const std::string path = indexPath(output_, options_);
  if (!index.save(path)) throw std::runtime_error("Failed to write to file " + path + ", " + strerror(errno));
}
