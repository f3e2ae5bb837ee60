#include "quality_model.h"

#include <algorithm>

namespace {

// 2^32 times the error probability of each quality. A table, since pow() may differ in the last bit.
constexpr uint32_t kErrorChance[] = {
    4294967295, 3411613790, 2709941159, 2152582777, 1709857277, 1358187913, 1078847007, 856958638, 680706442,
    540704347,  429496729,  341161379,  270994115,  215258277,  170985727,  135818791,  107884700, 85695863,
    68070644,   54070434,   42949672,   34116137,   27099411,   21525827,   17098572,   13581879,  10788470,
    8569586,    6807064,    5407043,    4294967,    3411613,    2709941,    2152582,    1709857,   1358187,
    1078847,    856958,     680706,     540704,     429496,     341161};
constexpr int32_t kBest = 41;
constexpr char kBases[] = "ACGT";

}  // namespace

QualityModel::QualityModel(ErrorProfile profile, int32_t read_length) : profile_(profile) {
  constexpr int32_t kTop = 38, kDrop[2] = {6, 10}, kWarmUp = 5;
  for (int second = 0; second < 2; ++second)
    for (int32_t cycle = 0; cycle < read_length; ++cycle) {
      int32_t fall = kDrop[second] * cycle * cycle / (read_length * read_length);
      int32_t warm_up = cycle < kWarmUp ? kWarmUp - cycle : 0;
      mean_[second].push_back(static_cast<int8_t>(kTop - fall - warm_up));
    }
}

uint8_t QualityModel::shape(int32_t quality) const {
  if (profile_ != ErrorProfile::kBinned)
    return static_cast<uint8_t>(std::clamp<int32_t>(quality, kJunk, kBest));
  return quality < 7 ? kJunk : quality < 18 ? 11 : quality < 30 ? 25 : 37;
}

void QualityModel::apply(Rng& rng, bool second, std::string& bases, std::vector<uint8_t>& quals) const {
  quals.resize(bases.size());
  if (profile_ == ErrorProfile::kPerfect) {
    std::fill(quals.begin(), quals.end(), 40);
    return;
  }
  int32_t offset = rng.oneIn(30) ? -8 : std::clamp(rng.normal(0, 2), -5, 3);
  for (size_t cycle = 0; cycle < bases.size(); ++cycle) {
    uint64_t word = rng.next();
    int32_t jitter = static_cast<int32_t>(word >> 32 & 3) - 1;
    bool dip = (word >> 40 & 31) == 0;
    if (dip) jitter -= static_cast<int32_t>(word >> 48 & 31);
    uint8_t quality = shape(mean_[second][cycle] + offset + jitter);
    quals[cycle] = quality;
    if (static_cast<uint32_t>(word) >= kErrorChance[quality]) continue;
    if (quality == kJunk && (word >> 56 & 3) == 0) {
      bases[cycle] = 'N';
      continue;
    }
    char wrong = kBases[rng.below(3)];
    bases[cycle] = wrong == bases[cycle] ? 'T' : wrong;
  }
}
