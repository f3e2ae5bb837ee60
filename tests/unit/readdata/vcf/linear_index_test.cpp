// The .idx index: its answers, how it is joined from shards and thinned out, and its file, good and bad.
#include "readdata/vcf/linear_index.h"

#include <functional>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "index_features.h"
#include "temp_folder.h"

namespace {

using Chunk = GenomeIndex::Chunk;
using testing::ElementsAre;
using testing::HasSubstr;

LinearIndex::ChrIndex& only(const LinearIndex& index) {
  return dynamic_cast<LinearIndex::ChrIndex&>(*index.indices.begin()->second);
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST(LinearIndexQuery, HoldsAllThatOverlapsHoweverFilled) {
  TempFolder folder;
  const std::string path = folder.path("a.vcf");
  for (unsigned seed = 0; seed < 40; ++seed) {
    std::mt19937 random(seed);
    const auto features = randomFeatures(random, 1 + random() % 300, kLengths[seed % 4]);
    const auto regions = randomRegions(random, features, 60);
    LinearIndex whole({.format = "", .wideBins = seed % 5 == 0});
    folder.write("a.vcf", "");
    std::filesystem::resize_file(path, features.back().next);
    whole.addContigIndex(checkedIndex(whole, random, features, regions));
    ASSERT_TRUE(whole.save(path));
    LinearIndex loaded({});
    ASSERT_TRUE(loaded.load(path));
    for (auto region : regions) expectCovered(only(loaded), features, region);

    // A loaded index in front, and one more feature in its last bin.
    auto more = loaded.newContigIndex("c");
    more->add(only(loaded), {});
    const Feature last{features.back().start, INT32_MAX, features.back().next, features.back().next + 10};
    more->add(last.start, last.end, last.next);
    more->finish();
    auto longer = features;
    longer.push_back(last);
    for (auto region : regions) expectCovered(*more, longer, region);
  }
}

TEST(LinearIndexFile, StandsAsTheFormatSays) {
  TempFolder folder;
  const std::string path = folder.write("a.vcf", std::string(5000, 'x'));
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  LinearIndex index({});
  index.setContigs({{"a", 70000}, {"none", 5}});
  auto contig = index.newContigIndex("a");
  contig->start(100);
  // The first bin is so full that nothing is joined: k = 100 * 400 / (399 * 401).
  for (int i = 0; i < 400; ++i) contig->add(16000, 16001, 101 + i);
  contig->add(24000, 24010, 501);
  contig->finish();
  index.addContigIndex(std::move(contig));
  index.properties = {{"DICT:old", "1"}, {"key", "value"}};
  ASSERT_TRUE(index.save(path));
  Words words;
  words(0x58444954, 1, 3).word(path)(int64_t(5000), int64_t(status.st_mtime) * 1000).word("")(0);
  words(3).word("key").word("value").word("DICT:a").word("70000").word("DICT:none").word("5");
  words(1).word("a")(8000, 4, 10, 0, 401);
  words(int64_t(100), int64_t(100), int64_t(100), int64_t(500), int64_t(501));
  EXPECT_EQ(readFile(path + ".idx"), words.bytes);

  ASSERT_EQ(unlink((path + ".idx").c_str()), 0);
  ASSERT_EQ(symlink("/dev/full", (path + ".idx").c_str()), 0);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(index.save(path));
  EXPECT_FALSE(index.save(folder.path("missing.vcf")));
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_THAT(said,
              HasSubstr("Failed to save header to index file " + path + ".idx: No space left on device\n"));
  EXPECT_THAT(said, HasSubstr(folder.path("missing.vcf") + ": No such file or directory\n"));
}

TEST(LinearIndexFile, OldVersionsAreRead) {
  TempFolder folder;
  const std::string path = folder.write("a.vcf", std::string(500, 'x'));
  const struct {
    uint32_t version, flags;
    bool dictionary, properties;
  } cases[] = {{1, 0, false, false}, {1, 0x8000, true, false}, {2, 0x8001, true, false},
               {2, 1, false, false}, {3, 0, false, true},      {3, 0x8000, false, true}};
  for (const auto& one : cases) {
    Words words;
    words(0x58444954, 1, one.version).word("elsewhere.vcf")(int64_t(500), int64_t(0)).word("md5")(one.flags);
    if (one.dictionary) words(2).word("b")(20).word("a")(30);
    if (one.properties) words(3).word("DICT:b").word("20").word("other").word("").word("DICT:a").word("30");
    words(2).word("a")(100, 1, 5, 0, 7, int64_t(10), int64_t(20)).word("c")(100, 0, 0, 0, 0, int64_t(20));
    folder.write("a.vcf.idx", words.bytes);
    LinearIndex index({});
    testing::internal::CaptureStderr();
    ASSERT_TRUE(index.load(path)) << testing::internal::GetCapturedStderr();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    std::string table;
    for (const auto& contig : index.contigs) table += contig.name + "=" + std::to_string(contig.length) + " ";
    EXPECT_EQ(table, one.dictionary || one.properties ? "b=20 a=30 c=0 " : "a=0 c=0 ");
    EXPECT_EQ(index.version, one.dictionary ? 3 : one.version);
    EXPECT_EQ(index.flags, one.dictionary ? one.flags & 1 : one.flags);
    EXPECT_EQ(index.count, 7u);
    EXPECT_THAT(answer(*index.find("a"), 0, 1), ElementsAre(Chunk{10, 20}));
    EXPECT_TRUE(answer(*index.find("c"), 0, 1).empty());
  }
}

TEST(LinearIndexFile, BadOnesAreRefusedWithTheReason) {
  struct Parts {  // of a good file
    uint32_t type = 1, version = 3, properties = 1, contigs = 2, width = 100, bins = 2, count = 3;
    int64_t size = 500, timestamp = 0, first = 10, middle = 10;
    std::string key = "DICT:a", value = "30", second = "b";
    size_t cut = 0;  // bytes missing at the end
  };
  const char* const kHeader = "Failed to load header from index file %s: file corrupted\n";
  const char* const kShort = "Failed to load header from index file %s: file truncated\n";
  const char* const kBad = "%s: Bad message\n";
  const char* const kEnd = "%s: No data available\n";
  const struct {
    std::function<void(Parts&)> spoil;
    const char* said;
  } cases[] = {
      {[](Parts&) {}, ""},
      {[](Parts& parts) { parts.type = 2; }, "File %s is not an index file\n"},
      {[](Parts& parts) { parts.version = 4; }, kHeader},
      {[](Parts& parts) { parts.properties = UINT32_MAX; }, kShort},
      {[](Parts& parts) { parts.value = "3x"; }, kHeader},
      {[](Parts& parts) { parts.value = "3000000000"; }, kHeader},
      {[](Parts& parts) { parts.cut = 100; }, kShort},
      {[](Parts& parts) { parts.size = 501; }, "File size mismatch in index header %s\n"},
      {[](Parts& parts) { parts.contigs = UINT32_MAX; }, kEnd},
      {[](Parts& parts) { parts.width = 0; }, kBad},
      {[](Parts& parts) { parts.bins = UINT32_MAX; }, kBad},
      {[](Parts& parts) { parts.bins = 20000000; }, kBad},  // the count runs into what follows
      {[](Parts& parts) { parts.count = UINT32_MAX; }, kBad},
      {[](Parts& parts) { parts.first = -1; }, kBad},
      {[](Parts& parts) { parts.first = 11; }, kBad},
      {[](Parts& parts) { parts.middle = 501; }, kBad},
      {[](Parts& parts) { parts.second = "a"; }, "Index file %s: !pib.first->second\n"},
      {[](Parts& parts) { parts.cut = 1; }, kEnd},
  };
  TempFolder folder;
  const std::string path = folder.write("a.vcf", std::string(500, 'x'));
  for (const auto& one : cases) {
    Parts parts;
    one.spoil(parts);
    Words words;
    words(0x58444954, parts.type, parts.version).word("a.vcf")(parts.size, parts.timestamp).word("")(0);
    words(parts.properties).word(parts.key).word(parts.value)(parts.contigs);
    words.word("a")(parts.width, parts.bins, UINT32_MAX, 0, parts.count, parts.first, parts.middle,
                    int64_t(20));
    words.word(parts.second)(100, 0, 0, 0, 0, int64_t(20));
    folder.write("a.vcf.idx", words.bytes.substr(0, words.bytes.size() - parts.cut));
    LinearIndex index({});
    testing::internal::CaptureStderr();
    const bool good = index.load(path);
    const std::string said = testing::internal::GetCapturedStderr();
    char expected[1000];
    snprintf(expected, sizeof expected, one.said, (path + ".idx").c_str());
    EXPECT_EQ(said, expected);
    EXPECT_EQ(good, *one.said == '\0');
    if (!good) continue;
    EXPECT_THAT(answer(*index.find("a"), INT32_MAX - 1, INT32_MAX), ElementsAre(Chunk{10, 20}));
  }
}

TEST(LinearIndexFile, OneOfAnotherTimeOnlyWarns) {
  TempFolder folder;
  const std::string path = folder.write("a.vcf", "x");
  LinearIndex index({});
  ASSERT_TRUE(index.save(path));
  testing::internal::CaptureStderr();
  EXPECT_TRUE(LinearIndex({}).load(path));
  std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) - std::chrono::seconds(5));
  EXPECT_TRUE(LinearIndex({}).load(path));
  EXPECT_FALSE(LinearIndex({}).load(folder.path("none")));
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(said, "Warning: outdated index file " + path + ".idx\nFailed to open index file " +
                      folder.path("none.idx") + ": No such file or directory\n");
}
