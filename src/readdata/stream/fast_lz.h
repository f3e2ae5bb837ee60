// fast_lz.h - the fast raw-deflate compressor: speed first, a modest ratio. Needs cpu_has_fast_deflate().
// Use      fill in the input and set end_of_stream; call with output room until finished() is true, giving
//          more room each time. All of a stream's input is given before the first call.
// Threads  a state belongs to one thread at a time.
// Errors   fast_lz() returns false when the matcher refuses its arguments; there is no other failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct isal_hufftables;
struct isal_zstream;

// Huffman codes that fit data like a sample. A stream with codes at hand is compressed in a single pass, about a
// seventh faster than one that has to count its own, and hardly larger as long as the data stays alike.
class FastLzTables {
 public:
  FastLzTables(const uint8_t* sample, size_t size);
  ~FastLzTables();
  FastLzTables(const FastLzTables&) = delete;
  FastLzTables& operator=(const FastLzTables&) = delete;
  isal_hufftables* get() const { return tables_.get(); }  // null when the sample gave no valid codes

 private:
  std::unique_ptr<isal_hufftables> tables_;
};

struct LZ_Stream2 {
  static constexpr uint32_t kMinRoom =
      8;  // output room that a call wants; with less it goes through the overflow buffer

  LZ_Stream2();
  ~LZ_Stream2();
  LZ_Stream2(const LZ_Stream2&) = delete;
  LZ_Stream2& operator=(const LZ_Stream2&) = delete;

  // Ready for another stream; the memory is kept. Null tables: the stream makes codes of its own.
  void reset(const FastLzTables* tables = nullptr);
  bool finished() const { return stream_ended && tmp_out_start == tmp_out_end; }

  const uint8_t* next_in = nullptr;
  uint32_t avail_in = 0;
  uint8_t* next_out = nullptr;
  uint32_t avail_out = 0;
  uint64_t total_out = 0;      // bytes handed to the caller so far
  bool end_of_stream = false;  // what is in next_in is the last of the input
  bool stream_ended = false;   // the matcher has written its last bit

  uint8_t tmp_out_buff[64];  // output that did not fit; [tmp_out_start, tmp_out_end) waits to be drained
  uint32_t tmp_out_start = 0;
  uint32_t tmp_out_end = 0;

  std::unique_ptr<isal_zstream> matcher;  // with the hash table
  std::unique_ptr<uint8_t[]> level_buffer;
};

// One pass: drains the overflow buffer, compresses what the room allows, ends the stream when the input has
// ended.
bool fast_lz(LZ_Stream2* state);
