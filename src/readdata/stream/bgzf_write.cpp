// The writing side of BGZFHandle: blocks made on this thread or on the pool.
#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "readdata/stream/bgzf_file.h"
#include "readdata/stream/bgzf_handle.h"
#include "readdata/stream/block_lz.h"

namespace {

constexpr size_t kRecordsPerThread = 4;
constexpr size_t kMinRecords = 8;

// The fast path takes its codes from the bytes of some blocks: ever rarer ones at the start, where a header may
// come before data of another kind, then every 256th. They depend on the place in the file alone, so that the
// bytes are the same whichever thread makes a block.
constexpr uint32_t kTrainingInterval = 256;
bool isTrainingBlock(uint32_t index) {
  return index % kTrainingInterval == 0 || (index < kTrainingInterval && (index & (index - 1)) == 0);
}

}  // namespace

int64_t BGZFHandle::writeSlow(const void* buffer, size_t count) {
  if (!writeMode()) return fail(kUsage);
  if (error_kind_ != 0) return -1;  // what is missing cannot be made good
  auto* from = static_cast<const uint8_t*>(buffer);
  size_t done = 0;
  while (done < count) {
    size_t piece = std::min<size_t>(count - done, kMaxBlock - block_offset_);
    memcpy(block_.get() + block_offset_, from + done, piece);
    block_offset_ += static_cast<uint32_t>(piece);
    done += piece;
    if (block_offset_ == kMaxBlock && flush() != 0) return -1;
  }
  return static_cast<int64_t>(count);
}

int BGZFHandle::ensure_room(size_t count) {
  if (!writeMode()) return fail(kUsage);
  return count > kMaxBlock - block_offset_ ? flush() : 0;
}

int BGZFHandle::writeRaw(const uint8_t* data, size_t size) {
  if (error_kind_ != 0) return -1;
  errno = 0;
  if (fwrite(data, 1, size, file_->stream) != size) return fail(kIo, errno != 0 ? errno : EIO);
  return 0;
}

int BGZFHandle::writeBlock(const uint8_t* data, int size, uint32_t index) {
  if (error_kind_ != 0) return -1;
  if (size < 0) return fail(kZlib);
  if (writeRaw(data, size) != 0) return -1;
  if (index_callback_ != nullptr) index_callback_(index_context_, index, block_address_);
  block_address_ += size;
  return 0;
}

int BGZFHandle::flush() {
  if (!writeMode()) return fail(kUsage);
  if (error_kind_ != 0) return -1;
  if (block_offset_ == 0) return 0;
  if (writeFinished() != 0) return -1;
  if (compressor_->fast() && isTrainingBlock(block_index_))
    tables_ = std::make_shared<FastLzTables>(block_.get(), block_offset_);
  const bool helped = parallel_ != nullptr && parallel_->pool->wantsTask();
  if (!helped && (parallel_ == nullptr || parallel_->in_flight.empty())) {
    int size = compressor_->compress(block_.get(), block_offset_, compressed_.get(), tables_.get());
    block_offset_ = 0;
    return writeBlock(compressed_.get(), size, block_index_++);
  }
  Parallel& parallel = *parallel_;
  if (parallel.free.empty()) {
    if (parallel.records.size() < parallel.limit) {
      parallel.records.push_back(std::make_unique<Record>(level_, fast_));
      parallel.free.push_back(parallel.records.back().get());
    } else if (writeOldest() != 0) {
      return -1;
    }
  }
  Record* record = parallel.free.back();
  parallel.free.pop_back();
  std::swap(block_, record->input);
  record->input_size = block_offset_;
  record->index = block_index_++;
  block_offset_ = 0;
  auto compress = [record, tables = tables_] {
    record->output_size = record->compressor.compress(record->input.get(), record->input_size,
                                                      record->output.get(), tables.get());
  };
  // While no worker is free for it, the block is made here, where its bytes are still in the cache.
  if (helped)
    record->done = parallel.pool->submit(compress);
  else
    compress();
  parallel.in_flight.push_back(record);
  return 0;
}

// Writes the blocks that need not be waited for.
int BGZFHandle::writeFinished() {
  if (parallel_ == nullptr) return 0;
  while (!parallel_->in_flight.empty()) {
    const std::future<void>& done = parallel_->in_flight.front()->done;
    if (done.valid() && done.wait_for(std::chrono::seconds(0)) != std::future_status::ready) break;
    if (writeOldest() != 0) return -1;
  }
  return 0;
}

// Waits for the block that comes next in the file, and writes it.
int BGZFHandle::writeOldest() {
  Parallel& parallel = *parallel_;
  bool b = !parallel.in_flight.empty();
  assert(b);
  Record* record = parallel.in_flight.front();
  parallel.in_flight.pop_front();
  if (record->done.valid()) parallel.pool->waitFor(record->done);
  record->done = {};
  parallel.free.push_back(record);
  return writeBlock(record->output.get(), record->output_size, record->index);
}

// All blocks are waited for, also after a failure: tasks use their memory.
int BGZFHandle::drainParallel() {
  if (parallel_ == nullptr) return 0;
  while (!parallel_->in_flight.empty()) writeOldest();
  return error_kind_ != 0 ? -1 : 0;
}

int BGZFHandle::set_parallel(thread_coop* pool) {
  if (!writeMode()) return fail(kUsage);
  int result = drainParallel();
  if (pool == nullptr) {
    parallel_.reset();
  } else {
    parallel_ = std::make_unique<Parallel>();
    parallel_->pool = pool;
    parallel_->limit = std::max<size_t>(kMinRecords, kRecordsPerThread * std::thread::hardware_concurrency());
  }
  return result;
}
