// strand_table.h - reads by allele and strand, and what such a table says of strand bias.
// Threads  pure functions.
#pragma once

#include <cstdint>

struct StrandTable {
  int64_t refForward = 0, refReverse = 0, altForward = 0, altReverse = 0;

  int64_t total() const { return refForward + refReverse + altForward + altReverse; }
  void add(const StrandTable& other) {
    refForward += other.refForward, refReverse += other.refReverse;
    altForward += other.altForward, altReverse += other.altReverse;
  }
  void addRead(bool alternate, bool reverse) {
    ++(alternate ? reverse ? altReverse : altForward : reverse ? refReverse : refForward);
  }
};

// Fisher's exact test, two-sided, in (0, 1]. A table of more than 400 reads is scaled down to 200 first: the test would
// otherwise find bias in any deep site.
double fisherP(StrandTable table);

// The natural logarithm of the symmetric odds ratio, with 1 added to each cell: large when the alternate favours a
// strand that the reference does not.
double strandOddsRatio(const StrandTable& table);
