#include "readdata/stream/block_codec.h"

#include <cstdlib>
#include <cstring>
#include <libdeflate.h>
#include <new>

#include "base/host.h"
#include "readdata/stream/fast_lz.h"

namespace {

void put16(uint8_t* at, uint32_t value) {
  at[0] = value & 0xff;
  at[1] = value >> 8 & 0xff;
}

void put32(uint8_t* at, uint32_t value) {
  put16(at, value);
  put16(at + 2, value >> 16);
}

uint32_t get32(const uint8_t* at) {
  return at[0] | at[1] << 8 | at[2] << 16 | static_cast<uint32_t>(at[3]) << 24;
}

constexpr int kDefaultLevel = 6;

}  // namespace

const uint8_t bgzf::kHeader[16] = {0x1f, 0x8b, 8, 4, 0, 0, 0, 0, 0, 0xff, 6, 0, 'B', 'C', 2, 0};

size_t bgzf::blockSize(const uint8_t* header) {
  // Time, extra flags and operating system are free.
  bool good = header[0] == 0x1f && header[1] == 0x8b && header[2] == 8 && (header[3] & 4) != 0 &&
              header[10] == 6 && header[11] == 0 && header[12] == 'B' && header[13] == 'C' &&
              header[14] == 2 && header[15] == 0;
  if (!good) return 0;
  size_t size = (header[16] | header[17] << 8) + 1;
  return size > kHeaderSize + kFooterSize ? size : 0;
}

uint32_t gzip_crc32(uint32_t crc, const void* data, size_t size) {
  return libdeflate_crc32(crc, data, size);
}

bool fast_deflate_forced() {
  static const bool forced = getenv("use_igzip") != nullptr;
  return forced;
}

void BlockCompressor::Free::operator()(libdeflate_compressor* compressor) const {
  libdeflate_free_compressor(compressor);
}

BlockCompressor::BlockCompressor(int level, bool fast)
    : level_(level < 0 || level > 9 ? kDefaultLevel : level),
      fast_((fast || fast_deflate_forced()) && cpu_has_fast_deflate()) {}

BlockCompressor::~BlockCompressor() = default;

size_t BlockCompressor::deflateFast(const uint8_t* input, size_t size, uint8_t* output, size_t room,
                                    const FastLzTables* tables) {
  if (stream_ == nullptr) stream_ = std::make_unique<LZ_Stream2>();
  stream_->reset(tables);
  stream_->next_in = input;
  stream_->avail_in = static_cast<uint32_t>(size);
  stream_->end_of_stream = true;
  stream_->next_out = output;
  stream_->avail_out = static_cast<uint32_t>(room);
  fast_lz(stream_.get());
  return stream_->finished() ? stream_->total_out : 0;
}

size_t BlockCompressor::deflatePlain(const uint8_t* input, size_t size, uint8_t* output, size_t room) {
  if (plain_ == nullptr) plain_.reset(libdeflate_alloc_compressor(level_));
  if (plain_ == nullptr) return 0;
  return libdeflate_deflate_compress(plain_.get(), input, size, output, room);
}

int BlockCompressor::compress(const uint8_t* input, size_t size, uint8_t* output,
                              const FastLzTables* tables) {
  uint8_t* data = output + bgzf::kHeaderSize;
  constexpr size_t kRoom = bgzf::kMaxSize - bgzf::kHeaderSize - bgzf::kFooterSize;
  // A block has no room to grow into, so what the fast path blows up is left to the plain one, which stores
  // it.
  size_t length = fast_ ? deflateFast(input, size, data, kRoom, tables) : 0;
  if (length == 0) length = deflatePlain(input, size, data, kRoom);
  if (length == 0) return -1;
  size_t total = bgzf::kHeaderSize + length + bgzf::kFooterSize;
  memcpy(output, bgzf::kHeader, sizeof bgzf::kHeader);
  put16(output + 16, static_cast<uint32_t>(total - 1));
  put32(data + length, gzip_crc32(0, input, size));
  put32(data + length + 4, static_cast<uint32_t>(size));
  return static_cast<int>(total);
}

void BlockInflater::Free::operator()(libdeflate_decompressor* decompressor) const {
  libdeflate_free_decompressor(decompressor);
}

BlockInflater::BlockInflater() : decompressor_(libdeflate_alloc_decompressor()) {
  if (decompressor_ == nullptr) throw std::bad_alloc();
}

BlockInflater::~BlockInflater() = default;

BlockInflater::Result BlockInflater::inflate(const uint8_t* block, size_t size, bool verify, uint8_t* output,
                                             uint32_t* output_size) {
  const uint8_t* footer = block + size - bgzf::kFooterSize;
  uint32_t expected = get32(footer + 4);
  if (expected > bgzf::kMaxSize) return kBadData;
  // With no place for the actual size, anything but exactly `expected` bytes is a failure.
  if (libdeflate_deflate_decompress(decompressor_.get(), block + bgzf::kHeaderSize,
                                    size - bgzf::kHeaderSize - bgzf::kFooterSize, output, expected,
                                    nullptr) != LIBDEFLATE_SUCCESS)
    return kBadData;
  if (verify && gzip_crc32(0, output, expected) != get32(footer)) return kBadCrc;
  *output_size = expected;
  return kGood;
}
