// Four cells of a row at a time. Deletions depend on the row above only. An insertion depends on the cell to
// its left, which may end in an insertion itself; but opening a second gap right behind a first one never
// beats extending it, so insertions are taken from the best of pair and deletion, by a prefix maximum over
// the four cells and a carry from the four before. Only the carry is a serial chain: an add, a maximum and a
// shuffle. Built with its own flags: includes nothing that could leave a function to other files.
#include <cstdint>
#include <smmintrin.h>

#include "algo/assembler/smith_waterman_kernel.h"

namespace SMITHWATERMAN {
namespace {

inline __m128i load(const int32_t* from) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(from));
}
inline void store(int32_t* to, __m128i value) {
  _mm_store_si128(reinterpret_cast<__m128i*>(to), value);
}
// The last lane of `before` in front of the first three of `value`.
inline __m128i shiftIn(__m128i value, __m128i before) {
  return _mm_alignr_epi8(value, before, 12);
}

template <bool kTies>
void fill(const FillJob& job) {
  const size_t words = job.stride / 4;
  const __m128i open = _mm_set1_epi32(job.open);
  const __m128i extend = _mm_set1_epi32(job.extend);
  const __m128i extend_by_2 = _mm_set1_epi32(2 * job.extend);
  const __m128i extend_from_carry =
      _mm_setr_epi32(job.extend, 2 * job.extend, 3 * job.extend, 4 * job.extend);
  const __m128i never = _mm_set1_epi32(kMinusInfinity);
  int32_t* const h = job.h;
  int32_t* const e = job.e;

  for (size_t row = 0; row < job.reference_length; ++row) {
    const int32_t* scores =
        job.profile + job.profile_row[static_cast<uint8_t>(job.reference[row])] * job.stride;
    uint16_t* directions = job.directions + row * words;
    const size_t first = firstCell(job, row), end = endWord(job, row);
    __m128i above_before = _mm_set1_epi32(first == 0 ? job.first_column[row] : h[first - 1]);
    __m128i opened_before =
        _mm_add_epi32(first == 0 ? _mm_set1_epi32(job.first_column[row + 1]) : never, open);
    __m128i carry = never;
    for (size_t word = first / 4; word < end; ++word) {
      const size_t j = word * 4;
      const __m128i above = load(h + j);
      const __m128i pair = _mm_add_epi32(shiftIn(above, above_before), load(scores + j));
      above_before = above;

      const __m128i new_deletion = _mm_add_epi32(above, open);
      const __m128i longer_deletion = _mm_add_epi32(load(e + j), extend);
      const __m128i deletion = _mm_max_epi32(new_deletion, longer_deletion);
      store(e + j, deletion);
      const __m128i without_insertion = _mm_max_epi32(pair, deletion);

      const __m128i opened = _mm_add_epi32(without_insertion, open);
      const __m128i new_insertion = shiftIn(opened, opened_before);
      opened_before = opened;
      __m128i insertion = _mm_max_epi32(new_insertion, _mm_add_epi32(shiftIn(new_insertion, never), extend));
      insertion = _mm_max_epi32(insertion, _mm_add_epi32(_mm_alignr_epi8(insertion, never, 8), extend_by_2));
      insertion = _mm_max_epi32(insertion, _mm_add_epi32(carry, extend_from_carry));
      carry = _mm_shuffle_epi32(insertion, 0xFF);
      store(h + j, _mm_max_epi32(without_insertion, insertion));

      const __m128i best =
          _mm_packs_epi32(_mm_cmpgt_epi32(deletion, pair), _mm_cmpgt_epi32(insertion, without_insertion));
      const __m128i goes_on = _mm_packs_epi32(_mm_cmpgt_epi32(longer_deletion, new_deletion),
                                              _mm_cmpgt_epi32(insertion, new_insertion));
      directions[word] = static_cast<uint16_t>(_mm_movemask_epi8(_mm_packs_epi16(best, goes_on)));
      if constexpr (kTies) {
        const __m128i ties =
            _mm_packs_epi32(_mm_cmpeq_epi32(deletion, pair), _mm_cmpeq_epi32(insertion, without_insertion));
        job.ties[row * words + word] =
            static_cast<uint8_t>(_mm_movemask_epi8(_mm_packs_epi16(ties, _mm_setzero_si128())));
      }
    }
    job.last_column[row + 1] = h[job.read_length - 1];
  }
}

}  // namespace

void fillSse41(const FillJob& job) {
  if (job.ties != nullptr)
    fill<true>(job);
  else
    fill<false>(job);
}

}  // namespace SMITHWATERMAN
