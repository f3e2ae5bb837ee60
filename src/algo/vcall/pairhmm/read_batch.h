// read_batch.h - scores of several reads at once, each in a lane of the vector unit, given haplotypes one after the other.
// The same numbers as EngineHRAVX<float>, to the last bit.
// Units    scores are log10 probabilities.
// Owns     its buffers, which grow and never shrink.
// Threads  a batch belongs to one thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "algo/vcall/pairhmm/engine_simd.h"
#include "algo/vcall/pairhmm/halves.h"
#include "algo/vcall/pairhmm/pair_hmm_kernel.h"

class ReadBatch {
 public:
  static constexpr int kMaxLanes = PairHMM::kRowsAtOnce;

  explicit ReadBatch(const BatchKernel& kernel) : kernel_(kernel) {}

  size_t lanes() const { return size_t(kernel_.lanes); }
  // Whether the tables stay within kMaxBytes.
  bool fits(int maxRead, int maxHap) const;

  // Room for reads of up to `maxRead` bases; the haplotypes, of up to `maxHap`, that all batches are scored with from then
  // on. They are borrowed; neighbours best share long ends.
  void resize(int maxRead, int maxHap, const std::vector<std::span<const uint8_t>>& haplotypes);
  // Begins a new batch of reads of up to `length` bases.
  void start(int length);
  // Takes the qualities of the read that add() will take.
  PairHMM::Engine& positions() { return positions_; }
  // The next of up to lanes() reads. False, and nothing is taken, for one that only an engine can score.
  bool add(int length, const uint8_t* read);
  // Calls take(haplotype, scores) for the haplotypes in order, with a score of each read of the batch.
  template <typename Take>
  void score(Take take) {
    std::array<double, kMaxLanes> scores;
    for (size_t h = 0; h < steps_.size(); ++h) {
      scoreStep(steps_[h], scores.data());
      take(h, scores.data());
    }
  }

 private:
  static constexpr size_t kMaxBytes = 32 << 20;

  // The row numbers of one read, as the engine for single reads has them.
  struct Positions : EngineHRAVX<float> {
    using EngineHRAVX::endless_gap_, EngineHRAVX::foldGapClosing;
    using EngineHRAVX::folded_mx_, EngineHRAVX::folded_my_, EngineHRAVX::folded_xx_;
    using EngineHRAVX::kInitialScale, EngineHRAVX::match_emission_, EngineHRAVX::mismatch_;
    using EngineHRAVX::mm_, EngineHRAVX::xm_, EngineHRAVX::yy_;
  };

  // What one haplotype adds to the tables. Only columns that it or a later one begins from or joins at are kept.
  struct Step {
    const uint8_t* hap;
    MiddleColumns columns;
    std::vector<int> forward, backward;  // columns to keep, in the order in which they come up
  };

  void planSteps(const std::vector<std::span<const uint8_t>>& haplotypes);
  void scoreStep(const Step& step, double* scores);
  // Computes the columns up to the last of `keep`, beginning beside `column`. `table`: of column 0.
  void run(void (*pass)(const BatchTask&), BatchTask& task, float* table, int way, int column,
           const std::vector<int>& keep);

  float* forwardColumns() { return columns_.data(); }
  float* backwardColumns(int hap_length) {
    return columns_.data() + (slots_ - 2 - size_t(hap_length)) * columnSize();
  }
  size_t columnSize() const { return size_t(rows_) * 2 * lanes(); }

  const BatchKernel& kernel_;
  Positions positions_;
  std::vector<Step> steps_;  // by haplotype
  int max_hap_ = 0, rows_ = 0, reads_ = 0;
  size_t slots_ = 0, plane_ = 0;  // columns; floats of a letter's emissions
  std::vector<uint8_t> letters_;
  std::array<const float*, 256> emission_{};  // by letter
  AlignedBuffer<float> columns_, passing_, numbers_, emissions_, ends_;
  AlignedBuffer<double> ended_;  // by j and lane, what has ended in columns 1..j
  AlignedBuffer<double>
      started_;  // by k and lane, what begins in the last k columns, for a start of weight 1
  alignas(64) std::array<float, kMaxLanes> border_, scale_;
  std::array<double, kMaxLanes> enter_right_;
};

// The batch of the calling thread, made at the first call and kept for its life: of the widest registers that the processor
// has. Null when the engine of threadEngines() is another than the one that a batch agrees with.
ReadBatch* threadBatch();
