// smith_waterman_matrix.h - the matrix of one alignment: directions of all cells, scores of the last row and
// column.
// Owns     one allocation, which grows and never shrinks.
// Threads  one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "algo/assembler/smith_waterman.h"
#include "algo/assembler/smith_waterman_kernel.h"

namespace SMITHWATERMAN {

class Matrix {
 public:
  // With `gap_borders` a cell of row 0 or column 0 costs a gap of its length, else nothing. Lengths and
  // scores have been checked. Cells outside of the band have no direction, and no more than a path to them can score.
  void fill(const char* reference, size_t reference_length, const char* read, size_t read_length,
            const Scores& scores, bool gap_borders, bool keep_ties, Band band);

  int32_t rows() const { return static_cast<int32_t>(job_.reference_length); }
  int32_t columns() const { return static_cast<int32_t>(job_.read_length); }
  int32_t firstRow(int32_t column) const { return border(column); }
  int32_t lastRow(int32_t column) const {
    return column == 0 ? job_.first_column[rows()] : job_.h[column - 1];
  }
  int32_t lastColumn(int32_t row) const { return job_.last_column[row]; }
  // Of a cell with row and column above 0: the bits of DirectionBit and TieBit.
  uint32_t direction(int32_t row, int32_t column) const {
    return uint32_t{job_.directions[word(row, column)]} >> ((column - 1) & 3);
  }
  uint32_t tie(int32_t row, int32_t column) const {
    return uint32_t{job_.ties[word(row, column)]} >> ((column - 1) & 3);
  }

 private:
  struct Free {
    void operator()(void* memory) const { std::free(memory); }
  };

  size_t word(int32_t row, int32_t column) const {
    return static_cast<size_t>(row - 1) * (job_.stride / 4) + static_cast<size_t>(column - 1) / 4;
  }
  int32_t border(int32_t length) const {
    return gap_borders_ && length > 0 ? job_.open + (length - 1) * job_.extend : 0;
  }

  std::unique_ptr<char, Free> memory_;
  size_t capacity_ = 0;
  FillJob job_ = {};
  bool gap_borders_ = false;
};

}  // namespace SMITHWATERMAN
