#include "readdata/stream/fast_lz.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <optional>

namespace {

void drain(LZ_Stream2* state) {
  const size_t count = std::min<size_t>(state->avail_out, state->tmp_out_end - state->tmp_out_start);
  if (count == 0) return;
  memcpy(state->next_out, state->tmp_out_buff.get() + state->tmp_out_start, count);
  state->next_out += count;
  state->avail_out -= static_cast<uint32_t>(count);
  state->total_out += count;
  state->tmp_out_start += count;
}

// Makes the next deflate block, in the output when that has the room, else in the overflow buffer.
void makeBlock(LZ_Stream2* state) {
  const uint32_t size = std::min<uint32_t>(state->avail_in, FastLzTables::kMaxInput);
  const bool last = state->end_of_stream && size == state->avail_in;
  std::optional<FastLzTables> own;
  const FastLzTables* codes = state->tables != nullptr ? state->tables : &own.emplace(state->next_in, size);
  auto compress = [&](uint8_t* output, size_t room) {
    return codes->compress(state->next_in, size, last, &state->tail, output, room, &state->matcher,
                           state->bmi2);
  };
  const size_t made = compress(state->next_out, state->avail_out);
  state->next_out += made;
  state->avail_out -= static_cast<uint32_t>(made);
  state->total_out += made;
  if (made == 0) {
    constexpr size_t kRoom = FastLzTables::kSafeRoom;
    if (state->tmp_out_buff == nullptr)
      state->tmp_out_buff = std::make_unique_for_overwrite<uint8_t[]>(kRoom);
    state->tmp_out_start = 0;
    state->tmp_out_end = compress(state->tmp_out_buff.get(), kRoom);
    assert(state->tmp_out_end > 0);
  }
  state->next_in += size;
  state->avail_in -= size;
  state->stream_ended = last;
}

}  // namespace

void LZ_Stream2::reset(const FastLzTables* codes) {
  next_in = nullptr;
  next_out = nullptr;
  avail_in = avail_out = 0;
  total_out = 0;
  end_of_stream = stream_ended = false;
  tmp_out_start = tmp_out_end = 0;
  tables = codes;
  tail = {};
}

void fast_lz(LZ_Stream2* state) {
  drain(state);
  while (state->avail_out > 0 && !state->stream_ended && (state->avail_in > 0 || state->end_of_stream)) {
    assert(state->tmp_out_start == state->tmp_out_end);
    makeBlock(state);
    drain(state);
  }
}
