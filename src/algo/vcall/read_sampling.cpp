#include "algo/vcall/read_sampling.h"

#include <algorithm>

namespace {

class Generator {
 public:
  // The name and the number, hashed by FNV-1a.
  Generator(const char* name, uint32_t number) {
    const auto mix = [this](uint8_t byte) { state_ = (state_ ^ byte) * 0x100000001b3; };
    for (; *name != 0; ++name) mix(uint8_t(*name));
    for (int shift = 0; shift < 32; shift += 8) mix(uint8_t(number >> shift));
  }

  uint64_t below(uint64_t bound) {
    uint64_t z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
    z = (z ^ z >> 27) * 0x94d049bb133111eb;
    return (z ^ z >> 31) % bound;
  }

 private:
  uint64_t state_ = 0xcbf29ce484222325;
};

}  // namespace

void sampleReads(std::vector<ReadClip>& reads, std::span<const size_t> limits, const char* contig,
                 uint32_t regionStart) {
  std::vector<size_t> left(limits.size()), wanted(limits.begin(), limits.end());
  for (const ReadClip& clip : reads) ++left[size_t(clip.sample)];
  if (std::equal(left.begin(), left.end(), wanted.begin(), [](size_t a, size_t b) { return a <= b; })) return;
  Generator generator(contig, regionStart);
  const auto drop = [&](const ReadClip& clip) {
    size_t& rest = left[size_t(clip.sample)];
    size_t& want = wanted[size_t(clip.sample)];
    const bool keep = want >= rest || generator.below(rest) < want;
    --rest;
    if (keep && want > 0) --want;
    return !keep;
  };
  size_t kept = 0;
  for (const ReadClip& clip : reads)
    if (!drop(clip)) reads[kept++] = clip;
  reads.resize(kept);
}
