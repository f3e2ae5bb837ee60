// The compressors below the handles: the fast one in rooms of any size, one-shot gzip, single blocks; zlib
// judges.
#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <zlib.h>

#include "readdata/stream/block_lz.h"
#include "readdata/stream/fast_lz.h"
#include "readdata/stream/gzip_block.h"
#include "zlib_blocks.h"

namespace {

// The bytes that zlib makes of a whole stream; a text of its own for anything but a clean end.
std::string inflated(const std::string& stream_bytes, int window) {
  std::string out;
  z_stream stream = {};
  if (inflateInit2(&stream, window) != Z_OK) return "inflateInit2 failed";
  stream.next_in = reinterpret_cast<uint8_t*>(const_cast<char*>(stream_bytes.data()));
  stream.avail_in = static_cast<uint32_t>(stream_bytes.size());
  std::string piece(100000, 0);
  int code = Z_OK;
  while (code == Z_OK) {
    stream.next_out = reinterpret_cast<uint8_t*>(piece.data());
    stream.avail_out = static_cast<uint32_t>(piece.size());
    code = inflate(&stream, Z_NO_FLUSH);
    out.append(piece, 0, piece.size() - stream.avail_out);
  }
  bool whole = code == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  return whole ? out : "inflate failed";
}

const std::vector<std::string>& payloads() {
  static const std::vector<std::string> all = {
      "", "x", "ab", sampleText(1000), std::string(300000, 'a'), randomBytes(200000), sampleText(1000000)};
  return all;
}

const uint8_t* bytesOf(const std::string& text) {
  return reinterpret_cast<const uint8_t*>(text.data());
}

// Bytes whose counts grow like Fibonacci numbers: without a limit their codes would have 20 bits and more.
std::string fibonacciBytes() {
  std::string bytes;
  for (uint32_t a = 1, b = 1, symbol = 0; bytes.size() + a < 65280; ++symbol, b += a, a = b - a)
    bytes.append(a, static_cast<char>(symbol * 37));
  std::shuffle(bytes.begin(), bytes.end(), std::mt19937(5));
  return bytes;
}

// Bytes that come again at the greatest distance, or one beyond it.
std::string farRepeat(size_t distance) {
  std::string bytes = randomBytes(distance);
  return bytes + bytes.substr(0, 20000);
}

TEST(FastLzTables, MakesBlocksThatFitAnyInputAndRoom) {
  std::vector<std::string> inputs = {fibonacciBytes(),  farRepeat(32768),         farRepeat(32769),
                                     sampleText(65280), std::string(65536, '\0'), randomBytes(65536)};
  for (size_t size = 0; size < 300; ++size)
    inputs.push_back(size % 2 ? sampleText(size) : std::string(size, 'a'));
  for (size_t size = 300; size < 65280; size = size * 9 / 8) inputs.push_back(sampleText(size));
  auto finder = std::make_unique<MatchFinder>();
  std::vector<uint8_t> plain(FastLzTables::kSafeRoom), fast(plain.size());
  for (const auto& sample : {std::string(), sampleText(65280), fibonacciBytes()}) {
    const FastLzTables tables(bytesOf(sample), sample.size());
    for (const auto& input : inputs) {
      auto make = [&](std::vector<uint8_t>& output, size_t room, bool bmi2) {
        BitTail tail;
        return tables.compress(bytesOf(input), input.size(), true, &tail, output.data(), room, finder.get(),
                               bmi2);
      };
      const size_t size = make(plain, plain.size(), false);
      ASSERT_GT(size, 0u);
      const std::string stream(plain.begin(), plain.begin() + static_cast<ptrdiff_t>(size));
      ASSERT_TRUE(inflated(stream, -15) == input) << input.size();
      if (cpuHasBmi2()) {
        ASSERT_EQ(make(fast, fast.size(), true), size);
        ASSERT_TRUE(std::equal(stream.begin(), stream.end(), fast.begin(),
                               [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; }));
      }
      for (size_t room : {size_t(0), size_t(400), size / 2, size}) {
        std::vector<uint8_t> small(room + 64, '#');
        const size_t made = make(small, room, cpuHasBmi2());
        EXPECT_TRUE(made == 0 || made == size);
        EXPECT_TRUE(std::all_of(small.end() - 64, small.end(), [](uint8_t b) { return b == '#'; })) << room;
      }
    }
  }
}

TEST(FastLz, MakesAStreamInRoomsOfAnySize) {
  LZ_Stream2 state;
  for (const auto& payload : payloads())
    for (uint32_t room : {1u, 7u, 8u, 9u, 100u, 5000u, 2000000u}) {
      state.reset();
      state.next_in = bytesOf(payload);
      state.avail_in = static_cast<uint32_t>(payload.size());
      state.end_of_stream = true;
      std::string out, piece(room, 0);
      for (size_t step = 0; !state.finished(); ++step) {
        ASSERT_LT(step, payload.size() * 2 + 100);
        state.next_out = reinterpret_cast<uint8_t*>(piece.data());
        state.avail_out = room;
        fast_lz(&state);
        out.append(piece, 0, room - state.avail_out);
        ASSERT_EQ(state.total_out, out.size());
      }
      EXPECT_TRUE(inflated(out, -15) == payload) << payload.size() << " in " << room;
    }
}

TEST(GzipCompress, IsGzipForEveryStrategyAndLevel) {
  for (const auto& payload : payloads())
    for (int strategy : {Z_DEFAULT_STRATEGY, Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED, 10, 11, 12, 13, 14})
      for (int level : {-1, 1, 5, 9}) {
        uint8_t* output = nullptr;
        size_t size = 0;
        auto crc = static_cast<uint32_t>(crc32(0, bytesOf(payload), static_cast<uint32_t>(payload.size())));
        uint8_t* made = gzip_compress(bytesOf(payload), payload.size(), &output, &size, level, strategy,
                                      level == 5 ? &crc : nullptr);
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(made, output);
        EXPECT_TRUE(inflated(std::string(reinterpret_cast<char*>(made), size), 31) == payload)
            << payload.size() << " " << strategy << " " << level;
        free(made);
      }
}

TEST(GzipCompress, StaysInTheRoomGiven) {
  std::string text = sampleText(100000), noise = randomBytes(100000);
  for (int strategy : {0, 10})
    for (const auto& payload : {text, noise})
      for (size_t room : {0, 5, 17, 18, 100, 99999, 200000}) {
        std::string buffer(room + 64, '#');
        auto* output = reinterpret_cast<uint8_t*>(buffer.data());
        size_t size = room;
        testing::internal::CaptureStderr();
        uint8_t* made = gzip_compress(bytesOf(payload), payload.size(), &output, &size, 6, strategy);
        std::string message = testing::internal::GetCapturedStderr();
        bool fits = room == 200000 || (room == 99999 && payload == text);
        EXPECT_EQ(made != nullptr, fits) << room;
        EXPECT_EQ(message, fits ? "" : "Deflate produced larger output than expected. Abort\n");
        EXPECT_EQ(buffer.substr(room), std::string(64, '#'));
        if (made != nullptr) {
          EXPECT_TRUE(inflated(buffer.substr(0, size), 31) == payload);
        }
      }
  uint8_t* output = nullptr;
  size_t size = 0;
  testing::internal::CaptureStderr();
  EXPECT_EQ(gzip_compress(bytesOf(text), text.size(), &output, &size, 6, 9), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "zlib deflateInit2 error: stream error\n");
}

}  // namespace
