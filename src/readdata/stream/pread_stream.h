// pread_stream.h - a read-only stdio stream with a position of its own over a descriptor that others read
// too.
#pragma once

#include <cstddef>
#include <cstdio>

// A stream that reads `descriptor` with pread, from offset 0 on, through a buffer of `buffer_size` bytes.
// Closing it leaves the descriptor open. Null with errno ESPIPE when the descriptor is no regular file. A
// seek below 0 or past the size the file had at creation fails with EINVAL; seek anew before reading on,
// since stdio may have moved to the buffer's bounds.
FILE* open_pread_stream(int descriptor, size_t buffer_size = 65536);
