// index_features.h - made-up features of one contig, for indexes that are filled without a file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "readdata/vcf/genome_index.h"

// The bytes of a file's fields.
class Words {
 public:
  template <typename... T>
  Words& operator()(T... values) {
    (bytes.append(reinterpret_cast<const char*>(&values), sizeof values), ...);
    return *this;
  }
  Words& text(std::string_view value) {
    bytes.append(value);
    return *this;
  }
  Words& word(std::string_view value) { return text(value).text(std::string_view("", 1)); }  // with its NUL
  std::string bytes;
};

constexpr int32_t kLengths[] = {300, 100000, 250000000, INT32_MAX - 1};  // of contigs

struct Feature {
  int32_t start, end;
  int64_t offset, next;  // where it stands, and what follows
};

// `count` features below `length` in order, a tenth of them long.
inline std::vector<Feature> randomFeatures(std::mt19937& random, int count, int32_t length) {
  auto below = [&](int64_t limit) { return static_cast<int32_t>(random() % limit); };
  std::vector<int32_t> starts(count);
  for (int32_t& start : starts) start = below(length);
  std::sort(starts.begin(), starts.end());
  std::vector<Feature> features;
  int64_t offset = 1000;
  for (int32_t start : starts) {
    const int64_t span = 1 + (below(10) == 0 ? below(length) >> below(16) : below(50));
    const int64_t next = offset + 20 + below(1000);
    features.push_back(
        {start, static_cast<int32_t>(std::min<int64_t>(start + span, INT32_MAX)), offset, next});
    offset = next;
  }
  return features;
}

// Adds features [from, to) as they stand in a file of their own that is `shift` bytes ahead.
inline void addFeatures(GenomeIndex::ContigIndex& index, const std::vector<Feature>& features, size_t from,
                        size_t to, int64_t shift = 0) {
  index.start((from < features.size() ? features[from].offset : features.back().next) - shift);
  for (size_t i = from; i < to; ++i) index.add(features[i].start, features[i].end, features[i].next - shift);
  index.finish();
}

// The index that joins those of shards cut at random, each of which was copied in up to three pieces.
inline std::unique_ptr<GenomeIndex::ContigIndex> joinShards(const GenomeIndex& kind, std::mt19937& random,
                                                            const std::vector<Feature>& features) {
  auto joined = kind.newContigIndex("c");
  joined->start(features[0].offset);
  for (size_t from = 0, to; from < features.size(); from = to) {
    to = std::min(features.size(), from + random() % 40);
    const int64_t shift = static_cast<int64_t>(random() % 1000);
    auto shard = kind.newContigIndex("c");
    addFeatures(*shard, features, from, to, shift);
    OffsetMap map;
    for (size_t i = from; i < to; i += 1 + (to - from) / 3)
      map[features[i].offset - shift] = features[i].offset;
    joined->add(*shard, map);
  }
  joined->finish();
  return joined;
}

inline std::vector<GenomeIndex::Chunk> answer(const GenomeIndex::ContigIndex& index, int32_t start,
                                              int32_t end) {
  std::vector<GenomeIndex::Chunk> chunks;
  index.query(start, end, chunks);
  return chunks;
}

// Random regions, many of them at the ends of features, and the odd ones.
inline std::vector<std::pair<int32_t, int32_t>> randomRegions(std::mt19937& random,
                                                              const std::vector<Feature>& features,
                                                              int count) {
  std::vector<std::pair<int32_t, int32_t>> regions = {{0, INT32_MAX}, {INT32_MAX - 1, INT32_MAX}, {-5, 1}};
  for (int i = 0; i < count; ++i) {
    const Feature& feature = features[random() % features.size()];
    const int64_t place = random() % 2 == 0 ? feature.end - 1 : feature.start;
    const int64_t start = std::max<int64_t>(place - static_cast<int64_t>(random() % 3), 0);
    const int64_t end = start + 1 + static_cast<int64_t>(random() % (1 << random() % 24));
    regions.emplace_back(start, static_cast<int32_t>(std::min<int64_t>(end, INT32_MAX)));
  }
  return regions;
}

// The chunks of a region are in order, apart, and hold every feature from number `first` on that overlaps it.
inline void expectCovered(const GenomeIndex::ContigIndex& index, const std::vector<Feature>& features,
                          std::pair<int32_t, int32_t> region, size_t first = 0) {
  std::vector<GenomeIndex::Chunk> chunks;
  const bool some = index.query(region.first, region.second, chunks);
  ASSERT_EQ(some, !chunks.empty());
  for (size_t i = 0; i < chunks.size(); ++i) {
    ASSERT_LE(chunks[i].begin, chunks[i].end);
    ASSERT_TRUE(i == 0 || chunks[i - 1].end < chunks[i].begin);
    ASSERT_GE(chunks[i].begin, features[first].offset);
  }
  for (size_t i = first; i < features.size(); ++i) {
    const Feature& feature = features[i];
    if (feature.start >= region.second || feature.end <= region.first) continue;
    const bool held = std::any_of(chunks.begin(), chunks.end(), [&](const GenomeIndex::Chunk& chunk) {
      return chunk.begin <= feature.offset && feature.next <= chunk.end;
    });
    ASSERT_TRUE(held) << feature.start << "-" << feature.end << " in " << region.first << "-"
                      << region.second;
  }
}

// The index of all features, after it was compared with one joined from shards, whole and without its front.
inline std::unique_ptr<GenomeIndex::ContigIndex> checkedIndex(
    const GenomeIndex& kind, std::mt19937& random, const std::vector<Feature>& features,
    const std::vector<std::pair<int32_t, int32_t>>& regions) {
  auto filled = kind.newContigIndex("c"), joined = joinShards(kind, random, features);
  addFeatures(*filled, features, 0, features.size());
  EXPECT_EQ(joined->count, filled->count);
  EXPECT_EQ(joined->first, filled->first);
  EXPECT_EQ(joined->last, filled->last);
  for (auto region : regions) {
    expectCovered(*filled, features, region);
    EXPECT_EQ(answer(*filled, region.first, region.second), answer(*joined, region.first, region.second));
  }
  const size_t dropped = random() % features.size();
  joined->dropFront(static_cast<int32_t>(dropped), features[dropped].offset);
  EXPECT_EQ(joined->count, static_cast<int32_t>(features.size() - dropped));
  for (auto region : regions) expectCovered(*joined, features, region, dropped);
  return filled;
}
