// The .tbi index: its answers, how it is joined from shards, and its file, good and bad.
#include "readdata/vcf/tabix.h"

#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <unistd.h>

#include "index_features.h"
#include "readdata/stream/bgzf_handle.h"
#include "readdata/vcf/linear_index.h"
#include "temp_folder.h"

namespace {

using Chunk = GenomeIndex::Chunk;
using testing::ElementsAre;
using testing::HasSubstr;

void writeBgzf(const std::string& path, const std::string& bytes) {
  BGZFHandle file;
  ASSERT_TRUE(file.openFile(path.c_str(), "w1"));
  ASSERT_EQ(file.write(bytes.data(), bytes.size()), static_cast<int64_t>(bytes.size()));
  ASSERT_EQ(file.close(), 0);
}

std::string readBgzf(const std::string& path) {
  BGZFHandle file;
  EXPECT_TRUE(file.openFile(path.c_str(), "r"));
  std::string bytes(1 << 20, '\0');
  bytes.resize(std::max<int64_t>(file.read(bytes.data(), bytes.size()), 0));
  return bytes;
}

Tabix::Index& only(const Tabix& tabix) {
  return dynamic_cast<Tabix::Index&>(*tabix.indices.begin()->second);
}

}  // namespace

TEST(TabixQuery, HoldsAllThatOverlapsHoweverFilled) {
  TempFolder folder;
  for (unsigned seed = 0; seed < 40; ++seed) {
    std::mt19937 random(seed);
    const auto features = randomFeatures(random, 1 + random() % 300, kLengths[seed % 4]);
    const auto regions = randomRegions(random, features, 60);
    Tabix whole({});
    const std::string path = folder.path(seed % 2 == 0 ? "a.vcf.gz" : "a.g.vcf.gz");
    whole.compactThreshold = seed % 3 == 0 ? 0x10000 : 0;
    whole.addContigIndex(checkedIndex(whole, random, features, regions));
    ASSERT_TRUE(whole.save(path));
    Tabix loaded({});
    ASSERT_TRUE(loaded.load(path));
    for (auto region : regions) expectCovered(only(loaded), features, region);

    // What comes behind a loaded index.
    auto more = loaded.newContigIndex("c");
    more->add(only(loaded), {});
    more->add(INT32_MAX - 1, INT32_MAX, features.back().next + 10);
    EXPECT_EQ(answer(*more, INT32_MAX - 1, INT32_MAX).back().end, features.back().next + 10);
  }
}

TEST(TabixCompact, MovesNarrowBinsUp) {
  Tabix::Index index("c");
  const int64_t block = 1 << 16;
  index.bins = {{4681, {{0, block}}},
                {4682, {{block + 5, 2 * block}}},
                {585, {{2 * block, 9 * block}}},
                {4689, {{9 * block, 10 * block}}}};
  index.compact(3, true);
  // 4681 and 4682 join 585, which spans 9 blocks and stays; 4689 climbs to the top.
  EXPECT_THAT(index.bins, ElementsAre(std::pair(0u, std::vector<Chunk>{{9 * block, 10 * block}}),
                                      std::pair(585u, std::vector<Chunk>{{0, 9 * block}})));
}

TEST(TabixFile, StandsAsTheFormatSays) {
  TempFolder folder;
  Tabix tabix({});
  tabix.setContigs({{"b", 5}, {"none", 5}, {"a", 5}});
  for (const char* name : {"a", "b"}) {
    auto index = tabix.newContigIndex(name);
    index->start(100);
    index->add(40000, 40001, 200);
    tabix.addContigIndex(std::move(index));
  }
  EXPECT_THROW(tabix.addContigIndex(tabix.newContigIndex("a")), std::logic_error);
  const std::string path = folder.path("x.VCF.gz");
  ASSERT_TRUE(tabix.save(path));
  Words words;
  words.text(std::string_view("TBI\1", 4))(2, 2, 1, 2, 2, 35, 0, 4).text(std::string_view("b\0a\0", 4));
  // One bin, at the top because so small; the windows before the first have its offset.
  for (int i = 0; i < 2; ++i)
    words(1, 4683, 1, int64_t(100), int64_t(200), 3, int64_t(100), int64_t(100), int64_t(100));
  words(uint64_t(0));
  EXPECT_EQ(readBgzf(path + ".tbi"), words.bytes);

  ASSERT_TRUE(tabix.save(folder.path("x.bed.gz")));
  EXPECT_EQ(readBgzf(folder.path("x.bed.gz.tbi")).substr(8, 16), Words()(0x10000, 1, 2, 3).bytes);

  ASSERT_EQ(symlink("/dev/full", folder.path("full.vcf.gz.tbi").c_str()), 0);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(tabix.save(folder.path("full.vcf.gz")));
  EXPECT_FALSE(tabix.save(folder.path("nowhere/x.vcf.gz")));
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_THAT(told, HasSubstr("Failed to save trailer to tabix file " + folder.path("full.vcf.gz.tbi") +
                              ": No space left on device\n"));
  EXPECT_THAT(told, HasSubstr("Failed to create tabix file " + folder.path("nowhere/x.vcf.gz.tbi") + ": "));
}

TEST(TabixFile, BadOnesAreRefusedWithTheReason) {
  struct Parts {  // of a good file
    int32_t n_ref = 2, l_nm = 4, bins = 2, bin = 4681, chunks = 1, windows = 1;
    std::string names{"a\0b\0", 4};
    int64_t begin = 5, end = 9, window = 5;
    size_t cut = 0;  // bytes missing at the end
    uint32_t magic = 0x01494254;
  };
  const char* const kHeader = "Failed to load header from tabix file %s: file truncated\n";
  const char* const kIndices = "Failed to load indices from tabix file %s: file truncated\n";
  const struct {
    std::function<void(Parts&)> spoil;
    const char* said;
  } cases[] = {
      {[](Parts&) {}, ""},
      {[](Parts& parts) { parts.cut = 8; }, ""},  // the trailer may be missing
      {[](Parts& parts) { parts.magic = 7; }, "File %s is not a tabix file\n"},
      {[](Parts& parts) { parts.n_ref = 1; }, kHeader},
      {[](Parts& parts) { parts.n_ref = 3; }, kHeader},
      {[](Parts& parts) { parts.n_ref = -1; }, kHeader},
      {[](Parts& parts) { parts.l_nm = 3; }, kHeader},
      {[](Parts& parts) { parts.names[0] = '\xff'; }, kHeader},
      {[](Parts& parts) { parts.names[0] = 'b'; },
       "Failed to load header from tabix file %s: !pib.first->second\n"},
      {[](Parts& parts) { parts.bins = INT32_MAX; }, kIndices},
      {[](Parts& parts) { parts.bin = 37449; }, kIndices},
      {[](Parts& parts) { parts.bin = 0; }, kIndices},  // twice
      {[](Parts& parts) { parts.chunks = INT32_MAX; }, kIndices},
      {[](Parts& parts) { parts.begin = 10; }, kIndices},
      {[](Parts& parts) { parts.begin = -1; }, kIndices},
      {[](Parts& parts) { parts.window = -1; }, kIndices},
      {[](Parts& parts) { parts.windows = 131073; }, kIndices},
      {[](Parts& parts) { parts.cut = 9; }, kIndices},
  };
  TempFolder folder;
  const std::string path = folder.path("a.vcf.gz");
  for (const auto& one : cases) {
    Parts parts;
    one.spoil(parts);
    Words words;
    words(parts.magic, parts.n_ref, 2, 1, 2, 2, 35, 0, parts.l_nm).text(parts.names);
    words(3, 0, 1, int64_t(1), int64_t(2), 37450, 2, int64_t(5), int64_t(9), int64_t(1), int64_t(0));  // a
    words(parts.bin, 1, int64_t(3), int64_t(4), 0);
    words(parts.bins, 1, 0, parts.bin, parts.chunks, parts.begin, parts.end, parts.windows,
          parts.window);  // b
    words(uint64_t(0));
    writeBgzf(path + ".tbi", words.bytes.substr(0, words.bytes.size() - parts.cut));
    Tabix tabix({});
    testing::internal::CaptureStderr();
    const bool good = tabix.load(path);
    const std::string said = testing::internal::GetCapturedStderr();
    char expected[1000];
    snprintf(expected, sizeof expected, one.said, (path + ".tbi").c_str());
    EXPECT_EQ(said, expected);
    EXPECT_EQ(good, *one.said == '\0');
    if (!good) continue;
    // The counts in the pseudo bin are no place.
    EXPECT_THAT(answer(*tabix.find("a"), 0, 100), ElementsAre(Chunk{1, 2}, Chunk{3, 4}));
    EXPECT_EQ(tabix.find("a")->first, 1);
    EXPECT_EQ(tabix.find("a")->last, 4);
    EXPECT_EQ(tabix.count, 3u);
    EXPECT_EQ(tabix.format, "vcf");
  }
  // Not even BGZF, a folder, a pipe, nothing, and a bomb of windows.
  Words bomb;
  bomb(0x01494254, 300, 2, 1, 2, 2, 35, 0, 1200);
  for (int i = 0; i < 300; ++i) bomb.text(std::to_string(100 + i)).text(std::string_view("\0", 1));
  for (int i = 0; i < 300; ++i) {
    bomb(0, 1 << 17);
    bomb.bytes.append(1 << 20, '\7');
  }
  folder.write("plain.gz.tbi", std::string(100, 'x'));
  std::filesystem::create_directory(folder.path("folder.gz.tbi"));
  ASSERT_EQ(mkfifo(folder.path("pipe.gz.tbi").c_str(), 0600), 0);
  writeBgzf(folder.path("bomb.gz.tbi"), bomb.bytes);
  testing::internal::CaptureStderr();
  for (const char* name : {"plain.gz", "folder.gz", "pipe.gz", "none.gz", "bomb.gz"})
    EXPECT_FALSE(Tabix({}).load(folder.path(name)));
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_THAT(said, HasSubstr("Failed to load header from tabix file " + folder.path("plain.gz.tbi")));
  EXPECT_THAT(said, HasSubstr("from tabix file " + folder.path("folder.gz.tbi")));
  EXPECT_THAT(said, HasSubstr("Failed to open tabix file " + folder.path("pipe.gz.tbi")));
  EXPECT_THAT(said, HasSubstr("Failed to open tabix file " + folder.path("none.gz.tbi")));
  EXPECT_THAT(said, HasSubstr("Failed to load indices from tabix file " + folder.path("bomb.gz.tbi") +
                              ": file too large\n"));
}

// Of a .csi the bins are those of a .tbi then, or wider. Bins of the lowest level: 2^13 bases; above: 2^16 and all.
TEST(TabixFile, ReadsACsi) {
  TempFolder folder;
  const std::string path = folder.path("a.vcf.gz");
  Words words;
  words.text(std::string_view("CSI\1", 4))(13, 2, 31, 2, 1, 2, 2, 35, 0, 2)
      .text(std::string_view("c\0\7", 3));
  const auto bin = [&](uint32_t number, int64_t offset, int64_t begin, int64_t end) {
    words(number, offset, 1, begin, end);
  };
  words(1, 5);
  bin(9 + 5, 40, 50, 60);  // from 40960
  bin(9 + 4, 30, 40, 50);
  bin(1, 10, 10, 20);
  words(74, int64_t(0), 2, int64_t(1), int64_t(2), int64_t(3), int64_t(4));  // counts
  bin(9 + 63, 60, 70, 80);                                                   // from 516096
  words(uint64_t(0));
  writeBgzf(path + ".csi", words.bytes);
  Tabix tabix({});
  ASSERT_TRUE(tabix.load(path));
  EXPECT_EQ(tabix.format, "vcf");
  EXPECT_THAT(answer(only(tabix), 0, 30000), ElementsAre(Chunk{10, 20}));
  EXPECT_THAT(answer(only(tabix), 33000, 33001), ElementsAre(Chunk{40, 60}));  // bins 4 and 5 are one of ours
  EXPECT_THAT(answer(only(tabix), 520000, 520001), ElementsAre(Chunk{70, 80}));
  EXPECT_EQ(only(tabix).last, 80);

  // Cut anywhere, or with bins and bytes that cannot be.
  testing::internal::CaptureStderr();
  for (size_t size = 0; size + 8 < words.bytes.size(); ++size) {
    writeBgzf(path + ".csi", words.bytes.substr(0, size));
    EXPECT_FALSE(Tabix({}).load(path)) << size;
  }
  const std::pair<size_t, int32_t> wrong[] = {{4, 31},  {4, -1},         {8, 10}, {8, 1},
                                              {12, 29}, {12, INT32_MAX}, {55, 75}};
  for (const auto& [at, number] : wrong) {
    std::string bytes = words.bytes;
    memcpy(bytes.data() + at, &number, sizeof number);
    writeBgzf(path + ".csi", bytes);
    EXPECT_FALSE(Tabix({}).load(path)) << at << " " << number;
  }
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(path + ".csi"));
}
