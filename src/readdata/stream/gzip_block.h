// gzip_block.h - a buffer to a gzip file in one go, for the blocks of container formats.
#pragma once

#include <cstddef>
#include <cstdint>

// Compresses `size` bytes at `input` to one gzip member and returns where it stands, or null after a line on
// standard error.
// Output    where `*output` points, `*output_size` bytes of room; or, with `*output` null, memory made here,
//           which the caller frees with free(). Both are set to what was made.
// Level     of zlib, -1 for its default. Strategy: of zlib; 10 or more is that strategy plus 10 and lets the
//           fast path make the output, level and strategy unregarded, unless it is Z_RLE or the processor
//           cannot. The environment variable use_igzip lets it always.
// crc_hint  the CRC-32 of the input when the caller has it, else null.
uint8_t* gzip_compress(const uint8_t* input, size_t size, uint8_t** output, size_t* output_size, int level,
                       int strategy, const uint32_t* crc_hint = nullptr);
