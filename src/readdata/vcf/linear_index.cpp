// The part of a .idx that belongs to one contig.
#include "readdata/vcf/linear_index.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

// Bins up to that of the feature added last. Behind finish(), and in an index from a file, there is more.
size_t LinearIndex::ChrIndex::filledBins() const {
  if (offsets.empty()) return 0;
  const int64_t bins = pos / int64_t(binWidth) - firstBin + 1;
  return std::clamp<int64_t>(bins, 1, static_cast<int64_t>(offsets.size()));
}

void LinearIndex::ChrIndex::add(int32_t start, int32_t end, int64_t offset) {
  start = std::max(start, 0);  // a position of 0 in the text is -1 here
  if (start < pos) throw std::logic_error("s >= pos");
  if (end > start) longest = std::max(longest, static_cast<uint32_t>(end) - start);
  const uint32_t bin = start / binWidth;
  if (offsets.empty()) firstBin = bin;
  if (bin >= firstBin) offsets.resize(bin - firstBin + 1, last);
  last = offset;
  pos = start;
  ++count;
}

void LinearIndex::ChrIndex::finish() {
  offsets.resize(filledBins());
  offsets.push_back(last);
}

bool LinearIndex::ChrIndex::query(int32_t start, int32_t end, std::vector<Chunk>& chunks) const {
  chunks.clear();
  start = std::max(start, 0);
  if (end <= start || offsets.empty()) return false;
  const int64_t bin = std::max<int64_t>(int64_t(start) - longest, 0) / binWidth - firstBin;
  if (bin >= static_cast<int64_t>(offsets.size())) return false;
  const Chunk chunk = {offsets[std::max<int64_t>(bin, 0)], offsets.back()};
  if (chunk.begin < chunk.end) chunks.push_back(chunk);
  return !chunks.empty();
}

void LinearIndex::ChrIndex::add(const ContigIndex& other, const OffsetMap& offsetMap) {
  const auto& shard = dynamic_cast<const ChrIndex&>(other);
  if (shard.binWidth < kMinJoinedWidth) throw std::logic_error("binWidth >= kMinJoinedWidth");
  if (count == 0) {
    binWidth = shard.binWidth;
    offsets.clear();
  }
  if (binWidth != shard.binWidth) throw std::logic_error("binWidth == ci.binWidth");
  if (!shard.offsets.empty() && (shard.count > 0 || shard.offsets.front() < shard.offsets.back())) {
    if (offsets.empty()) {
      firstBin = shard.firstBin;
      first = translateOffset(offsetMap, shard.first);
    }
    offsets.resize(filledBins());
    const int64_t shift = int64_t(shard.firstBin) - firstBin;
    const int64_t size = shift + static_cast<int64_t>(shard.offsets.size());
    for (int64_t i = static_cast<int64_t>(offsets.size()); i < size; ++i)
      offsets.push_back(translateOffset(offsetMap, shard.offsets[std::max<int64_t>(i - shift, 0)]));
    longest = std::max(longest, shard.longest);
  }
  last = std::max(last, translateOffset(offsetMap, shard.last));
  pos = std::max(pos, shard.pos);
  count += shard.count;
}

void LinearIndex::ChrIndex::dropFront(int32_t dropped, int64_t offset) {
  for (int64_t& entry : offsets) {
    if (entry >= offset) break;
    entry = offset;
  }
  first = offset;
  count -= dropped;
}

void LinearIndex::ChrIndex::optimize(double density) {
  if (offsets.size() < 2 || binWidth == kWideBinWidth || count <= 0) return;
  const int64_t total = offsets.back() - offsets.front();
  int64_t widest = 0;
  for (size_t i = 1; i < offsets.size(); ++i) widest = std::max(widest, offsets[i] - offsets[i - 1]);
  if (widest == 0) return;
  const double ratio =
      std::floor(density * static_cast<double>(total) / (static_cast<double>(widest) * count));
  const double limit = std::numeric_limits<int32_t>::max() / binWidth;
  if (!(std::min(ratio, limit) > 1)) return;

  const auto factor = static_cast<uint64_t>(std::min(ratio, limit));
  const size_t bins = (offsets.size() + firstBin - 2 + factor) / factor;
  std::vector<int64_t> thinned;
  thinned.reserve(bins + 1);
  for (size_t i = 0; i < bins; ++i)
    thinned.push_back(offsets[i * factor > firstBin ? i * factor - firstBin : 0]);
  thinned.push_back(offsets.back());
  offsets = std::move(thinned);
  binWidth *= static_cast<uint32_t>(factor);
  firstBin = 0;
}
