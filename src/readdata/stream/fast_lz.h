// fast_lz.h - the fast raw-deflate compressor: speed first, a modest ratio.
// Use      fill in the input and set end_of_stream; call with output room until finished() is true, giving
//          more room each time. All of a stream's input is given before the first call.
// Threads  a state belongs to one thread at a time.
// Errors   none but the lack of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "readdata/stream/block_lz.h"

struct LZ_Stream2 {
  // Ready for another stream; the memory is kept. The tables, made from data like the input, must live as long as
  // the stream does; null: every 64 KiB get codes of their own, for which it is parsed twice.
  void reset(const FastLzTables* codes = nullptr);
  bool finished() const { return stream_ended && tmp_out_start == tmp_out_end; }

  const uint8_t* next_in = nullptr;
  uint32_t avail_in = 0;
  uint8_t* next_out = nullptr;
  uint32_t avail_out = 0;
  uint64_t total_out = 0;      // bytes handed to the caller so far
  bool end_of_stream = false;  // what is in next_in is the last of the input
  bool stream_ended = false;   // the matcher has written its last bit

  // A deflate block that may not fit in the output; [tmp_out_start, tmp_out_end) waits to be drained. Made when
  // first needed.
  std::unique_ptr<uint8_t[]> tmp_out_buff;
  size_t tmp_out_start = 0;
  size_t tmp_out_end = 0;

  const FastLzTables* tables = nullptr;
  BitTail tail;
  MatchFinder matcher;
  bool bmi2 = cpuHasBmi2();
};

// One pass: drains the overflow buffer, compresses what the room allows, ends the stream when the input has
// ended.
void fast_lz(LZ_Stream2* state);
