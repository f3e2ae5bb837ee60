// engine_simd.h - the vector engines: the score of their scalar bases by way of a kernel of one instruction set.
#pragma once

#include "algo/vcall/pairhmm/engine_hr.h"
#include "algo/vcall/pairhmm/engine_rh.h"
#include "algo/vcall/pairhmm/pair_hmm_kernel.h"

template <typename T>
class EngineHRVector : public EngineHR<T> {
 public:
  double score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap, bool debug) override;

 protected:
  explicit EngineHRVector(const StripedKernel<T>& kernel) : kernel_(kernel) {}

  void foldGapClosing(int R);

  AlignedBuffer<T> folded_mx_, folded_xx_, folded_my_;

 private:
  const StripedKernel<T>& kernel_;
  AlignedBuffer<T> read_codes_, hap_codes_;
};

template <typename T>
class EngineRHVector : public EngineRH<T> {
 public:
  double score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap, bool debug) override;

 protected:
  explicit EngineRHVector(const RowKernel<T>& kernel) : kernel_(kernel) {}

 private:
  const RowKernel<T>& kernel_;
  AlignedBuffer<T> read_codes_, hap_codes_;
};

template <typename T>
struct EngineHRSSE : EngineHRVector<T> {
  EngineHRSSE();
};
template <typename T>
struct EngineHRAVX : EngineHRVector<T> {
  EngineHRAVX();
};
template <typename T>
struct EngineRHSSE : EngineRHVector<T> {
  EngineRHSSE();
};
template <typename T>
struct EngineRHAVX : EngineRHVector<T> {
  EngineRHAVX();
};
