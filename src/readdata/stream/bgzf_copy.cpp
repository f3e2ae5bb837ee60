// Moving regions of BGZF files with as little inflating as can be.
#include <algorithm>
#include <cerrno>

#include "readdata/stream/bgzf_file.h"
#include "readdata/stream/bgzf_handle.h"

namespace {

constexpr int kWrongKind = -1;
constexpr int kSourceFailed = -2;
constexpr int kTargetFailed = -3;

}  // namespace

// Writes the bytes of the source's current block from its cursor up to `until`, in blocks of our own. The map
// gets a pair even when there are none.
int BGZFHandle::copyPiece(BGZFHandle& source, uint32_t until, OffsetMap* map) {
  do {
    uint32_t size = std::min<uint32_t>(until - source.block_offset_, kMaxBlock);
    if (ensure_room(size) != 0) return kTargetFailed;
    if (map != nullptr) (*map)[source.block_address_ << 16 | source.block_offset_] = tell();
    if (write(source.block_.get() + source.block_offset_, size) < 0) return kTargetFailed;
    source.block_offset_ += size;
  } while (source.block_offset_ < until);
  return 0;
}

// Writes the raw block that readRaw() of `source` has just given.
int BGZFHandle::copyRaw(BGZFHandle& source, size_t size) {
  if (writeRaw(Intake::ofThread().compressed.get(), size) != 0) return kTargetFailed;
  block_address_ += size;
  source.block_address_ = source.next_address_ += size;
  return 0;
}

// From the source's position up to the virtual offset `to`, which is not before it.
int BGZFHandle::copyBlocks(BGZFHandle& source, uint64_t to, OffsetMap* map) {
  uint64_t to_address = to >> 16;
  uint32_t to_offset = to & 0xffff;
  // A block that is entered in its middle is written anew.
  if (source.block_offset_ > 0) {
    if (source.block_length_ == 0 && source.readBlock() <= 0) return kSourceFailed;
    bool last = source.block_address_ == to_address;
    if (last && to_offset > source.block_length_) {
      source.fail(kUsage);
      return kSourceFailed;
    }
    int result = copyPiece(source, last ? to_offset : source.block_length_, map);
    if (result != 0 || last) return result;
  } else if (source.block_length_ > 0) {
    source.next_address_ = source.block_address_;
  }
  source.block_length_ = source.block_offset_ = 0;
  source.block_address_ = source.next_address_;

  if (source.next_address_ < to_address) {
    if (flush() != 0 || drainParallel() != 0) return kTargetFailed;
    while (source.next_address_ < to_address) {
      uint64_t from = source.next_address_;
      size_t size;
      int got = source.readRaw(&size);
      if (got == 0) source.fail(kIo, 0);
      if (got <= 0) return kSourceFailed;
      if (map != nullptr) (*map)[from << 16] = block_address_ << 16;
      if (copyRaw(source, size) != 0) return kTargetFailed;
    }
  }
  if (source.next_address_ != to_address) {  // `to` is in the middle of a block's bytes
    source.fail(kUsage);
    return kSourceFailed;
  }
  if (to_offset > 0) {
    int got = source.readBlock();
    if (got == 0) source.fail(kIo, 0);
    if (got > 0 && to_offset > source.block_length_) source.fail(kUsage);
    if (got <= 0 || to_offset > source.block_length_) return kSourceFailed;
    return copyPiece(source, to_offset, map);
  }
  if (map != nullptr) (*map)[to] = tell();
  return 0;
}

int BGZFHandle::copy(IOHandle& source, int64_t from, int64_t to, OffsetMap* map) {
  auto* other = dynamic_cast<BGZFHandle*>(&source);
  if (other == nullptr || !writeMode() || !other->readMode() || (map != nullptr && parallel())) {
    fail(kUsage);
    return kWrongKind;
  }
  if (error_kind_ != 0) return kTargetFailed;
  if (to < from || other->seek(from, SEEK_SET) < 0) {
    other->fail(kUsage);
    return kSourceFailed;
  }
  return copyBlocks(*other, static_cast<uint64_t>(to), map);
}

int BGZFHandle::copy_rest(BGZFHandle& destination) {
  if (!readMode() || !destination.writeMode()) {
    fail(kUsage);
    return kWrongKind;
  }
  if (block_offset_ > 0 || block_length_ > 0) {
    if (block_length_ == 0 && readBlock() <= 0) return kSourceFailed;
    int result = destination.copyPiece(*this, block_length_, nullptr);
    if (result != 0) return result;
  }
  block_length_ = block_offset_ = 0;
  block_address_ = next_address_;
  if (destination.flush() != 0 || destination.drainParallel() != 0) return kTargetFailed;
  for (;;) {
    size_t size;
    int got = readRaw(&size);
    if (got < 0) return kSourceFailed;
    if (got == 0) return 0;
    if (destination.copyRaw(*this, size) != 0) return kTargetFailed;
  }
}
