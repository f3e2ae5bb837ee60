// io_handle.h - the one interface of file access below the readers and writers of sequence data.
// Owns     a handle owns its file (a clone shares it) and closes it when destroyed; close() tells whether
//          that worked.
// Threads  a handle belongs to one thread at a time; clones may run side by side.
// Errors   nothing here throws: calls return -1 (or null) and error_text() tells why.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

// Offset in the source -> offset in the destination, virtual ones for BGZF: the beginning of what was copied and of
// each block in it. An offset in between moves by the difference of the nearest pair at or below it.
using OffsetMap = std::map<uint64_t, uint64_t>;

class IOHandle {
 public:
  virtual ~IOHandle() = default;

  // A second handle on the same open file with a position of its own; read mode only, else null.
  virtual std::unique_ptr<IOHandle> clone() = 0;
  // A new handle of the same kind, with the settings of this one; null on failure, with the reason in `*error` when
  // that is given. This handle stays as it is, and may be in use by another thread meanwhile.
  virtual std::unique_ptr<IOHandle> open(const char* path, const char* mode,
                                         std::string* error = nullptr) const = 0;
  // Bytes read, less than `count` only at the end of the file, 0 there; -1 on failure.
  virtual int64_t read(void* buffer, size_t count) = 0;
  virtual int64_t write(const void* buffer, size_t count) = 0;  // `count` or -1
  virtual int64_t seek(int64_t offset, int whence) = 0;         // new position or -1
  // Reads up to and including `delimiter`, or `limit` bytes. The count, 0 at the end, -1 on failure.
  virtual int64_t read_until(void* buffer, size_t limit, char delimiter) = 0;
  virtual int flush() = 0;  // 0 or -1
  // Appends the region [from, to) of `source`, a handle of the same kind. `map` may be null.
  virtual int copy(IOHandle& source, int64_t from, int64_t to, OffsetMap* map) = 0;
  // Flushes and closes; 0, or -1 when anything that was written may not be on the disk. Closing twice is 0.
  virtual int close() = 0;
  virtual int error_code() const = 0;
  virtual std::string error_text() const = 0;

 protected:
  enum Flags : uint32_t { kWrite = 1, kClone = 2 };
  uint32_t flags_ = 0;
  int error_ = 0;  // an errno value
};
