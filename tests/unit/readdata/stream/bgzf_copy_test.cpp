// Regions and rests of BGZF files moved by copy() and copy_rest(), against the plain joining of their texts.
#include <gtest/gtest.h>

#include "base/thread_coop.h"
#include "readdata/stream/bgzf_handle.h"
#include "readdata/stream/posix_io_handle.h"
#include "temp_folder.h"
#include "zlib_blocks.h"

namespace {

struct Source {
  explicit Source(const std::vector<size_t>& sizes) {
    for (size_t size : sizes) bytes += zlibBlock(sampleText(size, static_cast<uint32_t>(size)));
    bytes += endMarker();
    blocks = blocksOf(bytes);
    for (const auto& block : blocks) {
      starts.push_back(text.size());
      text += block.data;
    }
  }
  uint64_t offset(size_t block, size_t inside) const { return blocks[block].address << 16 | inside; }
  std::string bytes, text;
  std::vector<ZlibBlock> blocks;
  std::vector<size_t> starts;  // of each block in the text
};

// The rule by which readers of the map move an offset.
uint64_t moved(const OffsetMap& map, uint64_t offset) {
  auto after = map.upper_bound(offset);
  EXPECT_NE(after, map.begin());
  auto pair = std::prev(after);
  return offset - pair->first + pair->second;
}

std::string textAt(const std::string& path, uint64_t offset, size_t count) {
  BGZFHandle handle;
  EXPECT_TRUE(handle.openFile(path.c_str(), "r"));
  EXPECT_GE(handle.seek(static_cast<int64_t>(offset), SEEK_SET), 0);
  std::string text(count, 0);
  int64_t got = handle.read(text.data(), count);
  text.resize(got < 0 ? 0 : static_cast<size_t>(got));
  return text;
}

TEST(BgzfCopy, MovesAnyRegionAndMapsItsOffsets) {
  TempFolder folder;
  Source source({3000, 0, 65280, 500, 65536, 20000});
  std::string in = folder.write("in.gz", source.bytes), out = folder.path("out.gz");
  struct Place {
    size_t block, inside;
  };
  std::vector<Place> places;
  for (size_t i = 0; i < source.blocks.size(); ++i) {
    size_t size = source.blocks[i].data.size();
    places.push_back({i, 0});
    if (size > 1) places.push_back({i, 1});
    if (size > 300) places.push_back({i, size / 2});
    if (size > 0 && size < 65536) places.push_back({i, size});
  }
  std::string head = sampleText(50000, 99);
  thread_coop pool;
  pool.addWorker([] {});
  for (bool parallel : {false, true})
    for (size_t i = 0; i < places.size(); ++i)
      for (size_t j = i; j < places.size(); ++j) {
        auto from = source.offset(places[i].block, places[i].inside);
        auto to = source.offset(places[j].block, places[j].inside);
        SCOPED_TRACE(std::to_string(i) + " " + std::to_string(j));
        BGZFHandle reader, writer;
        ASSERT_TRUE(reader.openFile(in.c_str(), "r"));
        ASSERT_TRUE(writer.openFile(out.c_str(), "w1"));
        ASSERT_EQ(writer.set_parallel(parallel ? &pool : nullptr), 0);
        ASSERT_EQ(writer.write(head.data(), head.size()), 50000);
        OffsetMap map;
        ASSERT_EQ(writer.copy(reader, static_cast<int64_t>(from), static_cast<int64_t>(to),
                              parallel ? nullptr : &map),
                  0);
        ASSERT_EQ(writer.write("tail", 4), 4);
        ASSERT_EQ(writer.close(), 0);
        size_t begin = source.starts[places[i].block] + places[i].inside;
        size_t end = source.starts[places[j].block] + places[j].inside;
        auto blocks = blocksOf(fileBytes(out));
        ASSERT_TRUE(joined(blocks) == head + source.text.substr(begin, end - begin) + "tail");
        if (parallel) continue;
        for (size_t k = i; k <= j; ++k) {
          size_t at = source.starts[places[k].block] + places[k].inside;
          auto offset = moved(map, source.offset(places[k].block, places[k].inside));
          size_t count = std::min<size_t>(end - at, 40);
          ASSERT_EQ(textAt(out, offset, count + 4),
                    source.text.substr(at, count) + (count < 40 ? "tail" : "") +
                        (count < 40 ? "" : textAt(out, offset, 44).substr(40)))
              << k;
        }
        // Whole blocks inside the region have moved as they were.
        for (size_t k = places[i].block + 1; k < places[j].block; ++k) {
          auto address = map.at(source.offset(k, 0)) >> 16;
          ASSERT_EQ(fileBytes(out).compare(address, source.blocks[k].size, source.bytes,
                                           source.blocks[k].address, source.blocks[k].size),
                    0);
        }
      }
  pool.join();
}

TEST(BgzfCopy, TellsWhoFailed) {
  TempFolder folder;
  Source source({3000, 65280, 20000, 20000});
  std::string good = folder.write("good.gz", source.bytes);
  std::string bad = source.bytes;
  bad[source.blocks[2].address] = 'X';
  std::string damaged = folder.write("bad.gz", bad);
  std::string cut = folder.write("cut.gz", source.bytes.substr(0, source.blocks[2].address + 100));
  std::string ends = folder.write("ends.gz", source.bytes.substr(0, source.blocks[2].address));
  auto middle = static_cast<int64_t>(source.offset(0, 10)), last = static_cast<int64_t>(source.offset(3, 10));
  struct {
    const char* name;
    std::string path;
    int64_t from, to;
    const char* out;
    int result;
    std::string text;  // of the one that failed
  } cases[] = {
      {"damaged", damaged, middle, last, "out.gz", -2, "corrupted or invalid header"},
      {"truncated in a block", cut, middle, last, "out.gz", -2, "truncated file"},
      {"truncated between blocks", ends, middle, last, "out.gz", -2, strerror(EINVAL)},
      {"backwards", good, last, middle, "out.gz", -2, "usage error"},
      {"from outside its block", good, static_cast<int64_t>(source.offset(0, 3001)), last, "out.gz", -2,
       "usage error"},
      {"to outside its block", good, middle, static_cast<int64_t>(source.offset(3, 20001)), "out.gz", -2,
       "usage error"},
      {"to inside a block's bytes", good, middle, static_cast<int64_t>((source.blocks[2].address + 5) << 16),
       "out.gz", -2, "usage error"},
      {"full disk", good, middle, last, "/dev/full", -3, strerror(ENOSPC)},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    BGZFHandle reader, writer;
    ASSERT_TRUE(reader.openFile(c.path.c_str(), "r"));
    std::string out = c.out[0] == '/' ? c.out : folder.path(c.out);
    ASSERT_TRUE(writer.openFile(out.c_str(), "w"));
    OffsetMap map;
    int result = writer.copy(reader, c.from, c.to, &map);
    if (c.result == -3 && result == 0) {  // small enough for the stream's buffer: it shows at the closing
      EXPECT_EQ(writer.close(), -1);
      result = -3;
    }
    EXPECT_EQ(result, c.result);
    if (c.path == ends) continue;  // a seek beyond the file or a file that ends: either is told
    EXPECT_EQ(c.result == -3 ? writer.error_text() : reader.error_text(), c.text);
  }
  BGZFHandle writer;
  POSIXIOHandle plain;
  ASSERT_TRUE(writer.openFile(folder.path("out.gz").c_str(), "w"));
  ASSERT_TRUE(plain.openFile(good.c_str(), "r"));
  EXPECT_EQ(writer.copy(plain, 0, 10, nullptr), -1);

  thread_coop pool;  // where blocks are made has no place for them yet that a map could tell
  BGZFHandle reader, parallel;
  OffsetMap map;
  ASSERT_TRUE(reader.openFile(good.c_str(), "r"));
  ASSERT_TRUE(parallel.openFile(folder.path("parallel.gz").c_str(), "w"));
  ASSERT_EQ(parallel.set_parallel(&pool), 0);
  EXPECT_EQ(parallel.copy(reader, middle, last, &map), -1);
  EXPECT_EQ(parallel.error_text(), "usage error");
  EXPECT_TRUE(map.empty());
}

TEST(BgzfCopy, MovesTheRestOfAFile) {
  TempFolder folder;
  Source source({3000, 0, 65280, 500, 65536, 20000});
  std::string in = folder.write("in.gz", source.bytes), out = folder.path("out.gz");
  thread_coop pool;
  pool.addWorker([] {});
  for (bool parallel : {false, true})
    for (size_t skip : {0, 1, 2999, 3000, 3001, 68280, 68281, 134000}) {
      for (bool by_seek : {false, true}) {
        SCOPED_TRACE(std::to_string(skip) + (by_seek ? " by seek" : ""));
        BGZFHandle reader, writer;
        ASSERT_TRUE(reader.openFile(in.c_str(), "r"));
        ASSERT_TRUE(writer.openFile(out.c_str(), "w"));
        ASSERT_EQ(writer.set_parallel(parallel ? &pool : nullptr), 0);
        std::string head(skip, 0);
        ASSERT_EQ(reader.read(head.data(), skip), static_cast<int64_t>(skip));
        if (by_seek) {
          BGZFHandle other;
          int64_t offset = reader.tell();
          ASSERT_TRUE(other.openFile(in.c_str(), "r"));
          ASSERT_EQ(other.seek(offset, SEEK_SET), offset);
          ASSERT_EQ(writer.write(head.data(), skip), static_cast<int64_t>(skip));
          ASSERT_EQ(other.copy_rest(writer), 0);
        } else {
          ASSERT_EQ(writer.write(head.data(), skip), static_cast<int64_t>(skip));
          ASSERT_EQ(reader.copy_rest(writer), 0);
        }
        int64_t told = writer.parallel() ? -1 : writer.tell();
        ASSERT_EQ(writer.write("more", 4), 4);
        ASSERT_EQ(writer.close(), 0);
        ASSERT_TRUE(joined(blocksOf(fileBytes(out))) == source.text + "more");
        if (told >= 0) {
          EXPECT_EQ(textAt(out, static_cast<uint64_t>(told), 10), "more");
        }
      }
    }
  pool.join();

  std::string cut = folder.write("cut.gz", source.bytes.substr(0, source.bytes.size() - 5));
  BGZFHandle reader, writer;
  ASSERT_TRUE(reader.openFile(cut.c_str(), "r"));
  ASSERT_TRUE(writer.openFile(out.c_str(), "w"));
  EXPECT_EQ(reader.copy_rest(writer), -2);
  EXPECT_EQ(reader.error_text(), "truncated file");
  EXPECT_EQ(writer.copy_rest(reader), -1);
}

}  // namespace
