// covariates.h - sequence context and sequencing cycle of each base of a read.
// Threads  one object per thread; it keeps scratch memory from read to read.
// Errors   std::runtime_error for a read longer than the cycle limit.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "algo/preprocess/recal_arguments.h"
#include "algo/preprocess/recal_table.h"
#include "readdata/bam/read.h"

// Index of a platform (the PL of a read group, any case) that has covariates, -1 for any other.
int platformIndex(const std::string& platform);
// Throws std::runtime_error for an index that no platform has.
bool isFlowPlatform(int index);

// 0 to 3 for A, C, G, T in either case, 0 for '*', 4 for any other.
uint8_t baseCode(char base);

class Covariates {
 public:
  static constexpr int32_t kNoCycle = INT32_MIN;

  explicit Covariates(const RecalArguments& arguments);

  // Computes both for all bases, in the order of the read as it is stored; those of indels only when asked to.
  // Bases in the tails of low quality at either end have no context, and count in none.
  void compute(Read& read, int platform, bool indels = true);

  // Per base, after compute(): 2-bit code of the bases that end there in sequencing order, the first one in the
  // highest bits; 4^k when there is none. At least as long as the read.
  const std::vector<uint16_t>& contexts(RecalEvent event) const { return contexts_[event != kMismatch]; }
  // Signed cycle, 1-based, negative for second reads; kNoCycle when there is none, or beyond the limit (flow
  // platforms).
  const std::vector<int32_t>& cycles(RecalEvent event) const { return cycles_[event != kMismatch]; }

 private:
  void computeContexts(const Read& read, bool indels);
  void computeDiscrete(const Read& read, int32_t sign, bool indels);
  void computeFlow(Read& read, int32_t sign, bool indels);

  const RecalArguments arguments_;
  std::vector<uint8_t> codes_;         // of the bases, 4 in the tails
  std::vector<uint16_t> contexts_[2];  // of mismatches, of indels
  std::vector<int32_t> cycles_[2];
};
