// base_alignment.h - how surely each base of a read is aligned where its alignment says.
// Source   the profile hidden Markov model of H. Li, "Improving SNP discovery by base alignment quality",
//          Bioinformatics 27 (2011): states match, insertion and deletion, forward and backward sums within a
//          band around the alignment. Gap extension is 0.1.
// Coords   positions are zero-based, into the piece of reference that is given.
// Threads  one object per thread; it keeps scratch memory from read to read.
// Cost     O(length x band); no allocation once warm. Bands that fit in 16 diagonals are summed in single precision.
#pragma once

#include <cstdint>
#include <vector>

class BaseAlignment {
 public:
  static constexpr int kBand = 7;            // diagonals on either side of those that the alignment takes
  static constexpr int kReach = kBand + 15;  // looked at there: the band is filled up to 16 diagonals
  static constexpr int kLowestQuality = 4;   // lower base qualities count as this one

  // `gap_open` is the phred quality of a gap's opening; by default that which reads state for indels.
  explicit BaseAlignment(double gap_open = 45);

  struct Piece {
    const char* bases;  // `length` letters
    const uint8_t* quals;
    const int32_t*
        positions;  // per base: the position that it is aligned with; of an inserted one, the last before it
    const uint8_t* inserted;  // per base: not 0 for one that is aligned with no position
    int length;
    const char* reference;  // letters; beyond its ends nothing matches
    int reference_length;
  };
  // Stores for each base the probability that its alignment is wrong, given that the piece as a whole lies within
  // the band. Neighbouring bases are at most a few hundred diagonals apart: memory is length x diagonals.
  void compute(const Piece& piece, float* errors);

 private:
  template <class Real, int kLanes>
  struct Sums;
  template <class Real, int kLanes>
  void run(const Piece& piece, int first_diagonal, int lanes, float* errors);
  template <class Real>
  std::vector<Real>& rows();

  double gap_open_;
  std::vector<int32_t> reference_bits_;
  std::vector<float> float_rows_;
  std::vector<double> double_rows_;
};
