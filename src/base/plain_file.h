// plain_file.h - opening an input that can be read anew from its beginning.
#pragma once

#include <cstdio>

// A stream that reads the file at `path`, or null with errno. A pipe or a device is refused with ESPIPE, and
// without waiting for its other end: it may never end, and cannot be rewound. A directory opens, as with
// fopen(), and fails with EISDIR at the first read. The caller closes the stream.
FILE* open_plain_file(const char* path);
