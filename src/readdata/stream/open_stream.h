// open_stream.h - the handle that suits a file's name.
#pragma once

#include <memory>
#include <string>

#include "readdata/stream/io_handle.h"

// A BGZFHandle for a name that ends in ".gz", else a POSIXIOHandle, opened with `mode` as their open() says. Null on
// failure, with the reason in `*error` when that is given.
std::unique_ptr<IOHandle> openStream(const std::string& path, const char* mode, std::string* error = nullptr);
