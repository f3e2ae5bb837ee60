// row_kernel.h - lanes are columns of the haplotype, rows follow one another. Y runs along the lanes: within a register
// its chain is summed in log2(lanes) doubling steps. V is a vector register with its operations.
#pragma once

#include "algo/vcall/pairhmm/pair_hmm_kernel.h"

template <typename V>
struct AlongRow {
  using T = typename V::T;
  using Reg = typename V::Reg;
  static constexpr int kLanes = V::kLanes;

  // y[l] = a[l] + yy y[l-1], with y[-1] the last lane of `before`; in the other direction for Down.
  template <bool kDown>
  struct Chain {
    Reg power[3], carry_weight;

    explicit Chain(T yy) {
      T weights[kLanes], p = 1;
      for (int l = 0; l < kLanes; ++l) weights[kDown ? kLanes - 1 - l : l] = p *= yy;
      carry_weight = V::load(weights);
      T q = yy;
      for (int k = 0; k < 3; ++k, q *= q) power[k] = V::set1(q);
    }
    Reg sum(Reg a, T before) const {
      if constexpr (kDown) {
        a = V::add(a, V::mul(V::joinDown(V::rotateDown(a), V::zero()), power[0]));
        if constexpr (kLanes > 2) a = V::add(a, V::mul(V::down2(a), power[1]));
        if constexpr (kLanes > 4) a = V::add(a, V::mul(V::down4(a), power[2]));
      } else {
        a = V::add(a, V::mul(V::joinUp(V::rotateUp(a), V::zero()), power[0]));
        if constexpr (kLanes > 2) a = V::add(a, V::mul(V::up2(a), power[1]));
        if constexpr (kLanes > 4) a = V::add(a, V::mul(V::up4(a), power[2]));
      }
      return V::add(a, V::mul(carry_weight, V::set1(before)));
    }
  };

  static Reg emission(const KernelTask<T>& task, int i, int64_t j, const T* own) {
    const Reg equal = V::agree(V::set1(task.read[i]), V::load(task.hap + j));
    return V::select(equal, V::set1(own[6]), V::set1(own[7]));
  }

  static void forward(const KernelTask<T>& task) {
    const int64_t n = static_cast<int64_t>(task.slots);
    for (int i = 1; i <= task.rows; ++i) {
      const T *own = task.row_numbers + i * 8, *next_row = own + 8;
      const Reg mm = V::set1(next_row[0]), xm = V::set1(next_row[1]), mx = V::set1(next_row[2]),
                xx = V::set1(next_row[3]), my = V::set1(own[4]);
      const Chain<false> chain(own[5]);
      const T* to_match = task.match + (i - 1) * n;
      T *new_match = task.match + i * n, *new_gap = task.gap + i * n;
      for (int64_t j = task.first + 1; j <= task.last; j += kLanes) {
        const Reg M = V::mul(V::load(to_match + j - 1), emission(task, i, j, own)),
                  X = V::load(task.line + j);
        const Reg gap = chain.sum(V::mul(M, my), new_gap[j - 1]);
        const Reg Y = V::joinUp(V::rotateUp(gap), V::set1(new_gap[j - 1]));
        V::store(new_gap + j, gap);
        V::store(new_match + j, V::add(V::mul(M, mm), V::mul(V::add(X, Y), xm)));
        V::store(task.line + j, V::add(V::mul(M, mx), V::mul(X, xx)));
      }
    }
  }

  static void backward(const KernelTask<T>& task) {
    const int64_t n = static_cast<int64_t>(task.slots);
    for (int i = task.rows; i > 0; --i) {
      const T *own = task.row_numbers + i * 8, *next_row = own + 8;
      const Reg mm = V::set1(next_row[0]), xm = V::set1(next_row[1]), mx = V::set1(next_row[2]),
                xx = V::set1(next_row[3]), my = V::set1(own[4]);
      const Chain<true> chain(own[5]);
      const T* in_match = task.match + (i + 1) * n;
      T *new_match = task.match + i * n, *new_gap = task.gap + i * n;
      for (int64_t end = task.last + 1; end > task.first + 1; end -= kLanes) {
        const int64_t j = end - kLanes;
        const Reg next = V::load(in_match + j + 1), X = V::load(task.line + j);
        const Reg entered = V::mul(xm, next);
        const Reg gap = chain.sum(entered, new_gap[end]);
        const Reg Y = V::joinDown(V::rotateDown(gap), V::set1(new_gap[end]));
        V::store(new_gap + j, gap);
        const Reg gaps = V::add(V::mul(mx, X), V::mul(my, Y));
        V::store(new_match + j, V::mul(emission(task, i, j, own), V::add(V::mul(mm, next), gaps)));
        V::store(task.line + j, V::add(entered, V::mul(xx, X)));
      }
    }
  }
};
