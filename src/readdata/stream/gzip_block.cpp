#include "readdata/stream/gzip_block.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <zlib.h>

#include "base/host.h"
#include "readdata/stream/block_codec.h"
#include "readdata/stream/fast_lz.h"

namespace {

constexpr size_t kHeaderSize = 10;
constexpr size_t kFooterSize = 8;
constexpr int kGzipWindow = 31;
constexpr int kMemoryLevel = 9;
constexpr int kFastStrategies = 10;
constexpr uint32_t kMost = 0xffffffff;  // what the compressors' 32-bit counts hold

// The buffer that the output goes to. Ours may grow, the caller's may not.
struct Room {
  Room(uint8_t* given, size_t given_size, size_t input_size)
      : data(given), size(given_size), ours(given == nullptr) {
    if (!ours) return;
    size = input_size + input_size / 20 + 100;
    data = static_cast<uint8_t*>(malloc(size));
  }
  bool grow() {
    if (!ours) return false;
    auto* larger = static_cast<uint8_t*>(realloc(data, size * 2));
    if (larger == nullptr) return false;
    data = larger;
    size *= 2;
    return true;
  }
  void drop() {
    if (ours) free(data);
    data = nullptr;
  }

  uint8_t* data;
  size_t size;
  bool ours;
};

void put32(uint8_t* at, uint32_t value) {
  for (int i = 0; i < 4; ++i) at[i] = value >> (8 * i) & 0xff;
}

// The length of the member made, 0 when there is no room for it.
size_t compressFast(const uint8_t* input, size_t size, Room* room, const uint32_t* crc_hint) {
  LZ_Stream2 state;
  state.next_in = input;
  state.avail_in = static_cast<uint32_t>(size);
  state.end_of_stream = true;
  size_t length = kHeaderSize;
  for (;;) {
    size_t free_bytes = room->size > length + kFooterSize ? room->size - length - kFooterSize : 0;
    state.next_out = room->data + length;
    state.avail_out = static_cast<uint32_t>(std::min<size_t>(free_bytes, kMost));
    uint64_t before = state.total_out;
    fast_lz(&state);
    length += state.total_out - before;
    if (state.finished()) break;
    if (state.avail_out == 0 && free_bytes <= kMost && !room->grow()) return 0;
  }
  constexpr uint8_t kHeader[kHeaderSize] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 0, 0xff};
  memcpy(room->data, kHeader, kHeaderSize);
  put32(room->data + length, crc_hint != nullptr ? *crc_hint : gzip_crc32(0, input, size));
  put32(room->data + length + 4, static_cast<uint32_t>(size));
  return length + kFooterSize;
}

const char* reason(const z_stream& stream, int code) {
  return stream.msg != nullptr ? stream.msg : zError(code);
}

// As compressFast(); says why it failed.
size_t compressPlain(const uint8_t* input, size_t size, const Room& room, int level, int strategy) {
  z_stream stream = {};
  int code = deflateInit2(&stream, level, Z_DEFLATED, kGzipWindow, kMemoryLevel, strategy);
  if (code != Z_OK) {
    fprintf(stderr, "zlib deflateInit2 error: %s\n", reason(stream, code));
    return 0;
  }
  size_t taken = 0, made = 0;
  do {
    uint32_t in = static_cast<uint32_t>(std::min<size_t>(size - taken, kMost));
    uint32_t out = static_cast<uint32_t>(std::min<size_t>(room.size - made, kMost));
    stream.next_in = const_cast<uint8_t*>(input) + taken;
    stream.avail_in = in;
    stream.next_out = room.data + made;
    stream.avail_out = out;
    code = deflate(&stream, taken + in == size ? Z_FINISH : Z_NO_FLUSH);
    taken += in - stream.avail_in;
    made += out - stream.avail_out;
  } while (code == Z_OK && made < room.size);
  if (code != Z_STREAM_END) {
    if (code == Z_OK || code == Z_BUF_ERROR)
      fputs("Deflate produced larger output than expected. Abort\n", stderr);
    else
      fprintf(stderr, "zlib deflate error: %s\n", reason(stream, code));
    made = 0;
  }
  deflateEnd(&stream);
  return made;
}

}  // namespace

uint8_t* gzip_compress(const uint8_t* input, size_t size, uint8_t** output, size_t* output_size, int level,
                       int strategy, const uint32_t* crc_hint) {
  bool fast = fast_deflate_forced();
  if (strategy >= kFastStrategies) {
    strategy -= kFastStrategies;
    fast = true;
  }
  Room room(*output, *output_size, size);
  if (room.data == nullptr) {
    fprintf(stderr, "zlib deflateInit2 error: %s\n", zError(Z_MEM_ERROR));
    return nullptr;
  }
  size_t made = 0;
  if (fast && strategy != Z_RLE && size <= kMost && cpu_has_fast_deflate())
    made = compressFast(input, size, &room, crc_hint);
  // A buffer too small for the fast path's output may be large enough for zlib's.
  if (made == 0) made = compressPlain(input, size, room, level, strategy);
  if (made == 0) {
    room.drop();
    return nullptr;
  }
  *output = room.data;
  *output_size = made;
  return room.data;
}
