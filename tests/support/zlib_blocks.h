// zlib_blocks.h - a second reader and writer of blocked gzip, by zlib alone, to judge our own by.
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>
#include <zlib.h>

struct ZlibBlock {
  uint64_t address;  // in the file
  size_t size;       // with header and footer
  std::string data;  // uncompressed
};

inline uint32_t little(const std::string& bytes, size_t at, int count) {
  uint32_t value = 0;
  for (int i = count - 1; i >= 0; --i) value = value << 8 | static_cast<uint8_t>(bytes.at(at + i));
  return value;
}

inline std::string littleBytes(uint32_t value, int count) {
  std::string bytes;
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(value >> 8 * i & 0xff);
  return bytes;
}

inline std::string fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// All blocks of a file; throws at the first byte that is not as the format wants it.
inline std::vector<ZlibBlock> blocksOf(const std::string& file) {
  static const std::string header("\x1f\x8b\x08\x04\0\0\0\0\0\xff\x06\0BC\x02\0", 16);
  std::vector<ZlibBlock> blocks;
  for (size_t at = 0; at < file.size();) {
    if (file.compare(at, 16, header) != 0) throw std::runtime_error("header at " + std::to_string(at));
    size_t size = little(file, at + 16, 2) + 1;
    uint32_t length = little(file, at + size - 4, 4);
    std::string data(65536, 0);
    z_stream stream = {};
    if (inflateInit2(&stream, -15) != Z_OK) throw std::runtime_error("inflateInit2");
    stream.next_in = reinterpret_cast<uint8_t*>(const_cast<char*>(file.data())) + at + 18;
    stream.avail_in = static_cast<uint32_t>(size - 26);
    stream.next_out = reinterpret_cast<uint8_t*>(data.data());
    stream.avail_out = static_cast<uint32_t>(data.size());
    int code = inflate(&stream, Z_FINISH);
    uint32_t unread = stream.avail_in;
    data.resize(stream.total_out);
    inflateEnd(&stream);
    if (code != Z_STREAM_END || unread != 0)
      throw std::runtime_error("deflate data at " + std::to_string(at));
    if (data.size() != length) throw std::runtime_error("length at " + std::to_string(at));
    uint32_t crc = static_cast<uint32_t>(crc32(0, reinterpret_cast<const uint8_t*>(data.data()), length));
    if (crc != little(file, at + size - 8, 4)) throw std::runtime_error("checksum at " + std::to_string(at));
    blocks.push_back({at, size, data});
    at += size;
  }
  return blocks;
}

inline std::string joined(const std::vector<ZlibBlock>& blocks) {
  std::string all;
  for (const auto& block : blocks) all += block.data;
  return all;
}

// A block as another tool may write it, of up to 65536 bytes.
inline std::string zlibBlock(const std::string& data, int level = 6) {
  z_stream stream = {};
  if (deflateInit2(&stream, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK)
    throw std::runtime_error("init");
  std::string body(data.size() + 1000, 0);
  stream.next_in = reinterpret_cast<uint8_t*>(const_cast<char*>(data.data()));
  stream.avail_in = static_cast<uint32_t>(data.size());
  stream.next_out = reinterpret_cast<uint8_t*>(body.data());
  stream.avail_out = static_cast<uint32_t>(body.size());
  int code = deflate(&stream, Z_FINISH);
  body.resize(stream.total_out);
  deflateEnd(&stream);
  if (code != Z_STREAM_END || body.size() + 26 > 65536) throw std::runtime_error("does not fit in a block");
  uint32_t crc = static_cast<uint32_t>(crc32(0, reinterpret_cast<const uint8_t*>(data.data()), data.size()));
  return std::string("\x1f\x8b\x08\x04\0\0\0\0\0\xff\x06\0BC\x02\0", 16) +
         littleBytes(static_cast<uint32_t>(body.size() + 25), 2) + body + littleBytes(crc, 4) +
         littleBytes(static_cast<uint32_t>(data.size()), 4);
}

inline std::string endMarker() {
  return zlibBlock("");
}

// Lines of made-up text that compress about as sequence data do.
inline std::string sampleText(size_t size, uint32_t seed = 1) {
  std::mt19937 random(seed);
  std::string text;
  while (text.size() < size) {
    text += "read" + std::to_string(random() % 100000) + "\t";
    for (int i = 0; i < 60; ++i) text += "ACGT"[random() % 4];
    text += "\n";
  }
  text.resize(size);
  return text;
}

inline std::string randomBytes(size_t size, uint32_t seed = 1) {
  std::mt19937 random(seed);
  std::string bytes(size, 0);
  for (auto& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}
