#include "algo/vcall/read_sampling.h"

#include <algorithm>

#include "algo/vcall/seeded_generator.h"

void sampleReads(std::vector<ReadClip>& reads, std::span<const size_t> limits, const char* contig,
                 uint32_t regionStart) {
  std::vector<size_t> left(limits.size()), wanted(limits.begin(), limits.end());
  for (const ReadClip& clip : reads) ++left[size_t(clip.sample)];
  if (std::equal(left.begin(), left.end(), wanted.begin(), [](size_t a, size_t b) { return a <= b; })) return;
  SeededGenerator generator(contig, regionStart);
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
