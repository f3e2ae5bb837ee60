#include "readdata/stream/open_stream.h"

#include "readdata/stream/bgzf_handle.h"
#include "readdata/stream/posix_io_handle.h"

namespace {

template <class Handle>
std::unique_ptr<IOHandle> openAs(const std::string& path, const char* mode, std::string* error) {
  auto handle = std::make_unique<Handle>();
  if (handle->openFile(path.c_str(), mode)) return handle;
  if (error != nullptr) *error = handle->error_text();
  return nullptr;
}

}  // namespace

std::unique_ptr<IOHandle> openStream(const std::string& path, const char* mode, std::string* error) {
  return path.ends_with(".gz") ? openAs<BGZFHandle>(path, mode, error)
                               : openAs<POSIXIOHandle>(path, mode, error);
}
