// posix_io_handle.h - a buffered plain file behind IOHandle. Contract as there; "-" is stdin or stdout.
#pragma once

#include <vector>

#include "readdata/stream/io_handle.h"

class POSIXIOHandle final : public IOHandle {
 public:
  POSIXIOHandle() = default;
  ~POSIXIOHandle() override;

  std::unique_ptr<IOHandle> clone() override;
  std::unique_ptr<IOHandle> open(const char* path, const char* mode) override;
  bool openFile(const char* path, const char* mode);  // on this handle; false with the error set
  int64_t read(void* buffer, size_t count) override;
  int64_t write(const void* buffer, size_t count) override;
  int64_t seek(int64_t offset, int whence) override;
  int64_t read_until(void* buffer, size_t limit, char delimiter) override;
  int flush() override;
  int copy(IOHandle& source, int64_t from, int64_t to, OffsetMap* map) override;
  int close() override;
  int error_code() const override { return error_; }
  std::string error_text() const override;
};
