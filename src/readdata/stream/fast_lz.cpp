#include "readdata/stream/fast_lz.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <isa-l/igzip_lib.h>

namespace {

constexpr int kOwnCodesLevel = 1;
constexpr int kGivenCodesLevel = 0;
constexpr uint32_t kLevelBufferSize = ISAL_DEF_LVL1_LARGE;

void drain(LZ_Stream2* state) {
  uint32_t count = std::min(state->avail_out, state->tmp_out_end - state->tmp_out_start);
  memcpy(state->next_out, state->tmp_out_buff + state->tmp_out_start, count);
  state->next_out += count;
  state->avail_out -= count;
  state->total_out += count;
  state->tmp_out_start += count;
}

// Runs the matcher with the given room; the number of bytes made, or -1.
int64_t produce(LZ_Stream2* state, uint8_t* room, uint32_t size) {
  isal_zstream* matcher = state->matcher.get();
  matcher->next_in = const_cast<uint8_t*>(state->next_in);
  matcher->avail_in = state->avail_in;
  matcher->end_of_stream = state->end_of_stream;
  matcher->next_out = room;
  matcher->avail_out = size;
  if (isal_deflate(matcher) != COMP_OK) return -1;
  state->next_in = matcher->next_in;
  state->avail_in = matcher->avail_in;
  state->stream_ended = matcher->internal_state.state == ZSTATE_END;
  return size - matcher->avail_out;
}

}  // namespace

LZ_Stream2::LZ_Stream2() : matcher(new isal_zstream), level_buffer(new uint8_t[kLevelBufferSize]) {
  reset();
}

LZ_Stream2::~LZ_Stream2() = default;

FastLzTables::FastLzTables(const uint8_t* sample, size_t size) : tables_(new isal_hufftables) {
  auto histogram = std::make_unique<isal_huff_histogram>();
  memset(histogram.get(), 0, sizeof *histogram);
  isal_update_histogram(const_cast<uint8_t*>(sample), static_cast<int>(size), histogram.get());
  if (isal_create_hufftables(tables_.get(), histogram.get()) != 0) tables_.reset();
}

FastLzTables::~FastLzTables() = default;

void LZ_Stream2::reset(const FastLzTables* tables) {
  isal_deflate_init(matcher.get());
  isal_hufftables* codes = tables != nullptr ? tables->get() : nullptr;
  matcher->level = codes != nullptr ? kGivenCodesLevel : kOwnCodesLevel;
  if (codes != nullptr) isal_deflate_set_hufftables(matcher.get(), codes, IGZIP_HUFFTABLE_CUSTOM);
  matcher->level_buf = level_buffer.get();
  matcher->level_buf_size = kLevelBufferSize;
  matcher->flush = NO_FLUSH;
  matcher->gzip_flag = IGZIP_DEFLATE;
  next_in = nullptr;
  next_out = nullptr;
  avail_in = avail_out = 0;
  total_out = 0;
  end_of_stream = stream_ended = false;
  tmp_out_start = tmp_out_end = 0;
}

bool fast_lz(LZ_Stream2* state) {
  if (state->tmp_out_start != state->tmp_out_end) drain(state);
  while (state->avail_out > 0 && !state->stream_ended) {
    assert(state->tmp_out_start == state->tmp_out_end);
    if (state->avail_out >= LZ_Stream2::kMinRoom) {
      int64_t made = produce(state, state->next_out, state->avail_out);
      if (made < 0) return false;
      state->next_out += made;
      state->avail_out -= made;
      state->total_out += made;
      if (made == 0 && state->avail_in == 0) break;  // waits for more input
    } else {
      int64_t made = produce(state, state->tmp_out_buff, sizeof state->tmp_out_buff);
      if (made < 0) return false;
      state->tmp_out_start = 0;
      state->tmp_out_end = static_cast<uint32_t>(made);
      drain(state);
      if (made == 0 && state->avail_in == 0) break;
    }
  }
  return true;
}
