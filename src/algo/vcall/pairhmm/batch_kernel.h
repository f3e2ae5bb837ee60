// batch_kernel.h - lanes are reads: each goes its own way through the same haplotype, so that no lane waits for another,
// and what a haplotype shares with the one before is the same column for all. half_tables.h has the model; the operations
// of a cell and their order are those of striped_kernel.h, and so are the numbers, to the last bit. V is a vector register
// with its operations.
//
// In memory a column is rows x {match, gap} x lanes. Reads of a batch have as many rows as the longest: made-up rows below
// the others' last hand down what they get. A pass takes up to kColumns columns at once down the rows and keeps the last
// alone: what it would write of the others is more than the arithmetic takes to compute (10 operations of a cell against 2
// stores: half the time, with 16 lanes).
#pragma once

#include <cstdint>
#include <type_traits>

#include "algo/vcall/pairhmm/pair_hmm_kernel.h"

template <typename V>
struct AcrossReads {
  using Reg = typename V::Reg;
  static constexpr int kLanes = V::kLanes, kCell = 2 * kLanes, kColumns = V::kColumns;

  // Columns task.column + 1 and on to the right.
  static void forward(const BatchTask& task) {
    pass<kColumns>(task, [](auto c, const BatchTask& t) { forwardPass<c()>(t); });
  }
  // Columns task.column - 1 and on to the left.
  static void backward(const BatchTask& task) {
    pass<kColumns>(task, [](auto c, const BatchTask& t) { backwardPass<c()>(t); });
  }

  // Of each lane the sums of toMatch(i, f) inMatch(i + 1, f + 1) and of toGap(i, f) inGap(i, f + 1). A product of two
  // floats is exact in double.
  static void join(const float* left, const float* right, int rows, double* matches, double* gaps) {
    typename V::Sum match_sum, gap_sum;
    for (int i = 0; i + 1 < rows; ++i, left += kCell, right += kCell) {
      match_sum.addProducts(left, right + kCell);
      gap_sum.addProducts(left + kLanes, right + kLanes);
    }
    match_sum.store(matches);
    gap_sum.store(gaps);
  }

 private:
  // The numbers of one row.
  struct Row {
    Reg mm, mx, xx, my, yy;

    explicit Row(const float* from)
        : mm(V::load(from)),
          mx(V::load(from + kLanes)),
          xx(V::load(from + 2 * kLanes)),
          my(V::load(from + 3 * kLanes)),
          yy(V::load(from + 4 * kLanes)) {}
  };

  // Calls the pass of as many columns as the task has, at most C.
  template <int C, typename Pass>
  static void pass(const BatchTask& task, Pass run) {
    if constexpr (C > 1)
      if (task.count < C) return pass<C - 1>(task, run);
    run(std::integral_constant<int, C>(), task);
  }

  template <int C>
  static void forwardPass(const BatchTask& task) {
    const float* emission[C];
    Reg X[C], diagonal[C];
    for (int c = 0; c < C; ++c) {
      emission[c] = task.emission[task.hap[task.column + c]];
      X[c] = V::zero();
      diagonal[c] = V::load(task.border);
    }
    for (int64_t i = 0; i < task.rows; ++i) {
      const Row row(task.numbers + i * BatchTask::kNumbers * kLanes);
      Reg handed = V::load(task.from + i * kCell), Y = V::load(task.from + i * kCell + kLanes);
#pragma GCC unroll 8
      for (int c = 0; c < C; ++c) {
        const Reg M = V::mul(diagonal[c], V::load(emission[c] + i * kLanes));
        diagonal[c] = handed;
        handed = V::add(V::mul(M, row.mm), V::add(X[c], Y));
        Y = V::add(V::mul(M, row.my), V::mul(Y, row.yy));
        X[c] = V::add(V::mul(M, row.mx), V::mul(X[c], row.xx));
      }
      V::store(task.to + i * kCell, handed);
      V::store(task.to + i * kCell + kLanes, Y);
    }
    for (int c = 0; c < C; ++c) V::store(task.ends + (task.column + 1 + c) * kLanes, X[c]);
  }

  template <int C>
  static void backwardPass(const BatchTask& task) {
    const float* emission[C];
    Reg X[C], diagonal[C], handed = V::zero();
    for (int c = 0; c < C; ++c) {
      emission[c] = task.emission[task.hap[task.column - 2 - c]];
      X[c] = V::load(task.border);
      diagonal[c] = V::zero();
    }
    for (int64_t i = task.rows - 1; i >= 0; --i) {
      const Row row(task.numbers + i * BatchTask::kNumbers * kLanes);
      Reg Y = V::load(task.from + i * kCell + kLanes);
      handed = V::load(task.from + i * kCell);
#pragma GCC unroll 8
      for (int c = 0; c < C; ++c) {
        const Reg below = diagonal[c], gaps = V::add(V::mul(row.mx, X[c]), V::mul(row.my, Y));
        diagonal[c] = handed;
        handed = V::mul(V::load(emission[c] + i * kLanes), V::add(V::mul(row.mm, below), gaps));
        Y = V::add(below, V::mul(row.yy, Y));
        X[c] = V::add(below, V::mul(row.xx, X[c]));
      }
      V::store(task.to + i * kCell, handed);
      V::store(task.to + i * kCell + kLanes, Y);
    }
    for (int c = 0; c < C; ++c)
      V::store(task.ends + (task.column - 1 - c) * kLanes, c + 1 < C ? diagonal[c + 1] : handed);
  }
};
