// bgzf_handle.h - blocked gzip files, as the SAM format document describes them: reading with virtual
// offsets, writing on one thread or with blocks compressed on the pool. Units    a virtual offset is (file
// offset of the block << 16) | offset inside the uncompressed block. Owns     its FILE and its buffers.
// Threads, errors: as IOHandle. Cost     three 64 KiB buffers; no allocation per block.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "base/thread_coop.h"
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
  ~BGZFHandle() override;

  // True when the file begins with a BGZF block header.
  static bool is_bgzf(const char* path);

  std::unique_ptr<IOHandle> clone() override;
  // Mode: 'r' reads, 'w' writes, digits give the level (above 9: the default), 'u' level 0. "-" is stdin or
  // stdout.
  std::unique_ptr<IOHandle> open(const char* path, const char* mode) override;
  bool openFile(const char* path, const char* mode);  // on this handle; false with the error set

  int64_t read(void* buffer, size_t count) override;
  int64_t write(const void* buffer, size_t count) override;
  int64_t seek(int64_t offset, int whence) override;  // SEEK_SET in read mode; SEEK_CUR with 0 in both
  int64_t read_until(void* buffer, size_t limit, char delimiter) override;
  int flush() override;
  int copy(IOHandle& source, int64_t from, int64_t to, OffsetMap* map) override;
  int close() override;
  int error_code() const override;
  std::string error_text() const override;

  // The virtual offset of the next byte. In parallel mode the block's address is not known yet, and the
  // number of the block, block_index(), stands in its place.
  int64_t tell() const;
  int ensure_room(size_t count);  // ends the block when `count` more bytes would not fit in it
  // Reads the last 28 bytes and restores the position: 1 there is an end marker, 0 there is none, -1 failure.
  int has_eof();
  // Moves all that is left of this handle, from its position on, to `destination`, whole blocks uninflated.
  // The end marker is moved too, when there is one.
  int copy_rest(BGZFHandle& destination);

  // From now on blocks are compressed by tasks of `pool`; null goes back to plain writing (waits for all
  // blocks).
  int set_parallel(thread_coop* pool);
  bool parallel() const;
  void set_index_callback(IndexCallback callback, void* context);

  uint64_t block_address()
      const;                     // file offset of the current block; in write mode, of the next block written
  uint32_t block_index() const;  // number of blocks handed to flush so far
  uint32_t block_offset() const;  // cursor in the current uncompressed block

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
