// histogram.h - how often values fell into bins of equal width.
// Threads  one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct LocusStat {
  class Histogram {
   public:
    void add(double value);
    Histogram& operator+=(const Histogram& a);  // of the same bins

    std::vector<uint32_t> bins;  // bin i holds the values in (min + (i - 1) * binsize, min + i * binsize]
    double binsize = 1.0;
    double min = 1.0;           // smaller values go to bin 0
    double cap = 2147483647.0;  // larger ones count as this
    double maximum = 1.0;       // of all values
  };
};
