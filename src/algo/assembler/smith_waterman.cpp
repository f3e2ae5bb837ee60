#include "algo/assembler/smith_waterman.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "algo/assembler/smith_waterman_matrix.h"
#include "base/text.h"

namespace SMITHWATERMAN {

SmithWaterman::SmithWaterman() : matrix_(std::make_unique<Matrix>()) {}
SmithWaterman::~SmithWaterman() = default;

namespace {

// Bases to either side. Narrow: half of the haplotypes that differ from a reference by more than a few bases lack no more
// pairs than this, and for the others the first try cost little and tells how wide the second must be.
constexpr int32_t kFirstBand = 8;

void check(size_t reference_length, size_t read_length, const Scores& scores) {
  if (reference_length == 0) throw std::runtime_error("strlen(reference) == 0");
  if (read_length == 0) throw std::runtime_error("strlen(read) == 0");
  // The lengths first: their product then fits.
  if (reference_length > SmithWaterman::kMaxLength || read_length > SmithWaterman::kMaxLength ||
      reference_length * read_length > SmithWaterman::kMaxCells)
    throw std::runtime_error(format("Smith-Waterman: sequences of %zu and %zu bases are too long to align",
                                    reference_length, read_length));
  // No path can leave (-2^30, 2^30) then, with room for the cells behind the read and the shifts of a row.
  int64_t largest = 0;
  for (int32_t score : scores) largest = std::max(largest, std::abs(int64_t{score}));
  if (largest * static_cast<int64_t>(reference_length + read_length + 8) >= -int64_t{kMinusInfinity})
    throw std::runtime_error(
        format("Smith-Waterman: scores up to %lld are too large for sequences of %zu and %zu bases",
               static_cast<long long>(largest), reference_length, read_length));
}

}  // namespace

void SmithWaterman::align(const char* reference, size_t referenceLength, const char* read, size_t readLength,
                          const Scores& scores, OverhangStrategy overhangStrategy, uint32_t flags) {
  result_.cigar.clear();
  result_.alignmentOffset = result_.score = 0;
  result_.bestRow = result_.bestColumn = -1;
  result_.status = {};
  check(referenceLength, readLength, scores);

  const Cell best = fillAndFind(reference, referenceLength, read, readLength, scores, overhangStrategy,
                                (flags & ALIGN_END_TO_END) != 0);
  result_.score = best.score;
  if (best.row > 0 && best.column > 0) {
    result_.status.aligned = true;
    result_.bestRow = best.row;
    result_.bestColumn = best.column;
  }
  if (!(flags & ALIGN_SCORE_ONLY)) keepPaths(best, overhangStrategy);
}

// A path on a diagonal so many bases outside of both ends' own leaves out at least so many pairs. Once the best score is
// above what all other pairs together can give, no path beyond the band comes near it, and those inside are all known.
SmithWaterman::Cell SmithWaterman::fillAndFind(const char* reference, size_t referenceLength,
                                               const char* read, size_t readLength, const Scores& scores,
                                               OverhangStrategy strategy, bool end_to_end) {
  const bool gap_borders = strategy == OVERHANG_GAP || strategy == OVERHANG_LEADING_GAP;
  const auto rows = static_cast<int32_t>(referenceLength), columns = static_cast<int32_t>(readLength);
  const int32_t pairs = std::min(rows, columns), match = scores[0];
  const auto fill = [&](int32_t beyond) {
    const Band band = {std::min(0, rows - columns) - beyond, std::max(0, rows - columns) + beyond};
    matrix_->fill(reference, referenceLength, read, readLength, scores, gap_borders, keepsTies(), band);
    return bestCell(strategy);
  };
  const bool usual_scores = match > 0 && scores[1] <= match && scores[2] <= 0 && scores[3] <= 0;
  if (!end_to_end || strategy != OVERHANG_CLIP || !usual_scores || pairs <= kFirstBand) return fill(pairs);
  for (int32_t beyond = kFirstBand;;) {
    const Cell best = fill(beyond);
    const int32_t missing = (pairs * match - best.score) / match;  // pairs
    if (missing <= beyond) return best;
    beyond = missing;
  }
}

void SmithWaterman::keepPaths(Cell best, OverhangStrategy strategy) {
  traceBack(best, strategy, false, result_);
}

bool SmithWaterman::traceBack(Cell best, OverhangStrategy strategy, bool at_tie,
                              AlignmentResult& result) const {
  const CigarOperator& overhang = strategy == OVERHANG_CLIP ? kOpS : kOpI;
  const bool gap_borders = strategy == OVERHANG_GAP || strategy == OVERHANG_LEADING_GAP;
  CigarElements cigar;  // from the end
  const int32_t tail = matrix_->columns() - best.column;
  appendElement(cigar, static_cast<uint32_t>(tail), overhang);

  enum { kAnew, kDeletion, kInsertion } state = kAnew;
  int32_t row = best.row, column = best.column;
  while (row > 0 && column > 0) {
    const uint32_t direction = matrix_->direction(row, column);
    if (state == kAnew) {
      if (direction & kInsertionBest) {
        state = kInsertion;
      } else {
        if (direction & kDeletionBest) state = kDeletion;
        if (at_tie) {
          const uint32_t tie = matrix_->tie(row, column);
          if (state == kAnew && (tie & kDeletionTies)) {
            state = kDeletion;
            at_tie = false;
          } else if (tie & kInsertionTies) {
            state = kInsertion;
            at_tie = false;
          }
        }
      }
    }
    if (state == kInsertion) {
      appendElement(cigar, 1, kOpI);
      --column;
      if (!(direction & kInsertionGoesOn)) state = kAnew;
    } else if (state == kDeletion) {
      appendElement(cigar, 1, kOpD);
      --row;
      if (!(direction & kDeletionGoesOn)) state = kAnew;
    } else {
      appendElement(cigar, 1, kOpM);
      --row;
      --column;
    }
  }
  if (at_tie) return false;

  if (gap_borders && row > 0) {
    appendElement(cigar, static_cast<uint32_t>(row), kOpD);
    row = 0;
  }
  appendElement(cigar, static_cast<uint32_t>(column), overhang);
  std::reverse(cigar.begin(), cigar.end());
  result.cigar = std::move(cigar);
  result.alignmentOffset = row;
  result.status.leading_overhang = column > 0;
  result.status.trailing_overhang = tail > 0;
  return true;
}

SmithWaterman::Cell SmithWaterman::bestOfLastRow(Cell best) const {
  const int32_t rows = matrix_->rows();
  for (int32_t column = 1; column <= matrix_->columns(); ++column) {
    const int32_t score = matrix_->lastRow(column);
    if (score > best.score ||
        (score == best.score && std::abs(rows - column) < std::abs(best.row - best.column)))
      best = {rows, column, score};
  }
  return best;
}

SmithWaterman::Cell SWPairwiseAlignment::bestCell(OverhangStrategy strategy) const {
  const int32_t rows = matrix_->rows(), columns = matrix_->columns();
  if (strategy == OVERHANG_GAP) return {rows, columns, matrix_->lastRow(columns)};
  Cell best = {0, columns, matrix_->lastColumn(0)};
  for (int32_t row = 1; row <= rows; ++row)
    if (matrix_->lastColumn(row) >= best.score) best = {row, columns, matrix_->lastColumn(row)};
  return strategy == OVERHANG_NONE ? best : bestOfLastRow(best);
}

void SWPairwiseAlignmentWithAlterPath::keepPaths(Cell best, OverhangStrategy strategy) {
  traceBack(best, strategy, false, result_);
  alternative_ = result_;
  result_.status.tied = traceBack(best, strategy, true, alternative_);
}

SmithWaterman::Cell SWPairwiseAlignmentPrefix::bestCell(OverhangStrategy) const {
  const int32_t rows = matrix_->rows(), columns = matrix_->columns();
  Cell best = {0, columns, matrix_->firstRow(columns)};
  for (int32_t column = 1; column <= columns; ++column) {
    const int32_t score = matrix_->lastRow(column);
    if (score <= matrix_->firstRow(column)) continue;
    if (best.row == 0 || score > best.score ||
        (score == best.score && std::abs(rows - column) < std::abs(rows - best.column)))
      best = {rows, column, score};
  }
  return best;
}

}  // namespace SMITHWATERMAN
