// The part of a .tbi that belongs to one contig.
//
// A .tbi numbers positions below 2^29. What lies or reaches beyond goes to bin 0, and the windows go on up to 2^31, so
// that longer contigs are indexed too.
#include <algorithm>
#include <stdexcept>

#include "readdata/stream/genome_bins.h"
#include "readdata/vcf/tabix.h"

namespace {

using Chunk = GenomeIndex::Chunk;

// Joins neighbours of a sorted list that `together(running end, next begin)` says belong together.
template <typename Together>
void mergeChunks(std::vector<Chunk>& chunks, Together together) {
  size_t kept = 0;
  for (size_t i = 1; i < chunks.size(); ++i) {
    if (together(chunks[kept].end, chunks[i].begin))
      chunks[kept].end = std::max(chunks[kept].end, chunks[i].end);
    else
      chunks[++kept] = chunks[i];
  }
  if (!chunks.empty()) chunks.resize(kept + 1);
}

}  // namespace

void Tabix::Index::add(int32_t start, int32_t end, int64_t offset) {
  start = std::max(start, 0);  // a position of 0 in the text is -1 here
  if (start < pos) throw std::logic_error("s >= pos");
  if (linear.empty()) firstWindow = start >> kWindowShift;
  const int64_t windows = ((end > start ? end - 1 : start) >> kWindowShift) + int64_t(1) - firstWindow;
  if (windows > static_cast<int64_t>(linear.size())) linear.resize(windows, last);

  const uint32_t bin = smallestBin(start, std::max(end, start));
  if (lastBin_ != nullptr && lastBin_->first == bin) {
    lastBin_->second.back().end = offset;
  } else {
    lastBin_ = &*bins.try_emplace(bin).first;
    lastBin_->second.push_back({last, offset});
  }
  last = offset;
  pos = start;
  ++count;
}

bool Tabix::Index::query(int32_t start, int32_t end, std::vector<Chunk>& chunks) const {
  chunks.clear();
  start = std::max(start, 0);
  if (end <= start) return false;
  int64_t least = 0;  // no feature that reaches the range stands before
  if (!linear.empty()) {
    const int64_t window = (start >> kWindowShift) - int64_t(firstWindow);
    least = linear[std::clamp<int64_t>(window, 0, static_cast<int64_t>(linear.size()) - 1)];
  }
  auto collect = [&](uint32_t from, uint32_t to) {
    for (auto bin = bins.lower_bound(from); bin != bins.end() && bin->first <= to; ++bin)
      for (const Chunk& chunk : bin->second)
        if (chunk.end > least) chunks.push_back({std::max(chunk.begin, least), chunk.end});
  };
  collect(0, 0);
  if (uint32_t(start) < kMaxBinnedLength) {
    const uint32_t last_base = std::min(uint32_t(end), kMaxBinnedLength) - 1;
    for (const BinLevel& level : kBinLevels)
      if (level.first_bin > 0)
        collect(level.first_bin + (start >> level.shift), level.first_bin + (last_base >> level.shift));
  }
  std::sort(chunks.begin(), chunks.end());
  mergeChunks(chunks, [](int64_t running, int64_t next) { return next <= running; });
  return !chunks.empty();
}

void Tabix::Index::add(const ContigIndex& other, const OffsetMap& offsetMap) {
  const auto& shard = dynamic_cast<const Index&>(other);
  if (bins.empty() && !shard.bins.empty()) first = translateOffset(offsetMap, shard.first);
  if (linear.empty()) firstWindow = shard.firstWindow;
  const int64_t shift = int64_t(shard.firstWindow) - firstWindow;
  const int64_t windows = shift + static_cast<int64_t>(shard.linear.size());
  if (!shard.linear.empty())
    for (int64_t i = static_cast<int64_t>(linear.size()); i < windows; ++i)
      linear.push_back(translateOffset(offsetMap, shard.linear[std::max<int64_t>(i - shift, 0)]));

  lastBin_ = nullptr;
  for (const auto& entry : shard.bins) {
    auto& place = *bins.try_emplace(entry.first).first;
    std::vector<Chunk>& list = place.second;
    for (const Chunk& chunk : entry.second) {
      const int64_t begin = translateOffset(offsetMap, chunk.begin);
      const int64_t end = translateOffset(offsetMap, chunk.end);
      if (!list.empty() && list.back().end == begin)  // at the seam
        list.back().end = end;
      else
        list.push_back({begin, end});
    }
    if (&entry == shard.lastBin_) lastBin_ = &place;
  }
  last = std::max(last, translateOffset(offsetMap, shard.last));
  pos = std::max(pos, shard.pos);
  count += shard.count;
}

void Tabix::Index::dropFront(int32_t dropped, int64_t offset) {
  for (int64_t& entry : linear) {
    if (entry >= offset) break;
    entry = offset;
  }
  for (auto bin = bins.begin(); bin != bins.end();) {
    std::vector<Chunk>& list = bin->second;
    std::erase_if(list, [&](const Chunk& chunk) { return chunk.end <= offset; });
    for (Chunk& chunk : list) chunk.begin = std::max(chunk.begin, offset);
    if (list.empty() && lastBin_ == &*bin) lastBin_ = nullptr;
    bin = list.empty() ? bins.erase(bin) : std::next(bin);
  }
  first = offset;
  // A loaded index has counted chunks, of which there are fewer than features.
  count = bins.empty() ? 0 : std::max(count - dropped, 1);
}

void Tabix::Index::compact(uint64_t threshold, bool compressed) {
  const int shift = compressed ? 16 : 0;  // to block addresses
  auto together = [&](int64_t running, int64_t next) { return next >> shift <= running >> shift; };
  bool changed = false;
  for (const BinLevel& level : kBinLevels) {
    if (level.first_bin == 0) continue;
    for (auto bin = bins.lower_bound(level.first_bin);
         bin != bins.end() && bin->first <= level.first_bin * 8;) {
      std::vector<Chunk>& list = bin->second;
      if (!list.empty()) {
        const int64_t span = (list.back().end >> shift) - (list.front().begin >> shift);
        if (span >= 0 && static_cast<uint64_t>(span) >= threshold) {
          ++bin;
          continue;
        }
        std::vector<Chunk>& parent = bins[(bin->first - 1) >> 3];
        parent.insert(parent.end(), list.begin(), list.end());
        std::sort(parent.begin(), parent.end());
        mergeChunks(parent, together);
      }
      bin = bins.erase(bin);
      changed = true;
    }
  }
  if (!changed) return;
  for (auto& [number, list] : bins) list.shrink_to_fit();
  lastBin_ = nullptr;
}
