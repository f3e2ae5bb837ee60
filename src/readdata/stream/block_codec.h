// block_codec.h - one BGZF block to and from the bytes in it.
// Block    18 bytes of header (gzip with one extra subfield "BC" holding the block size minus 1), raw deflate
//          data, CRC-32 and size of the uncompressed bytes; all little endian; at most 65536 bytes either
//          way.
// Threads  an object belongs to one thread at a time.
// Cost     memory is taken at the first use and kept; none per block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct libdeflate_compressor;
struct libdeflate_decompressor;
class FastLzTables;
struct LZ_Stream2;

namespace bgzf {

constexpr size_t kMaxSize = 65536;  // of a block, and of the bytes in one
constexpr size_t kHeaderSize = 18;
constexpr size_t kFooterSize = 8;

// The first 16 bytes of every block; the two after them hold its size minus 1.
extern const uint8_t kHeader[16];

// The size of the block that begins with these 18 bytes, or 0 when they are no header of ours to read.
size_t blockSize(const uint8_t* header);

}  // namespace bgzf

// CRC-32 of gzip; `crc` is that of the bytes before, 0 for none.
uint32_t gzip_crc32(uint32_t crc, const void* data, size_t size);

// True when the environment asks for the fast path everywhere (use_igzip). Read once.
bool fast_deflate_forced();

class BlockCompressor {
 public:
  // Level 0 stores, 1 to 9, anything else is the default of 6. `fast` asks for the fast path, which is taken
  // where the processor allows it.
  BlockCompressor(int level, bool fast);
  ~BlockCompressor();

  bool fast() const { return fast_; }

  // Makes a block of at most 65280 bytes of input in `output`, which has room for 65536. `tables` serve the fast
  // path alone, and may be null.
  // The size of the block, or -1 when it cannot be made.
  int compress(const uint8_t* input, size_t size, uint8_t* output, const FastLzTables* tables = nullptr);

 private:
  size_t deflateFast(const uint8_t* input, size_t size, uint8_t* output, size_t room,
                     const FastLzTables* tables);
  size_t deflatePlain(const uint8_t* input, size_t size, uint8_t* output, size_t room);

  struct Free {
    void operator()(libdeflate_compressor* compressor) const;
  };
  int level_;
  bool fast_;
  std::unique_ptr<libdeflate_compressor, Free> plain_;
  std::unique_ptr<LZ_Stream2> stream_;
};

class BlockInflater {
 public:
  enum Result { kGood, kBadData, kBadCrc };

  BlockInflater();
  ~BlockInflater();

  // Inflates a whole block of `size` bytes, header included, as blockSize() tells, into `output`, which has
  // room for 65536 bytes. The checksum is compared when `verify` is set.
  Result inflate(const uint8_t* block, size_t size, bool verify, uint8_t* output, uint32_t* output_size);

 private:
  struct Free {
    void operator()(libdeflate_decompressor* decompressor) const;
  };
  std::unique_ptr<libdeflate_decompressor, Free> decompressor_;
};
