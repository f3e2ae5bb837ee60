// posix_io_handle.h - a buffered plain file behind IOHandle. Contract as there; "-" is stdin or stdout.
// Errors   error_code() is an errno value: EBADF for wrong use. After a failed write all further ones fail.
#pragma once

#include <memory>
#include <sys/types.h>

#include "readdata/stream/io_handle.h"

class POSIXIOHandle final : public IOHandle {
 public:
  POSIXIOHandle() = default;
  ~POSIXIOHandle() override;

  std::unique_ptr<IOHandle> clone() override;
  // A mode that begins with 'r' reads, any other writes a new file.
  std::unique_ptr<IOHandle> open(const char* path, const char* mode,
                                 std::string* error = nullptr) const override;
  bool openFile(const char* path, const char* mode);  // on this handle; false with the error set
  int64_t read(void* buffer, size_t count) override;
  int64_t write(const void* buffer, size_t count) override;
  int64_t seek(int64_t offset, int whence) override;
  int64_t read_until(void* buffer, size_t limit, char delimiter) override;
  int flush() override;
  // 0; -1 when `source` is no POSIXIOHandle or a handle is in the wrong mode, -2 for a failure of `source`
  // (its error tells), -3 for a failure of this handle. The map gets the one pair (from, position here).
  int copy(IOHandle& source, int64_t from, int64_t to, OffsetMap* map) override;
  int close() override;
  int error_code() const override { return error_; }
  std::string error_text() const override;

 private:
  struct Descriptor;

  static constexpr size_t kBufferSize = 16384;

  int fail(int number);  // sets the error; -1
  bool readMode() const { return descriptor_ != nullptr && (flags_ & kWrite) == 0; }
  bool writeMode() const { return descriptor_ != nullptr && (flags_ & kWrite) != 0; }
  ssize_t readFile(void* buffer, size_t count);  // at position_, which it moves
  int writeFile(const void* buffer, size_t count);
  ssize_t fill();  // bytes now in the empty buffer, 0 at the end, -1
  int64_t tell() const;

  std::shared_ptr<Descriptor> descriptor_;  // shared by the clones
  int64_t position_ = 0;  // in the file: where the buffer ends (reading) or begins (writing)
  int64_t size_ = -1;     // at the opening, -1 when unknown
  std::unique_ptr<char[]> buffer_;
  size_t cursor_ = 0;  // in the buffer
  size_t left_ = 0;    // bytes to read behind the cursor
};
