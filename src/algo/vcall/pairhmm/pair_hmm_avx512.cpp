// The kernel of a batch of reads in AVX-512.
#include <cstdint>
#include <immintrin.h>

#include "algo/vcall/pairhmm/batch_kernel.h"

namespace {

struct Avx512Float {
  using Reg = __m512;
  static constexpr int kLanes = 16, kColumns = 8;
  static Reg zero() { return _mm512_setzero_ps(); }
  static Reg load(const float* from) { return _mm512_loadu_ps(from); }
  static void store(float* to, Reg v) { _mm512_storeu_ps(to, v); }
  static Reg add(Reg a, Reg b) { return _mm512_add_ps(a, b); }
  static Reg mul(Reg a, Reg b) { return _mm512_mul_ps(a, b); }

  struct Sum {  // by lane, in double
    __m512d low = _mm512_setzero_pd(), high = low;

    void addProducts(const float* a, const float* b) {
      low = _mm512_fmadd_pd(wide(a), wide(b), low);
      high = _mm512_fmadd_pd(wide(a + 8), wide(b + 8), high);
    }
    void store(double* to) const {
      _mm512_storeu_pd(to, low);
      _mm512_storeu_pd(to + 8, high);
    }
    // By a mask of all lanes: GCC 12 takes the plain form's result for uninitialized.
    static __m512d wide(const float* from) { return _mm512_maskz_cvtps_pd(0xff, _mm256_loadu_ps(from)); }
  };
};

}  // namespace

const BatchKernel kBatchAvx512 = {Avx512Float::kLanes, Avx512Float::kColumns,
                                  AcrossReads<Avx512Float>::forward, AcrossReads<Avx512Float>::backward,
                                  AcrossReads<Avx512Float>::join};
