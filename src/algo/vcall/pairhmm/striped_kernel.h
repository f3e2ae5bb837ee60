// striped_kernel.h - lanes are rows of the read, and each works one column behind the row above: all that a cell needs
// was computed for its own row or for the one above, one or two steps ago (the anti-diagonals of Wozniak 1997). V is a
// vector register with its operations. Two registers make up a stripe, one with its even rows and one with its odd rows:
// stepping down by a row, the even ones hand over as they are, and only the odd ones have to be shifted. Two chains
// of dependent operations also keep the arithmetic units busy where one would wait for itself.
#pragma once

#include "algo/vcall/pairhmm/pair_hmm_kernel.h"

#define FOR_LANES _Pragma("GCC unroll 2") for (int w = 0; w < W; ++w)

template <typename V>
struct Striped {
  using T = typename V::T;
  using Reg = typename V::Reg;
  static constexpr int W = 2, kLanes = V::kLanes, kStripe = kLanes * W;

  struct Stripe {
    Reg r[W];
  };
  static Stripe load(const T* from) {
    Stripe v;
    FOR_LANES v.r[w] = V::load(from + w * kLanes);
    return v;
  }
  static void store(T* to, const Stripe& v) { FOR_LANES V::store(to + w * kLanes, v.r[w]); }
  static Stripe all(T value) {
    Stripe v;
    FOR_LANES v.r[w] = V::set1(value);
    return v;
  }
  // Each row's value from the row above, `incoming` into the first: only one of the registers has to be shifted.
  static Stripe shiftDownRows(const Stripe& v, T incoming) {
    return {V::joinUp(V::rotateUp(v.r[1]), V::set1(incoming)), v.r[0]};
  }
  // Each row's value from the row below, `incoming` into the last.
  static Stripe shiftUpRows(const Stripe& v, T incoming) {
    return {v.r[1], V::joinDown(V::rotateDown(v.r[0]), V::set1(incoming))};
  }
  // Rows as they follow one another in memory.
  static Stripe loadRows(const T* from) {
    const Reg low = V::load(from), high = V::load(from + kLanes);
    return {V::evens(low, high), V::odds(low, high)};
  }
  // Of the rows `row` and below, all bits.
  static Stripe fromRow(int row) { return {V::fromLane((row + 1) / 2), V::fromLane(row / 2)}; }

  struct Rows {
    Stripe mm, mx, xx, my, yy, mismatch, difference, read;

    Rows(const KernelTask<T>& task, int above) {  // `above` is the row before the stripe's first
      mm = loadRows(task.mm + above + 2), mx = loadRows(task.mx + above + 2);
      xx = loadRows(task.xx + above + 2);
      my = loadRows(task.my + above + 1), yy = loadRows(task.yy + above + 1);
      mismatch = loadRows(task.mismatch + above + 1);
      const Stripe match = loadRows(task.match_emission + above + 1);
      FOR_LANES difference.r[w] = V::bitXor(match.r[w], mismatch.r[w]);
      read = loadRows(task.read + above + 1);
    }
    Reg emission(const T* hap, int w) const {
      const Reg equal = V::agree(read.r[w], V::load(hap));
      return V::bitXor(mismatch.r[w], V::bitAnd(equal, difference.r[w]));
    }
  };
  // Where the bases of the columns slot, slot - 2, slot - 4 and so on lie.
  static const T* basesFrom(const KernelTask<T>& task, int64_t slot) {
    return task.hap_by_parity[slot & 1] - (slot >> 1);
  }

  static void forward(const KernelTask<T>& task) {
    const int stripes = (task.rows + kStripe - 1) / kStripe;
    const T zero = 0;
    T* const line = task.line;
    const int64_t first = task.first + 1, last = task.last + kStripe - 1;  // slots
    for (int s = 0; s < stripes; ++s) {
      const Rows rows(task, s * kStripe);
      T* const match = task.match + uint64_t(s) * task.slots * kStripe;
      T* const gap = task.gap + uint64_t(s) * task.slots * kStripe;
      // What the row above the stripe hands down: its X and toMatch of column j.
      const int64_t step = s ? kStripe : 0, line_step = s ? kLanes : 0;
      const T* const above_gap = s ? line + (kStripe - 1) * kLanes + kLanes - 1 : &zero;
      const T* const above_match =
          s ? match - task.slots * kStripe + (kStripe - 1) * kStripe + kStripe - 1 : &task.border;

      const T* hap[W] = {basesFrom(task, first), basesFrom(task, first - 1)};  // by register
      Stripe X = all(above_gap[first * line_step]), Y = load(gap + (first - 1) * kStripe);
      Stripe diagonal = all(above_match[(first - 1) * step]);
      Stripe next_diagonal = shiftDownRows(load(match + (first - 1) * kStripe), above_match[first * step]);
      auto advance = [&](int64_t slot, auto keep) __attribute__((always_inline)) {
        Stripe to_match, to_gap, down;
        FOR_LANES {
          const Reg M = V::mul(diagonal.r[w], rows.emission(hap[w], w));
          to_match.r[w] = V::add(V::mul(M, rows.mm.r[w]), V::add(X.r[w], Y.r[w]));
          to_gap.r[w] = V::add(V::mul(M, rows.my.r[w]), V::mul(Y.r[w], rows.yy.r[w]));
          down.r[w] = V::add(V::mul(M, rows.mx.r[w]), V::mul(X.r[w], rows.xx.r[w]));
        }
        keep(slot, to_match, to_gap);
        store(match + slot * kStripe, to_match);
        store(gap + slot * kStripe, to_gap);
        V::store(line + slot * kLanes, down.r[1]);
        const T* const even = hap[1] - 1;
        hap[1] = hap[0];
        hap[0] = even;
        X = shiftDownRows(down, above_gap[(slot + 1) * line_step]);
        Y = to_gap;
        diagonal = next_diagonal;
        next_diagonal = shiftDownRows(to_match, above_match[(slot + 1) * step]);
      };
      int64_t slot = first;
      // Lanes that are still in columns up to task.first keep what is there.
      for (; slot < first + kStripe - 1; ++slot)
        advance(slot, [&](int64_t at, Stripe& to_match, Stripe& to_gap) {
          const Stripe known = fromRow(static_cast<int>(at - task.first));
          FOR_LANES {
            to_match.r[w] = V::select(known.r[w], V::load(match + at * kStripe + w * kLanes), to_match.r[w]);
            to_gap.r[w] = V::select(known.r[w], V::load(gap + at * kStripe + w * kLanes), to_gap.r[w]);
          }
        });
      for (; slot <= last; ++slot) advance(slot, [](int64_t, Stripe&, Stripe&) {});
    }
  }

  static void backward(const KernelTask<T>& task) {
    const int stripes = (task.rows + kStripe - 1) / kStripe;
    const T zero = 0;
    T* const line = task.line;
    const int64_t first = task.last + kStripe - 1, last = task.first + 1;  // slots, going down
    for (int s = stripes - 1; s >= 0; --s) {
      const Rows rows(task, s * kStripe);
      T* const match = task.match + uint64_t(s) * task.slots * kStripe;
      T* const gap = task.gap + uint64_t(s) * task.slots * kStripe;
      // What the row below the stripe hands up: its X of column j, and its inMatch of column j + 1, for the slot j + stripe
      // - 1 of the last lane.
      const bool bottom = s == stripes - 1;
      const int64_t step = bottom ? 0 : kStripe, line_step = bottom ? 0 : kLanes;
      const T* const below_gap = bottom ? &task.border : line - (kStripe - 1) * kLanes;
      const T* const below_match = bottom ? &zero : match + task.slots * kStripe - (kStripe - 2) * kStripe;

      const T* hap[W] = {basesFrom(task, first), basesFrom(task, first - 1)};  // by register
      Stripe X = all(below_gap[first * line_step]), Y = load(gap + (first + 1) * kStripe);
      Stripe diagonal = all(below_match[first * step]);
      Stripe next_diagonal =
          shiftUpRows(load(match + (first + 1) * kStripe), below_match[(first - 1) * step]);
      auto advance = [&](int64_t slot, auto keep) __attribute__((always_inline)) {
        Stripe in_match, in_gap, up;
        FOR_LANES {
          const Reg gaps = V::add(V::mul(rows.mx.r[w], X.r[w]), V::mul(rows.my.r[w], Y.r[w]));
          in_match.r[w] = V::mul(rows.emission(hap[w], w), V::add(V::mul(rows.mm.r[w], diagonal.r[w]), gaps));
          in_gap.r[w] = V::add(diagonal.r[w], V::mul(rows.yy.r[w], Y.r[w]));
          up.r[w] = V::add(diagonal.r[w], V::mul(rows.xx.r[w], X.r[w]));
        }
        keep(slot, in_match, in_gap);
        store(match + slot * kStripe, in_match);
        store(gap + slot * kStripe, in_gap);
        V::store(line + slot * kLanes, up.r[0]);
        const T* const odd = hap[0] + 1;
        hap[0] = hap[1];
        hap[1] = odd;
        X = shiftUpRows(up, below_gap[(slot - 1) * line_step]);
        Y = in_gap;
        diagonal = next_diagonal;
        next_diagonal = shiftUpRows(in_match, below_match[(slot - 2) * step]);
      };
      int64_t slot = first;
      // Lanes that are still in columns behind task.last keep what is there.
      for (; slot > first - (kStripe - 1); --slot)
        advance(slot, [&](int64_t at, Stripe& in_match, Stripe& in_gap) {
          const Stripe fresh = fromRow(static_cast<int>(at - task.last));
          FOR_LANES {
            in_match.r[w] = V::select(fresh.r[w], in_match.r[w], V::load(match + at * kStripe + w * kLanes));
            in_gap.r[w] = V::select(fresh.r[w], in_gap.r[w], V::load(gap + at * kStripe + w * kLanes));
          }
        });
      for (; slot >= last; --slot) advance(slot, [](int64_t, Stripe&, Stripe&) {});
    }
  }
};

#undef FOR_LANES
