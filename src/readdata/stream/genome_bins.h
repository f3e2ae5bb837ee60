// genome_bins.h - the bins and windows by which binning indexes (.bai, .tbi) find what lies on a contig: bins of
// 2^29, 2^26 ... 2^14 bases, each level numbered behind the wider one, and beside them windows of 2^14 bases.
// Source   the BAI binning scheme of the SAM format document.
// Coords   zero-based half open.
#pragma once

#include <cstdint>

inline constexpr uint32_t kMaxBinnedLength = uint32_t(1) << 29;  // bases that the scheme can number
inline constexpr uint32_t kPseudoBin = 37450;                    // no place: it holds counts
inline constexpr int kWindowShift = 14;                          // of the windows of a linear index

struct BinLevel {
  int shift;           // a bin covers 2^shift bases
  uint32_t first_bin;  // number of the level's first bin
};
// From the narrow bins, one per window, to the one that holds all.
inline constexpr BinLevel kBinLevels[] = {{14, 4681}, {17, 585}, {20, 73}, {23, 9}, {26, 1}, {29, 0}};

// The smallest bin that holds [start, end), or one base when that is empty; 0 beyond kMaxBinnedLength.
inline uint32_t smallestBin(uint32_t start, uint32_t end) {
  const uint32_t last = end > start ? end - 1 : start;
  if (last >= kMaxBinnedLength) return 0;
  for (const BinLevel& level : kBinLevels)
    if (start >> level.shift == last >> level.shift) return level.first_bin + (start >> level.shift);
  return 0;
}

// The first base of a bin.
inline uint64_t binStart(uint32_t bin) {
  for (const BinLevel& level : kBinLevels)
    if (bin >= level.first_bin) return uint64_t(bin - level.first_bin) << level.shift;
  return 0;
}
