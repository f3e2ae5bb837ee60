// bgzf_handle.h - blocked gzip files, as the SAM format document describes them: reading with virtual
// offsets, writing on one thread or with blocks compressed on the pool.
// Units    a virtual offset is (file offset of the block << 16) | offset inside the uncompressed block.
// Owns     its FILE and its buffers; clones keep the file open that they read.
// Threads, errors: as IOHandle.
// Cost     writing three 64 KiB buffers, reading two from the first read on; no allocation per block.
#pragma once

#include <cassert>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "base/thread_coop.h"
#include "readdata/stream/block_codec.h"
#include "readdata/stream/io_handle.h"

class BGZFHandle final : public IOHandle {
 public:
  static constexpr int kMaxBlock = 0xff00;  // uncompressed bytes per block that we write
  static constexpr int kHeaderSize = 18;
  static constexpr int kEofSize = 28;
  static const uint8_t kEofBlock[kEofSize];  // the empty block that ends a whole file

  enum ErrorKind { kZlib = 1, kHeader = 2, kIo = 4, kUsage = 8, kCrc = 16 };

  // Called for each written block in file order: its number and its address in the file.
  using IndexCallback = void (*)(void* context, uint32_t block_index, uint64_t block_address);

  BGZFHandle();
  // Closes. When an exception is unwinding the stack the end marker is left out, so that the file does not
  // look whole.
  ~BGZFHandle() override;

  // True when the file begins with a BGZF block header.
  static bool is_bgzf(const char* path);

  std::unique_ptr<IOHandle> clone() override;
  // Mode: 'r' reads, 'w' writes, digits give the level (above 9: the default), 'u' level 0. "-" is stdin or
  // stdout. Without digits the new handle has the level of this one.
  std::unique_ptr<IOHandle> open(const char* path, const char* mode,
                                 std::string* error = nullptr) const override;
  bool openFile(const char* path, const char* mode);  // on this handle; false with the error set

  int64_t read(void* buffer, size_t count) override;
  int64_t write(const void* buffer, size_t count) override;
  int64_t seek(int64_t offset, int whence) override;  // SEEK_SET in read mode; SEEK_CUR with 0 in both
  int64_t read_until(void* buffer, size_t limit, char delimiter) override;
  int flush() override;  // ends the block
  // Whole blocks of the region move uninflated. 0; -1 when `source` is no BGZFHandle or a handle is in the
  // wrong mode, -2 for a failure of `source` (its error tells), -3 for a failure of this handle. In parallel
  // mode `map` must be null (else -1): it could only hold the block numbers that tell() gives.
  int copy(IOHandle& source, int64_t from, int64_t to, OffsetMap* map) override;
  int close() override;
  int error_code() const override;  // the bit set of ErrorKind
  std::string error_text() const override;

  // The virtual offset of the next byte. In parallel mode the block's address is not known yet, and the
  // number of the block, block_index(), stands in its place.
  int64_t tell() const;
  int ensure_room(size_t count);  // ends the block when `count` more bytes would not fit in it
  // Reads the last 28 bytes, wherever the handle stands: 1 there is an end marker, 0 there is none, -1 it
  // cannot be told (a pipe, or a failure to read). Neither position nor error change.
  int has_eof();
  // Moves all that is left of this handle, from its position on, to `destination`, whole blocks uninflated.
  // The end marker is moved too, when there is one. Results as of copy().
  int copy_rest(BGZFHandle& destination);

  // The next `count` bytes where they lie, when one block holds them all and it is loaded; else null. They
  // stay valid until the next call of any other kind. skip() then passes over bytes so seen.
  const uint8_t* peek(size_t count) const;
  void skip(size_t count);

  // From now on blocks are compressed by tasks of `pool` as long as it has idle workers, and here when it has
  // none; null goes back to plain writing (waits for all blocks).
  int set_parallel(thread_coop* pool);
  bool parallel() const;
  void set_index_callback(IndexCallback callback, void* context);

  // Whether the checksums of blocks read are compared. At first as the environment says: on when it has
  // bgzf_verify_crc. Clones inherit it.
  void set_verify_crc(bool verify);

  uint64_t block_address()
      const;                     // file offset of the current block; in write mode, of the next block written
  uint32_t block_index() const;  // number of blocks handed to flush so far
  uint32_t block_offset() const;  // cursor in the current uncompressed block

 private:
  struct File;      // the stream, and the one that a clone depends on
  struct Intake;    // memory for the block being read
  struct Parallel;  // blocks that are being compressed
  struct Record;    // one of them

  bool readMode() const;
  bool writeMode() const;
  int fail(int kind, int number = 0);  // sets the error; -1

  int64_t readSlow(void* buffer, size_t count);
  int64_t writeSlow(const void* buffer, size_t count);
  int readBlock();            // 1 a block is current and the cursor in it, 0 end of file, -1 failure
  int readRaw(size_t* size);  // the block at next_address_ into the Intake: 1, 0 or -1 likewise
  int seekFile(uint64_t address);
  void swapBlocks();
  int writeRaw(const uint8_t* data, size_t size);
  int writeBlock(const uint8_t* data, int size, uint32_t index);
  int writeFinished();
  int writeOldest();
  int drainParallel();
  int copyRaw(BGZFHandle& source, size_t size);
  int copyPiece(BGZFHandle& source, uint32_t until, OffsetMap* map);
  int copyBlocks(BGZFHandle& source, uint64_t to, OffsetMap* map);

  int error_kind_ = 0;
  int level_ = -1;
  bool fast_ = false;
  bool open_ = false;
  bool verify_crc_;
  int exceptions_ = 0;  // in flight at the opening

  std::shared_ptr<File> file_;
  uint64_t file_position_ = 0;  // where the stream stands, in read mode
  int64_t file_size_ = -1;      // of a regular file in read mode

  // In read mode, block_length_ 0 with a cursor above 0 is a seek that the next read carries out.
  std::unique_ptr<uint8_t[]> block_;
  std::unique_ptr<uint8_t[]> compressed_;  // in write mode
  uint32_t block_length_ = 0;              // always 0 in write mode
  uint32_t block_offset_ = 0;
  uint64_t block_address_ = 0;
  uint64_t next_address_ = 0;

  // The block read before the current one; in write mode the memory is the stream's buffer.
  std::unique_ptr<uint8_t[]> other_block_;
  uint32_t other_length_ = 0;  // 0: there is none
  uint64_t other_address_ = 0;
  uint64_t other_next_ = 0;

  uint32_t block_index_ = 0;
  IndexCallback index_callback_ = nullptr;
  void* index_context_ = nullptr;
  std::unique_ptr<BlockCompressor> compressor_;
  std::shared_ptr<const FastLzTables> tables_;  // of the fast path; blocks on their way hold on to theirs
  std::unique_ptr<Parallel> parallel_;
};

// The small reads and writes of records end here nearly always.

inline int64_t BGZFHandle::read(void* buffer, size_t count) {
  if (block_length_ <= block_offset_ || count > block_length_ - block_offset_) return readSlow(buffer, count);
  memcpy(buffer, block_.get() + block_offset_, count);
  block_offset_ += static_cast<uint32_t>(count);
  return static_cast<int64_t>(count);
}

inline int64_t BGZFHandle::write(const void* buffer, size_t count) {
  if (!writeMode() || error_kind_ != 0 || count >= kMaxBlock - block_offset_) return writeSlow(buffer, count);
  memcpy(block_.get() + block_offset_, buffer, count);
  block_offset_ += static_cast<uint32_t>(count);
  return static_cast<int64_t>(count);
}

inline const uint8_t* BGZFHandle::peek(size_t count) const {
  if (block_length_ <= block_offset_ || count > block_length_ - block_offset_) return nullptr;
  return block_.get() + block_offset_;
}

inline void BGZFHandle::skip(size_t count) {
  block_offset_ += static_cast<uint32_t>(count);
}

inline bool BGZFHandle::readMode() const {
  return open_ && (flags_ & kWrite) == 0;
}
inline bool BGZFHandle::writeMode() const {
  return open_ && (flags_ & kWrite) != 0;
}
inline bool BGZFHandle::parallel() const {
  return parallel_ != nullptr;
}
inline uint32_t BGZFHandle::block_index() const {
  return block_index_;
}
inline uint32_t BGZFHandle::block_offset() const {
  return block_offset_;
}
