// engine_hr.h - the engine that goes through the haplotype in its outer loop and through the read in its inner one.
#pragma once

#include "algo/vcall/pairhmm/half_tables.h"

template <typename T>
class EngineHR : public HalfTables<T> {
 public:
  void resize(int maxRead, int maxHap, int gapLimit) override;
  void setPosition(int length, int pos, int baseQual, int insQual, int delQual, int gcp) override;
  double score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap, bool debug) override;

 protected:
  // By row; read position p is row p + 1, and row R + 1 and those behind it are the made-up ones.
  AlignedBuffer<T> mm_, xm_, mx_, xx_, my_, yy_, match_emission_, mismatch_;
  bool endless_gap_ = false;  // a position of the read has a gcp of 0, so an xm of 0
};
