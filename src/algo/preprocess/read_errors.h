// read_errors.h - which bases of a read count in calibration, and the machine's errors at each of them.
// Coords   zero-based half open on the contig.
// Threads  one object per thread; it keeps scratch memory from read to read.
// Method   docs/algorithms/qualcal.md
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "algo/preprocess/base_alignment.h"
#include "algo/preprocess/recal_table.h"
#include "readdata/bam/read.h"

// A stretch of reference under the reads.
struct MaskedReference {
  const char* bases;      // upper case
  const uint8_t* masked;  // not 0 at known sites, and where the reference has no base
  uint32_t start, end;
};

// The bounds of the read's alignment, without the part that runs into the adapter: beyond the start of a mate on the
// other strand, or the end of the insert. Empty when start >= end.
std::pair<uint32_t, uint32_t> templateBounds(const Read& read);

class ReadErrors {
 public:
  // Diagonals that the model sees at a time; alignments with longer gaps are cut.
  static constexpr int64_t kMaxDiagonals = 64;
  // How far beyond a read's alignment the model may look. The stretch of reference has to reach as far, or what is found
  // would depend on where the stretch ends.
  static constexpr uint32_t kReach = kMaxDiagonals + BaseAlignment::kReach;

  // Looks at the aligned bases within `bounds` that lie in the reference's stretch. False, and nothing to count, for
  // a read without bases or alignment, of length 1, or with a CIGAR operator that is none (the last two are told on
  // standard error).
  bool compute(Read& read, std::pair<uint32_t, uint32_t> bounds, const MaskedReference& reference);

  // Per base, after compute() was true.
  const uint8_t* skipped() const { return skipped_.data(); }  // not 0: takes no part
  bool any() const { return any_; }                           // some error is not 0
  const double* errors(RecalEvent event) const {
    return errors_[event].data();
  }  // only with any(); 0 where skipped

 private:
  struct Indel {
    int64_t base;  // that carries it, an offset in the read that may lie outside of it
    uint8_t event;
    bool masked;
  };

  bool walk(Read& read, std::pair<uint32_t, uint32_t> bounds, const MaskedReference& reference);
  void compareBlock(const char* bases, int64_t offset, int64_t pos, int64_t length,
                    std::pair<uint32_t, uint32_t> bounds, const MaskedReference& reference);
  void placeIndels(int32_t length);
  void judge(Read& read, const MaskedReference& reference);
  void judgePiece(Read& read, size_t start, size_t end, const MaskedReference& reference);
  void share(size_t start, size_t end);

  BaseAlignment model_;
  std::vector<uint8_t> skipped_, events_;  // events_: bit 1 << RecalEvent
  std::vector<Indel> indels_;
  std::vector<double> errors_[kRecalEvents];
  bool any_ = false;

  std::vector<int32_t> positions_;  // of the bases, from the start of the stretch
  std::vector<uint8_t> inserted_;
  std::vector<float> wrong_;  // probability that a base is misaligned
};
