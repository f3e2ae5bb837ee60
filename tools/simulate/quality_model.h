// quality_model.h - base qualities over the cycles of a read, and errors at the rate the qualities claim.
// Threads  constant; draws change the caller's Rng only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "options.h"
#include "rng.h"

class QualityModel {
 public:
  static constexpr uint8_t kJunk = 2;  // quality of bases that mean nothing

  QualityModel(ErrorProfile profile, int32_t read_length);

  // Gives each base of a read, in the order of the cycles, its quality and puts the errors in. `second` reads
  // fall faster. A base of the lowest quality may become N.
  void apply(Rng& rng, bool second, std::string& bases, std::vector<uint8_t>& quals) const;

 private:
  uint8_t shape(int32_t quality) const;

  ErrorProfile profile_;
  std::vector<int8_t> mean_[2];  // per cycle, of first and second reads
};
