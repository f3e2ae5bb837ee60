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
bool isFlowPlatform(int index);

// 0 to 3 for A, C, G, T in either case, 0 for '*', 4 for any other.
uint8_t baseCode(char base);

class Covariates {
 public:
  static constexpr int32_t kNoCycle = INT32_MIN;

  explicit Covariates(const RecalArguments& arguments);

  // Computes both for all bases, in the order of the read as it is stored.
  void compute(Read& read, int platform);

  // Per base, after compute(): 2-bit code of the bases that end there in sequencing order, 4^k when there is none.
  const std::vector<uint16_t>& contexts(RecalEvent event) const { return contexts_[event != kMismatch]; }
  // Signed cycle, 1-based, negative for second reads; kNoCycle when there is none.
  const std::vector<int32_t>& cycles(RecalEvent event) const { return cycles_[event != kMismatch]; }

 private:
  const RecalArguments arguments_;
  std::vector<uint16_t> contexts_[2];  // of mismatches, of indels
  std::vector<int32_t> cycles_[2];
};
