// The kernels in AVX.
#include <cstdint>
#include <immintrin.h>

#include "algo/vcall/pairhmm/batch_kernel.h"
#include "algo/vcall/pairhmm/row_kernel.h"
#include "algo/vcall/pairhmm/striped_kernel.h"

namespace {

struct AvxFloat {
  using T = float;
  using Reg = __m256;
  static constexpr int kLanes = 8, kColumns = 4;
  static Reg zero() { return _mm256_setzero_ps(); }
  static Reg load(const T* from) { return _mm256_loadu_ps(from); }
  static void store(T* to, Reg v) { _mm256_storeu_ps(to, v); }
  static Reg set1(T value) { return _mm256_set1_ps(value); }
  static Reg add(Reg a, Reg b) { return _mm256_add_ps(a, b); }
  static Reg mul(Reg a, Reg b) { return _mm256_mul_ps(a, b); }
  static Reg bitAnd(Reg a, Reg b) { return _mm256_and_ps(a, b); }
  static Reg bitXor(Reg a, Reg b) { return _mm256_xor_ps(a, b); }
  static Reg agree(Reg a, Reg b) { return _mm256_cmp_ps(a, b, _CMP_EQ_UQ); }  // equal, or either is NaN
  // Not by blendv: without AVX2, GCC 12 takes a mask that it has seen made to pieces, lane by lane.
  static Reg select(Reg mask, Reg yes, Reg no) { return bitXor(no, bitAnd(mask, bitXor(yes, no))); }
  static Reg fromLane(int lane) {  // lanes `lane` and above
    return _mm256_cmp_ps(_mm256_setr_ps(0, 1, 2, 3, 4, 5, 6, 7), set1(static_cast<T>(lane)), _CMP_GE_OQ);
  }
  // A shift by one lane in two steps, of which the first is shared between neighbours: rotate within 128 bits, then
  // take the lanes that crossed a border from the register beside it.
  static Reg rotateUp(Reg v) { return _mm256_permute_ps(v, 0x93); }
  static Reg joinUp(Reg v, Reg before) {
    return _mm256_blend_ps(v, _mm256_permute2f128_ps(before, v, 0x21), 0x11);
  }
  static Reg rotateDown(Reg v) { return _mm256_permute_ps(v, 0x39); }
  static Reg joinDown(Reg v, Reg behind) {
    return _mm256_blend_ps(v, _mm256_permute2f128_ps(v, behind, 0x21), 0x88);
  }
  static Reg evens(Reg a, Reg b) {
    return _mm256_shuffle_ps(_mm256_permute2f128_ps(a, b, 0x20), _mm256_permute2f128_ps(a, b, 0x31), 0x88);
  }
  static Reg odds(Reg a, Reg b) {
    return _mm256_shuffle_ps(_mm256_permute2f128_ps(a, b, 0x20), _mm256_permute2f128_ps(a, b, 0x31), 0xdd);
  }
  static Reg up4(Reg v) { return _mm256_permute2f128_ps(v, v, 0x08); }
  static Reg down4(Reg v) { return _mm256_permute2f128_ps(v, v, 0x81); }
  static Reg up2(Reg v) { return _mm256_shuffle_ps(up4(v), v, 0x4e); }
  static Reg down2(Reg v) { return _mm256_shuffle_ps(v, down4(v), 0x4e); }

  struct Sum {  // by lane, in double
    __m256d low = _mm256_setzero_pd(), high = low;

    void addProducts(const float* a, const float* b) {
      low = _mm256_add_pd(low, _mm256_mul_pd(wide(a), wide(b)));
      high = _mm256_add_pd(high, _mm256_mul_pd(wide(a + 4), wide(b + 4)));
    }
    void store(double* to) const {
      _mm256_storeu_pd(to, low);
      _mm256_storeu_pd(to + 4, high);
    }
    static __m256d wide(const float* from) { return _mm256_cvtps_pd(_mm_loadu_ps(from)); }
  };
};

struct AvxDouble {
  using T = double;
  using Reg = __m256d;
  static constexpr int kLanes = 4;
  static Reg zero() { return _mm256_setzero_pd(); }
  static Reg load(const T* from) { return _mm256_loadu_pd(from); }
  static void store(T* to, Reg v) { _mm256_storeu_pd(to, v); }
  static Reg set1(T value) { return _mm256_set1_pd(value); }
  static Reg add(Reg a, Reg b) { return _mm256_add_pd(a, b); }
  static Reg mul(Reg a, Reg b) { return _mm256_mul_pd(a, b); }
  static Reg bitAnd(Reg a, Reg b) { return _mm256_and_pd(a, b); }
  static Reg bitXor(Reg a, Reg b) { return _mm256_xor_pd(a, b); }
  static Reg agree(Reg a, Reg b) { return _mm256_cmp_pd(a, b, _CMP_EQ_UQ); }
  static Reg select(Reg mask, Reg yes, Reg no) { return bitXor(no, bitAnd(mask, bitXor(yes, no))); }
  static Reg fromLane(int lane) {
    return _mm256_cmp_pd(_mm256_setr_pd(0, 1, 2, 3), set1(static_cast<T>(lane)), _CMP_GE_OQ);
  }
  static Reg rotateUp(Reg v) { return _mm256_permute_pd(v, 0x5); }
  static Reg joinUp(Reg v, Reg before) {
    return _mm256_blend_pd(v, _mm256_permute2f128_pd(before, v, 0x21), 0x5);
  }
  static Reg rotateDown(Reg v) { return _mm256_permute_pd(v, 0x5); }
  static Reg joinDown(Reg v, Reg behind) {
    return _mm256_blend_pd(v, _mm256_permute2f128_pd(v, behind, 0x21), 0xa);
  }
  static Reg evens(Reg a, Reg b) {
    return _mm256_unpacklo_pd(_mm256_permute2f128_pd(a, b, 0x20), _mm256_permute2f128_pd(a, b, 0x31));
  }
  static Reg odds(Reg a, Reg b) {
    return _mm256_unpackhi_pd(_mm256_permute2f128_pd(a, b, 0x20), _mm256_permute2f128_pd(a, b, 0x31));
  }
  static Reg up2(Reg v) { return _mm256_permute2f128_pd(v, v, 0x08); }
  static Reg down2(Reg v) { return _mm256_permute2f128_pd(v, v, 0x81); }
};

}  // namespace

const StripedKernel<float> kStripedAvxFloat = {16, Striped<AvxFloat>::forward, Striped<AvxFloat>::backward};
const StripedKernel<double> kStripedAvxDouble = {8, Striped<AvxDouble>::forward,
                                                 Striped<AvxDouble>::backward};
const RowKernel<float> kRowAvxFloat = {AlongRow<AvxFloat>::forward, AlongRow<AvxFloat>::backward};
const RowKernel<double> kRowAvxDouble = {AlongRow<AvxDouble>::forward, AlongRow<AvxDouble>::backward};
const BatchKernel kBatchAvx = {AvxFloat::kLanes, AvxFloat::kColumns, AcrossReads<AvxFloat>::forward,
                               AcrossReads<AvxFloat>::backward, AcrossReads<AvxFloat>::join};
