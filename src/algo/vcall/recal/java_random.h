// java_random.h - the 48-bit linear congruential generator that the training of models draws from.
// Threads  one object per thread.
// Source   Knuth, The Art of Computer Programming 2, 3.2.1; the polar method of Marsaglia, ibid. 3.4.1.
#pragma once

#include <cstdint>

namespace JavaUtil {

class Random {
 public:
  explicit Random(int64_t seed) { setSeed(seed); }
  void setSeed(int64_t seed);

  int32_t next(int bits);  // the top `bits` of the next state, 1 to 32
  int64_t nextLong();      // two draws of 32 bits, the high half first
  double nextDouble();     // in [0, 1)
  double nextGaussian();   // mean 0, deviation 1; drawn in pairs, of which the second waits for the next call

 private:
  uint64_t seed_ = 0;
  bool haveNextNextGaussian_ = false;
  double nextNextGaussian_ = 0;
};

}  // namespace JavaUtil
