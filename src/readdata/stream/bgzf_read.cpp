// The reading side of BGZFHandle: blocks, their cache of two, seeks.
#include <algorithm>
#include <cassert>
#include <cerrno>
#include <utility>

#include "readdata/stream/bgzf_file.h"
#include "readdata/stream/bgzf_handle.h"

namespace {

constexpr uint64_t kUnknownPosition = ~uint64_t{0};

}  // namespace

BGZFHandle::Intake& BGZFHandle::Intake::ofThread() {
  thread_local Intake intake;
  return intake;
}

void BGZFHandle::swapBlocks() {
  std::swap(block_, other_block_);
  std::swap(block_length_, other_length_);
  std::swap(block_address_, other_address_);
  std::swap(next_address_, other_next_);
}

int BGZFHandle::seekFile(uint64_t address) {
  if (address == file_position_) return 0;
  if (fseeko(file_->stream, static_cast<off_t>(address), SEEK_SET) != 0) {
    file_position_ = kUnknownPosition;
    return fail(kIo, errno);
  }
  file_position_ = address;
  return 0;
}

int BGZFHandle::readRaw(size_t* size) {
  if (seekFile(next_address_) != 0) return -1;
  FILE* stream = file_->stream;
  uint8_t* compressed = Intake::ofThread().compressed.get();
  errno = 0;
  size_t got = fread_unlocked(compressed, 1, bgzf::kHeaderSize, stream);
  file_position_ += got;
  if (got == 0 && !ferror(stream)) return 0;
  if (got < bgzf::kHeaderSize) {
    if (!ferror(stream)) return fail(kHeader);
    int number = errno;
    clearerr(stream);
    file_position_ = kUnknownPosition;
    return fail(kIo, number != 0 ? number : EIO);
  }
  *size = bgzf::blockSize(compressed);
  if (*size == 0) return fail(kHeader);
  size_t rest = *size - bgzf::kHeaderSize;
  got = fread_unlocked(compressed + bgzf::kHeaderSize, 1, rest, stream);
  file_position_ += got;
  if (got == rest) return 1;
  int number = ferror(stream) ? errno : 0;  // without a failure the file has just ended too early
  clearerr(stream);
  file_position_ = kUnknownPosition;
  return fail(kIo, number);
}

int BGZFHandle::readBlock() {
  // What a seek asked for, or the block after the current one.
  uint32_t cursor = block_length_ == 0 ? block_offset_ : 0;
  uint64_t address = next_address_;
  if (other_length_ > 0 && other_address_ == address) {
    swapBlocks();
  } else {
    // The younger of the two blocks at hand stays in the second place.
    if (block_length_ > 0 && (other_length_ == 0 || other_address_ < block_address_)) swapBlocks();
    block_length_ = 0;
    block_address_ = next_address_ = address;
    block_offset_ = cursor;
    size_t size;
    int got = readRaw(&size);
    if (got < 0) return -1;
    if (got == 0) return cursor == 0 ? 0 : fail(kUsage);
    if (block_ == nullptr) block_ = std::make_unique_for_overwrite<uint8_t[]>(bgzf::kMaxSize);
    Intake& intake = Intake::ofThread();
    switch (
        intake.inflater.inflate(intake.compressed.get(), size, verify_crc_, block_.get(), &block_length_)) {
      case BlockInflater::kBadData:
        return fail(kZlib);
      case BlockInflater::kBadCrc:
        return fail(kCrc);
      case BlockInflater::kGood:
        break;
    }
    next_address_ = address + size;
  }
  block_offset_ = cursor;
  if (cursor <= block_length_) return 1;
  // The offset is none of this block: the same seek fails again at the next read.
  block_length_ = 0;
  next_address_ = block_address_;
  return fail(kUsage);
}

int64_t BGZFHandle::readSlow(void* buffer, size_t count) {
  bool rw_mode = (flags_ & kWrite) != 0;
  assert(rw_mode == 0);
  if (!open_) return fail(kUsage);
  auto* to = static_cast<uint8_t*>(buffer);
  size_t done = 0;
  while (done < count) {
    if (block_length_ <= block_offset_) {
      int got = readBlock();
      if (got < 0) return -1;
      if (got == 0) break;
    }
    size_t piece = std::min<size_t>(count - done, block_length_ - block_offset_);
    memcpy(to + done, block_.get() + block_offset_, piece);
    block_offset_ += static_cast<uint32_t>(piece);
    done += piece;
  }
  return static_cast<int64_t>(done);
}

int64_t BGZFHandle::read_until(void* buffer, size_t limit, char delimiter) {
  if (!readMode()) return fail(kUsage);
  auto* to = static_cast<uint8_t*>(buffer);
  size_t done = 0;
  while (done < limit) {
    if (block_length_ <= block_offset_) {
      int got = readBlock();
      if (got < 0) return -1;
      if (got == 0) break;
    }
    const uint8_t* from = block_.get() + block_offset_;
    size_t piece = std::min<size_t>(limit - done, block_length_ - block_offset_);
    const void* found = memchr(from, delimiter, piece);
    if (found != nullptr) piece = static_cast<const uint8_t*>(found) - from + 1;
    memcpy(to + done, from, piece);
    block_offset_ += static_cast<uint32_t>(piece);
    done += piece;
    if (found != nullptr) break;
  }
  return static_cast<int64_t>(done);
}

int64_t BGZFHandle::seek(int64_t offset, int whence) {
  if (open_ && whence == SEEK_CUR && offset == 0) return tell();
  if (!readMode() || whence != SEEK_SET || offset < 0) return fail(kUsage);
  uint64_t address = static_cast<uint64_t>(offset) >> 16;
  uint32_t cursor = offset & 0xffff;
  if (file_size_ >= 0 && address > static_cast<uint64_t>(file_size_)) return fail(kIo, EINVAL);
  bool current = block_length_ > 0 && block_address_ == address;
  bool other = !current && other_length_ > 0 && other_address_ == address;
  if (current || other) {
    if (cursor > (current ? block_length_ : other_length_)) return fail(kUsage);
    if (other) swapBlocks();
    block_offset_ = cursor;
    return offset;
  }
  if (block_length_ > 0 && (other_length_ == 0 || other_address_ < block_address_)) swapBlocks();
  block_length_ = 0;
  block_offset_ = cursor;
  block_address_ = next_address_ = address;
  return offset;
}
