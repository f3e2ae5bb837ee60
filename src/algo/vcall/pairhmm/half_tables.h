// half_tables.h - what all engines share: a forward table that covers the haplotype's left part, a backward table that
// covers the rest, how far both still hold for the next haplotype, and the join of the two.
//
// The model. States: match M and insertion X consume a read base, M and deletion Y a haplotype base. With transitions
// mm, xm (to M from X and from Y), mx, xx, my, yy of read base i = 1..R, and emissions e(i, j) of haplotype base j = 1..H:
//     M(i, j) = (M(i-1, j-1) mm[i] + (X(i-1, j-1) + Y(i-1, j-1)) xm[i]) e(i, j)
//     X(i, j) =  M(i-1, j)   mx[i] +  X(i-1, j)   xx[i]
//     Y(i, j) =  M(i, j-1)   my[i] +  Y(i, j-1)   yy[i]
//     Y(0, j) = start for j = 0..H-1; all else in row 0 and column 0 is 0
//     probability of the read = sum over j of M(R, j) + X(R, j)
// The forward table holds, of each cell, what leaves it to the right:
//     toMatch(i, j) = M mm[i+1] + (X + Y) xm[i+1] = M(i+1, j+1) / e(i+1, j+1)
//     toGap(i, j)   = M my[i]   + Y yy[i]         = Y(i, j+1)
// and the backward table what a path gains from entering a cell from the left until its end:
//     inMatch(i, j) = e(i, j) bM(i, j),   inGap(i, j) = bY(i, j), with
//     bM(i, j) = mm[i+1] inMatch(i+1, j+1) + mx[i+1] bX(i+1, j) + my[i] inGap(i, j+1)
//     bX(i, j) = xm[i+1] inMatch(i+1, j+1) + xx[i+1] bX(i+1, j)
//     bY(i, j) = xm[i+1] inMatch(i+1, j+1) + yy[i] inGap(i, j+1)
//     bX(R+1, j) = 1; inMatch(R+1, j) = inMatch(i, H+1) = inGap(i, H+1) = 0
// A path either ends in columns 1..f, or starts right of them, or crosses from column f to f + 1, once:
//     sum over j <= f of M(R, j) + X(R, j)  +  start xm[1] sum over j > f of inMatch(1, j)
//     + sum over i of toMatch(i, f) inMatch(i+1, f+1) + toGap(i, f) inGap(i, f+1)
// Row R + 1 is made up, with mm = xm = 0 and mx = xx = 1, so that M(R, j) + X(R, j) is what row R hands down as X.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "algo/vcall/pairhmm/aligned_buffer.h"
#include "algo/vcall/pairhmm/engine.h"
#include "algo/vcall/pairhmm/halves.h"
#include "algo/vcall/pairhmm/phred_tables.h"

template <typename T>
class HalfTables : public PairHMM::Engine {
 protected:
  // 2^120: keeps all but the worst reads out of float's denormal numbers. The backward table has the same scale.
  static constexpr T kInitialScale = static_cast<T>(1.329227995784916e+36);
  // Spare columns at both ends of the tables and between the halves, for kernels that work in blocks of up to 16.
  static constexpr int kPad = 20;

  using Columns = MiddleColumns;

  void resizeTables(int maxRead, int maxHap) {
    max_hap_ = maxHap;
    slots_ = static_cast<size_t>(maxHap) + 3 * kPad;
    rows_ = (static_cast<size_t>(maxRead) + 2 + 15) / 16 * 16 + 16;
    match_.reserve(rows_ * slots_);
    gap_.reserve(rows_ * slots_);
    line_.reserve(std::max(rows_, slots_) * 16);
    end_.reserve(slots_);
    ended_.reserve(slots_);
    started_.reserve(slots_);
    newRead();
  }
  void newRead() { halves_.forget(); }

  // What is to be computed for the next haplotype; both tables are taken to hold for it from then on.
  Columns nextHaplotype(const uint8_t* hap, int length) {
    fresh_ = halves_.empty();
    return halves_.next(hap, length);
  }

  // Where column j of the forward and of the backward table lies. Of a haplotype both halves together have at most
  // maxHap columns, so they share the slots: forward from the left, backward from the right.
  size_t forwardSlot(int j) const { return static_cast<size_t>(j + kPad); }
  size_t backwardSlot(int j, int hap_length) const {
    return slots_ - kPad - 1 - static_cast<size_t>(hap_length - j);
  }

  T start() const { return kInitialScale / static_cast<T>(max_hap_); }

  // The score. `enter` is xm[1], cell(i, slot) the place of a cell in the tables, emission(i, j) that of the model. The
  // kernel has left M(R, j) + X(R, j) of its new columns in end_[j].
  template <typename Cell, typename Emission>
  double join(const Columns& c, int R, T enter, Cell cell, Emission emission, bool debug) {
    const int right = c.length - c.cut;  // columns of the backward part
    ended_[0] = started_[0] = 0;
    for (int j = c.prefix + 1; j <= c.cut; ++j) ended_[j] = ended_[j - 1] + end_[j];
    for (int j = c.last; j > c.cut; --j) {
      const int k = c.length + 1 - j;
      started_[k] = started_[k - 1] + match_[cell(1, backwardSlot(j, c.length))];
    }
    const double enter_right = static_cast<double>(start()) * enter;
    const size_t f = forwardSlot(c.cut), b = backwardSlot(c.cut + 1, c.length);
    double matches = 0, gaps = 0;
    for (int i = 1; i < R; ++i) {
      matches += static_cast<double>(match_[cell(i, f)]) * match_[cell(i + 1, b)];
      gaps += static_cast<double>(gap_[cell(i, f)]) * gap_[cell(i, b)];
    }
    const double total = ended_[c.cut] + (enter_right * started_[right] + matches + gaps) / kInitialScale;
    if (debug) trace(c, R, enter, cell, emission, total);
    static const double log10_scale = std::log10(static_cast<double>(kInitialScale));
    return std::log10(total / c.length * max_hap_) - log10_scale;
  }

  int max_hap_ = 0;
  size_t rows_ = 0, slots_ = 0;
  bool fresh_ = true;  // the current haplotype is the first of its read: the outermost columns are unset
  AlignedBuffer<T> match_,
      gap_;                // toMatch and toGap in the forward part, inMatch and inGap in the backward part
  AlignedBuffer<T> line_;  // scratch of the kernels
  AlignedBuffer<T> end_;

 private:
  // The terms of the sum in the scale of the tables: of row R what ends in each column, of row 0 what begins in each
  // column, and the two factors of each crossing.
  template <typename Cell, typename Emission>
  void trace(const Columns& c, int R, T enter, Cell cell, Emission emission, double total) const {
    for (int j = 1; j <= c.cut; ++j) {
      const T above = R == 1 ? start() * enter : match_[cell(R - 1, forwardSlot(j - 1))];
      const double M = double(above * emission(R, j));
      fprintf(stderr, "fx[%d,%d] = %f\n", R, j, ended_[j] - ended_[j - 1] - M);
      fprintf(stderr, "fm[%d,%d] = %f\n", R, j, M);
    }
    for (int j = c.cut + 1; j <= c.length; ++j)
      fprintf(stderr, "by[%d,%d] = %f\n", 0, j, double(match_[cell(1, backwardSlot(j, c.length))]));
    const size_t f = forwardSlot(c.cut), b = backwardSlot(c.cut + 1, c.length);
    for (int i = 1; i < R; ++i) {
      fprintf(stderr, "fm[%d,%d] = %f\tbm[%d,%d] = %f\n", i, c.cut, double(match_[cell(i, f)]), i + 1,
              c.cut + 1, double(match_[cell(i + 1, b)]));
      fprintf(stderr, "fy[%d,%d] = %f\tby[%d,%d] = %f\n", i, c.cut, double(gap_[cell(i, f)]), i, c.cut + 1,
              double(gap_[cell(i, b)]));
    }
    fprintf(stderr, "sum = %f\n", total);
  }

  Halves halves_;
  AlignedBuffer<double> ended_;    // by j, what has ended in columns 1..j
  AlignedBuffer<double> started_;  // by k, what begins in the last k columns, for a start of weight 1
};
