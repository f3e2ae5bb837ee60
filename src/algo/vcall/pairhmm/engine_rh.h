// engine_rh.h - the engine that goes through the read in its outer loop and along the haplotype in its inner one.
#pragma once

#include "algo/vcall/pairhmm/half_tables.h"

template <typename T>
class EngineRH : public HalfTables<T> {
 public:
  void resize(int maxRead, int maxHap, int gapLimit) override;
  void setPosition(int length, int pos, int baseQual, int insQual, int delQual, int gcp) override;
  double score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap, bool debug) override;

 protected:
  struct Row {  // vector kernels read it as 8 numbers
    T mm, xm, mx, xx, my, yy;
    T match, mismatch;
  };

  // Sets the rows and columns outside of the recursion, for the first haplotype of a read.
  void setBorders(int R, int hapLen);

  AlignedBuffer<Row> row_;  // read position p is row p + 1; the row behind the last is the made-up one
};
