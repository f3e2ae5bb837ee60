// phred_tables.h - probabilities of phred qualities, in both precisions.
// Threads  filled at first use, constant from then on.
#pragma once

#include <cstdint>

template <typename T>
struct PhredTables {
  static constexpr int kMaxTabled = 254;

  T pow10Neg[256];  // 10^(-q/10)
  // Staying with matches where an insertion has quality `min` and a deletion `max` or the other way round, at
  // min + max * (max + 1) / 2. Never below 0, to which qualities under 4 would lead.
  T matchToMatch[(kMaxTabled + 1) * (kMaxTabled + 2) / 2];

  PhredTables();
  T stayMatched(uint8_t insQual, uint8_t delQual) const;
};

template <typename T>
const PhredTables<T>& phredTables();
