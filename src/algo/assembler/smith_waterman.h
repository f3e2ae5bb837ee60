// smith_waterman.h - alignment of a read or haplotype to a reference with affine gap scores.
// Shape    rows are reference bases, columns read bases; row 0 and column 0 are the borders before the first
//          base. A cell is the best score of an alignment of the first `row` and `column` bases that begins
//          on a border.
// Coords   offsets are zero-based into the sequences given.
// Bases    letters. A, C, G, T and N match themselves; a reference base of any other byte, lower case
//          included, scores as an A. Callers pass upper case.
// Ties     within a cell a pair of bases before a deletion before an insertion; opening a gap before
//          extending it. Gaps thus end up as far left as their score allows.
// Owns     an aligner owns its memory, and keeps it from call to call; it may live on the stack of one call.
// Threads  one thread at a time per object.
// Errors   std::runtime_error for an empty sequence, for more than kMaxCells cells or kMaxLength bases, and
//          for scores with which a cell might leave 31 bits.
// Cost     O(reference x read) time, half a byte of memory per cell. With ALIGN_END_TO_END the time is that of a band
//          around the diagonals of both ends, as wide as the bases that the score falls short of.
// Source   Gotoh, An improved algorithm for matching biological sequences (1982); the gaps within a row by a
//          prefix scan, as in Khajeh-Saeed et al., Acceleration of the Smith-Waterman algorithm using
//          graphics processors (2010).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "algo/assembler/cigar_elements.h"

namespace SMITHWATERMAN {

// What becomes of the ends of the read and the reference that lie outside the alignment.
enum OverhangStrategy : uint32_t {
  // Free at all ends. Read bases outside become soft clips.
  OVERHANG_CLIP = 0,
  // Both sequences from end to end: what is left over is a gap, and scored as one.
  OVERHANG_GAP = 1,
  // As OVERHANG_GAP at the left end, with the deletion or insertion written and `alignmentOffset` 0. At the
  // right end free; read bases that hang over the end of the reference are written as an insertion that costs
  // nothing.
  OVERHANG_LEADING_GAP = 2,
  // Free at the left end, where read bases before the reference are written as an insertion that costs
  // nothing. The alignment ends with the last base of the read, anywhere on the reference.
  OVERHANG_NONE = 3,
};

using Scores =
    int32_t[4];  // match, mismatch, gap open (the first base of a gap), gap extend (each further base)
inline constexpr Scores haplotypeAlignScores = {200, -150, -260, -11};

// Flags of align().
enum AlignFlag : uint32_t {
  ALIGN_SCORE_ONLY = 1,  // leaves `cigar` empty and `alignmentOffset` 0
  ALIGN_END_TO_END =
      2,  // quick where the sequences turn out to be much the same from end to end; of OVERHANG_CLIP
};

struct AlignmentStatus {
  bool aligned = false;            // at least one column and one row lie within the alignment
  bool leading_overhang = false;   // read bases lie before the reference
  bool trailing_overhang = false;  // read bases lie behind the end of the reference
  bool tied = false;               // an alternative path is kept, of SWPairwiseAlignmentWithAlterPath only
};
static_assert(sizeof(AlignmentStatus) == 4);

struct AlignmentResult {
  CigarElements cigar;          // covers the whole read
  int32_t alignmentOffset = 0;  // of the first base of the reference in the alignment
  int32_t score = 0;            // of the best cell
  int32_t bestRow = -1;         // the best cell: bases of the reference and of the read up to the end of the
  int32_t bestColumn = -1;      // alignment. Both -1 when not aligned: then the best cell lies on a border.
  AlignmentStatus status;
};

class Matrix;

class SmithWaterman {
 public:
  static constexpr size_t kMaxCells = size_t(1) << 28;
  static constexpr size_t kMaxLength = size_t(1) << 22;  // of each sequence

  SmithWaterman();
  virtual ~SmithWaterman();

  void align(const char* reference, size_t referenceLength, const char* read, size_t readLength,
             const Scores& scores, OverhangStrategy overhangStrategy, uint32_t flags = 0);
  const AlignmentResult& result() const { return result_; }

 protected:
  struct Cell {
    int32_t row, column, score;
  };

  Cell fillAndFind(const char* reference, size_t referenceLength, const char* read, size_t readLength,
                   const Scores& scores, OverhangStrategy strategy, bool end_to_end);
  virtual Cell bestCell(OverhangStrategy strategy) const = 0;
  virtual bool keepsTies() const { return false; }
  // Path from `best` to a border. With `at_tie` it takes the second choice at the first cell, counted from
  // its end, that has one; false, with `result` unchanged, when there is none.
  bool traceBack(Cell best, OverhangStrategy strategy, bool at_tie, AlignmentResult& result) const;
  virtual void keepPaths(Cell best, OverhangStrategy strategy);

  // The better of `best` and the cells of the last row. An equal score wins only nearer the main diagonal.
  Cell bestOfLastRow(Cell best) const;

  std::unique_ptr<Matrix> matrix_;
  AlignmentResult result_;
};

// The best cell lies at the right end of the read or at that of the reference, see OverhangStrategy. In the
// last column the later row wins ties; the last row wins only with a higher score, or nearer the main
// diagonal.
class SWPairwiseAlignment : public SmithWaterman {
 protected:
  Cell bestCell(OverhangStrategy strategy) const override;
};

// Also keeps a second path of the same score when some cell of the best path has two ways to reach its score:
// the path that takes the other way at the tie nearest the end.
class SWPairwiseAlignmentWithAlterPath : public SWPairwiseAlignment {
 public:
  // Null without a tie.
  const AlignmentResult* alternative() const { return result_.status.tied ? &alternative_ : nullptr; }

 protected:
  bool keepsTies() const override { return true; }
  void keepPaths(Cell best, OverhangStrategy strategy) override;

 private:
  AlignmentResult alternative_;
};

// The whole reference against the first bases of the read: the best cell is that of the last row. When none
// there scores more than the border of its column, where no base of the reference is used, nothing is aligned
// and the offset is 0.
class SWPairwiseAlignmentPrefix : public SmithWaterman {
 protected:
  Cell bestCell(OverhangStrategy strategy) const override;
};

}  // namespace SMITHWATERMAN
