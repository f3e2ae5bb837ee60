// pair_hmm_kernel.h - the vector kernels: what they get, and the recursion itself over any kind of vector register.
// half_tables.h has the model. Included by the files of one instruction set, so it includes next to nothing itself.
#pragma once

#include <cstdint>

// Columns (first, last] of one half, to be computed from those beside them.
template <typename T>
struct KernelTask {
  T *match, *gap;  // the tables, moved so that column j is slot j
  uint64_t slots;
  // What one row or stripe hands to the next as X: by column for row kernels; for striped ones half a stripe by slot, the
  // half with the row next to the other stripe.
  T* line;
  int rows;  // of the read
  int first, last;
  T border;  // forward toMatch(0, j), backward bX(R+1, j)
  // By row, from 1 on: for striped kernels to the end of the last stripe, with made-up rows, and with xm (null) worked
  // into mx, xx and my so that X and Y go to M with a factor of 1; all null for row kernels, which
  // take the same numbers, in this order, from row_numbers[8 * row].
  const T *mm, *xm, *mx, *xx, *my, *yy, *match_emission, *mismatch;
  const T* row_numbers;
  // Bases as numbers, NaN for one that agrees with all: of row i at read[i]; of column j at hap[j] for row kernels, and
  // at hap_by_parity[j & 1][-(j >> 1)] for striped kernels.
  const T *read, *hap, *hap_by_parity[2];
};

// Rows of a stripe, which is how the tables of the striped kernels are cut. With l the place of a row in its stripe, column j
// lies in slot j + l, so that one slot holds cells along an anti-diagonal; of a slot, even rows come first.
// cell(i, j) = ((i - 1) / stripe * slots + j + l) * stripe + l / 2 + (l odd ? stripe / 2 : 0)
template <typename T>
struct StripedKernel {
  int stripe;
  void (*forward)(const KernelTask<T>&);
  void (*backward)(const KernelTask<T>&);
};

// Lanes along the haplotype; cell(i, j) = i * slots + j.
template <typename T>
struct RowKernel {
  void (*forward)(const KernelTask<T>&);
  void (*backward)(const KernelTask<T>&);
};

// One pass over neighbouring columns for a batch of reads; see batch_kernel.h.
struct BatchTask {
  static constexpr int kNumbers = 5;

  int rows;           // of the longest read
  int column, count;  // begins beside `column`, with up to `count` columns, at most `columns` of the kernel
  const float* from;  // what `column` holds
  float* to;          // of the last column of the pass; may be `from`
  const uint8_t* hap;
  // By lane: forward toMatch(0, j), backward bX(R+1, j).
  const float* border;
  // By row and lane: mm, mx and xx of the row below, my and yy of its own, with xm worked in as for striped kernels.
  const float* numbers;
  const float* const* emission;  // by letter of the haplotype, then by row and lane
  float* ends;                   // out, by column and lane: forward M(R, j) + X(R, j), backward inMatch(1, j)
};

struct BatchKernel {
  int lanes, columns;
  void (*forward)(const BatchTask&);
  void (*backward)(const BatchTask&);
  void (*join)(const float* left, const float* right, int rows, double* matches, double* gaps);
};

extern const StripedKernel<float> kStripedSseFloat, kStripedAvxFloat;
extern const StripedKernel<double> kStripedSseDouble, kStripedAvxDouble;
extern const RowKernel<float> kRowSseFloat, kRowAvxFloat;
extern const RowKernel<double> kRowSseDouble, kRowAvxDouble;
extern const BatchKernel kBatchAvx, kBatchAvx512;
