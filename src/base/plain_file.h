// plain_file.h - opening an input that can be read anew from its beginning, closing an output, and the owner of a stream.
#pragma once

#include <cstdio>
#include <memory>

// Closes the stream when it goes out of scope; release() and fclose() where the result counts.
struct FileCloser {
  void operator()(FILE* stream) const { fclose(stream); }
};
using FileOwner = std::unique_ptr<FILE, FileCloser>;

// Closes a stream that was written to. False, with errno, when any of it failed: the file is then empty, so that a part
// is not taken for the whole.
bool close_written(FileOwner stream);

// A stream that reads the file at `path`, or null with errno. A pipe or a device is refused with ESPIPE, and
// without waiting for its other end: it may never end, and cannot be rewound. A directory opens, as with
// fopen(), and fails with EISDIR at the first read. The caller closes the stream.
FILE* open_plain_file(const char* path);
