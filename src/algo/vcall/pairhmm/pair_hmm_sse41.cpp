// The kernels in SSE4.1.
#include <cstdint>
#include <smmintrin.h>

#include "algo/vcall/pairhmm/row_kernel.h"
#include "algo/vcall/pairhmm/striped_kernel.h"

namespace {

struct SseFloat {
  using T = float;
  using Reg = __m128;
  static constexpr int kLanes = 4;
  static Reg zero() { return _mm_setzero_ps(); }
  static Reg load(const T* from) { return _mm_loadu_ps(from); }
  static void store(T* to, Reg v) { _mm_storeu_ps(to, v); }
  static Reg set1(T value) { return _mm_set1_ps(value); }
  static Reg add(Reg a, Reg b) { return _mm_add_ps(a, b); }
  static Reg mul(Reg a, Reg b) { return _mm_mul_ps(a, b); }
  static Reg bitAnd(Reg a, Reg b) { return _mm_and_ps(a, b); }
  static Reg bitXor(Reg a, Reg b) { return _mm_xor_ps(a, b); }
  static Reg agree(Reg a, Reg b) { return _mm_or_ps(_mm_cmpeq_ps(a, b), _mm_cmpunord_ps(a, b)); }
  static Reg select(Reg mask, Reg yes, Reg no) { return bitXor(no, bitAnd(mask, bitXor(yes, no))); }
  static Reg fromLane(int lane) {  // lanes `lane` and above
    return _mm_cmpge_ps(_mm_setr_ps(0, 1, 2, 3), set1(static_cast<T>(lane)));
  }
  // One instruction shifts across two registers, so there is nothing to rotate.
  static Reg rotateUp(Reg v) { return v; }
  static Reg joinUp(Reg v, Reg before) { return align<12>(v, before); }
  static Reg rotateDown(Reg v) { return v; }
  static Reg joinDown(Reg v, Reg behind) { return align<4>(behind, v); }
  static Reg evens(Reg a, Reg b) { return _mm_shuffle_ps(a, b, 0x88); }
  static Reg odds(Reg a, Reg b) { return _mm_shuffle_ps(a, b, 0xdd); }
  static Reg up2(Reg v) { return _mm_movelh_ps(zero(), v); }
  static Reg down2(Reg v) { return _mm_movehl_ps(zero(), v); }

 private:
  template <int kBytes>
  static Reg align(Reg high, Reg low) {
    return _mm_castsi128_ps(_mm_alignr_epi8(_mm_castps_si128(high), _mm_castps_si128(low), kBytes));
  }
};

struct SseDouble {
  using T = double;
  using Reg = __m128d;
  static constexpr int kLanes = 2;
  static Reg zero() { return _mm_setzero_pd(); }
  static Reg load(const T* from) { return _mm_loadu_pd(from); }
  static void store(T* to, Reg v) { _mm_storeu_pd(to, v); }
  static Reg set1(T value) { return _mm_set1_pd(value); }
  static Reg add(Reg a, Reg b) { return _mm_add_pd(a, b); }
  static Reg mul(Reg a, Reg b) { return _mm_mul_pd(a, b); }
  static Reg bitAnd(Reg a, Reg b) { return _mm_and_pd(a, b); }
  static Reg bitXor(Reg a, Reg b) { return _mm_xor_pd(a, b); }
  static Reg agree(Reg a, Reg b) { return _mm_or_pd(_mm_cmpeq_pd(a, b), _mm_cmpunord_pd(a, b)); }
  static Reg select(Reg mask, Reg yes, Reg no) { return bitXor(no, bitAnd(mask, bitXor(yes, no))); }
  static Reg fromLane(int lane) { return _mm_cmpge_pd(_mm_setr_pd(0, 1), set1(static_cast<T>(lane))); }
  static Reg rotateUp(Reg v) { return v; }
  static Reg joinUp(Reg v, Reg before) { return _mm_shuffle_pd(before, v, 0x1); }
  static Reg rotateDown(Reg v) { return v; }
  static Reg joinDown(Reg v, Reg behind) { return _mm_shuffle_pd(v, behind, 0x1); }
  static Reg evens(Reg a, Reg b) { return _mm_unpacklo_pd(a, b); }
  static Reg odds(Reg a, Reg b) { return _mm_unpackhi_pd(a, b); }
};

}  // namespace

const StripedKernel<float> kStripedSseFloat = {8, Striped<SseFloat>::forward, Striped<SseFloat>::backward};
const StripedKernel<double> kStripedSseDouble = {4, Striped<SseDouble>::forward,
                                                 Striped<SseDouble>::backward};
const RowKernel<float> kRowSseFloat = {AlongRow<SseFloat>::forward, AlongRow<SseFloat>::backward};
const RowKernel<double> kRowSseDouble = {AlongRow<SseDouble>::forward, AlongRow<SseDouble>::backward};
