// halves.h - which columns of a haplotype are new after the one before: what both share at their ends is known.
// Owns     nothing: the haplotype before must still be in memory.
#pragma once

#include <algorithm>
#include <cstdint>

// Columns of one score. Forward: (prefix, cut]; backward, from right to left: (cut, last].
struct MiddleColumns {
  int length, prefix, cut, last;
};

class Halves {
 public:
  void forget() { previous_ = nullptr; }
  bool empty() const { return !previous_; }

  // What is to be computed for the next haplotype; both halves are taken to hold for it from then on.
  MiddleColumns next(const uint8_t* hap, int length) {
    int prefix = 0, suffix = 0;
    if (previous_) {
      prefix = commonPrefix(previous_, hap, std::min(forward_columns_, length));
      suffix = commonSuffix(previous_ + previous_length_, hap + length, std::min(backward_columns_, length));
    }
    const bool known = length <= prefix + suffix;
    const int cut = known ? prefix : prefix + (length - prefix - suffix + 1) / 2;
    previous_ = hap;
    previous_length_ = length;
    forward_columns_ = cut;
    backward_columns_ = known ? suffix : length - cut;
    return {length, prefix, cut, known ? cut : length - suffix};
  }

 private:
  // Bytes that two sequences share at their start, at most `limit`.
  static int commonPrefix(const uint8_t* a, const uint8_t* b, int limit) {
    return static_cast<int>(std::mismatch(a, a + limit, b).first - a);
  }
  // The same at their ends.
  static int commonSuffix(const uint8_t* a_end, const uint8_t* b_end, int limit) {
    int n = 0;
    while (n < limit && a_end[-1 - n] == b_end[-1 - n]) ++n;
    return n;
  }

  const uint8_t* previous_ = nullptr;  // not owned
  int previous_length_ = 0;
  int forward_columns_ = 0, backward_columns_ = 0;  // as far as the halves hold for `previous_`
};
