// What BGZFHandle writes: judged by zlib and gzip, at every level, on one thread and on the pool.
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include "base/host.h"
#include "base/thread_coop.h"
#include "readdata/stream/bgzf_handle.h"
#include "readdata/stream/block_lz.h"
#include "temp_folder.h"
#include "zlib_blocks.h"

namespace {

struct Payload {
  const char* name;
  std::string bytes;
};

const std::vector<Payload>& payloads() {
  static const std::vector<Payload> all = {
      {"nothing", ""},
      {"one byte", "x"},
      {"one full block", sampleText(65280)},
      {"a byte over a block", sampleText(65281)},
      {"runs", std::string(200000, 'a')},
      {"noise, larger than it was", randomBytes(200000)},
      {"text", sampleText(700000)},
      {"text and noise", sampleText(100000) + randomBytes(100000) + sampleText(100000)},
  };
  return all;
}

// Writes in pieces of many sizes.
std::string written(const std::string& path, const char* mode, const std::string& bytes,
                    thread_coop* pool = nullptr) {
  BGZFHandle handle;
  if (!handle.openFile(path.c_str(), mode)) throw std::runtime_error(handle.error_text());
  if (pool != nullptr) {
    EXPECT_EQ(handle.set_parallel(pool), 0);
  }
  size_t piece = 1;
  for (size_t at = 0; at < bytes.size(); piece = piece * 7 % 9973) {
    size_t count = std::min(piece, bytes.size() - at);
    EXPECT_EQ(handle.write(bytes.data() + at, count), static_cast<int64_t>(count));
    at += count;
  }
  EXPECT_EQ(handle.close(), 0);
  return fileBytes(path);
}

// For a few blocks: in a short file the fast path takes new codes from blocks 0, 1, 2, 4 and so on.
std::string asBlocks(const std::string& bytes, int level, bool fast) {
  BlockCompressor compressor(level, fast);
  std::unique_ptr<FastLzTables> tables;
  std::string file, block(65536, 0);
  for (size_t at = 0, index = 0; at < bytes.size(); at += 65280, ++index) {
    size_t count = std::min<size_t>(65280, bytes.size() - at);
    auto* input = reinterpret_cast<const uint8_t*>(bytes.data()) + at;
    if (compressor.fast() && (index & (index - 1)) == 0)
      tables = std::make_unique<FastLzTables>(input, count);
    int size = compressor.compress(input, count, reinterpret_cast<uint8_t*>(block.data()), tables.get());
    file.append(block, 0, static_cast<size_t>(size));
  }
  return file + endMarker();
}

TEST(BgzfWriter, WritesWhatZlibAndGzipRead) {
  TempFolder folder;
  std::string path = folder.path("out.gz");
  for (const char* mode : {"w", "w0", "wu", "w1", "w2", "w3", "w4", "w5", "w6", "w7", "w8", "w9", "W1"}) {
    for (const auto& payload : payloads()) {
      SCOPED_TRACE(std::string(mode) + " " + payload.name);
      std::string file = written(path, mode, payload.bytes);
      auto blocks = blocksOf(file);
      EXPECT_TRUE(joined(blocks) == payload.bytes);
      EXPECT_EQ(file.substr(file.size() - 28), endMarker());
      EXPECT_EQ(blocks.size(), (payload.bytes.size() + 65279) / 65280 + 1);
      for (size_t i = 0; i + 2 < blocks.size(); ++i) EXPECT_EQ(blocks[i].data.size(), 65280u);
      EXPECT_EQ(std::system(("gzip -t " + path).c_str()), 0);
      EXPECT_TRUE(BGZFHandle::is_bgzf(path.c_str()));
    }
  }
}

TEST(BgzfWriter, TakesTheLevelFromTheMode) {
  TempFolder folder;
  std::string path = folder.path("out.gz"), text = sampleText(300000);
  struct {
    const char* mode;
    int level;
    bool fast;
  } cases[] = {{"w", 6, false},  {"w6", 6, false},  {"w10", 6, false}, {"w99999999999999999999", 6, false},
               {"w0", 0, false}, {"wu", 0, false},  {"w9u", 0, false}, {"w1", 1, true},
               {"w2", 2, false}, {"wb9", 9, false}, {"3w", 3, false}};
  for (const auto& c : cases)
    EXPECT_TRUE(written(path, c.mode, text) == asBlocks(text, c.level, c.fast)) << c.mode;
  EXPECT_EQ(asBlocks(text, 1, true) == asBlocks(text, 1, false), !cpu_has_fast_deflate());
  EXPECT_LT(asBlocks(text, 9, false).size(), asBlocks(text, 1, false).size());
  // Type 0 of a deflate block is stored.
  EXPECT_EQ(written(path, "w0", text)[18] & 6, 0);

  BGZFHandle prototype;
  ASSERT_TRUE(prototype.openFile((folder.path("first.gz")).c_str(), "w9"));
  auto second = prototype.open(path.c_str(), "w");
  ASSERT_NE(second, nullptr);
  second->write(text.data(), text.size());
  EXPECT_EQ(second->close(), 0);
  EXPECT_TRUE(fileBytes(path) == asBlocks(text, 9, false));
}

TEST(BgzfWriter, TellsOfAFullDisk) {
  std::string noise = randomBytes(300000);
  for (bool parallel : {false, true}) {
    thread_coop pool;
    pool.addWorker([] {});
    BGZFHandle handle;
    ASSERT_TRUE(handle.openFile("/dev/full", "w"));
    ASSERT_EQ(handle.set_parallel(parallel ? &pool : nullptr), 0);
    for (int i = 0; i < 20; ++i) handle.write(noise.data(), noise.size());
    EXPECT_EQ(handle.write("x", 1), -1);
    EXPECT_EQ(handle.error_code(), BGZFHandle::kIo);
    EXPECT_EQ(handle.error_text(), strerror(ENOSPC));
    EXPECT_EQ(handle.close(), -1);
    pool.join();
  }
  BGZFHandle small;  // the failure comes only when the stream is emptied
  ASSERT_TRUE(small.openFile("/dev/full", "w"));
  EXPECT_EQ(small.write("x", 1), 1);
  EXPECT_EQ(small.close(), -1);
  EXPECT_EQ(small.error_text(), strerror(ENOSPC));
}

TEST(BgzfWriter, LeavesNoEndMarkerBehindAFailure) {
  TempFolder folder;
  std::string path = folder.path("out.gz"), text = sampleText(100000);
  try {
    BGZFHandle handle;
    ASSERT_TRUE(handle.openFile(path.c_str(), "w"));
    handle.write(text.data(), text.size());
    throw std::runtime_error("the caller gives up");
  } catch (const std::runtime_error&) {
  }
  std::string file = fileBytes(path);
  EXPECT_TRUE(file.size() < 28 || file.substr(file.size() - 28) != endMarker());

  BGZFHandle misused;
  ASSERT_TRUE(misused.openFile(path.c_str(), "w"));
  misused.write(text.data(), text.size());
  EXPECT_EQ(misused.seek(0, SEEK_SET), -1);
  EXPECT_EQ(misused.error_text(), "usage error");
  EXPECT_EQ(misused.close(), -1);
  file = fileBytes(path);
  EXPECT_TRUE(file.size() < 28 || file.substr(file.size() - 28) != endMarker());
}

struct Written {
  std::vector<std::pair<uint32_t, uint64_t>> blocks;
  static void note(void* context, uint32_t index, uint64_t address) {
    static_cast<Written*>(context)->blocks.emplace_back(index, address);
  }
};

// Serial, then on the pool, then serial again in one file; records are found by the offsets told.
void writeInPhases(const std::string& path, thread_coop* pool, const std::vector<std::string>& records) {
  Written note;
  BGZFHandle handle;
  ASSERT_TRUE(handle.openFile(path.c_str(), "w1"));
  handle.set_index_callback(Written::note, &note);
  std::vector<uint64_t> offsets;
  std::vector<bool> by_number;
  for (size_t i = 0; i < records.size(); ++i) {
    if (i == records.size() / 5 || i == records.size() * 4 / 5) {
      ASSERT_EQ(handle.set_parallel(handle.parallel() ? nullptr : pool), 0);
    }
    ASSERT_EQ(handle.ensure_room(records[i].size()), 0);
    offsets.push_back(static_cast<uint64_t>(handle.tell()));
    by_number.push_back(handle.parallel());
    ASSERT_EQ(handle.write(records[i].data(), records[i].size()), static_cast<int64_t>(records[i].size()));
  }
  uint32_t count = handle.block_index() + 1;
  ASSERT_EQ(handle.close(), 0);
  auto blocks = blocksOf(fileBytes(path));
  ASSERT_EQ(note.blocks.size(), count);
  ASSERT_EQ(blocks.size(), count + 1);
  for (uint32_t i = 0; i < count; ++i) {
    EXPECT_EQ(note.blocks[i].first, i);
    EXPECT_EQ(note.blocks[i].second, blocks[i].address);
  }
  BGZFHandle reader;
  ASSERT_TRUE(reader.openFile(path.c_str(), "r"));
  for (size_t i = 0; i < records.size(); ++i) {
    uint64_t offset = offsets[i];
    if (by_number[i]) offset = blocks.at(offset >> 16).address << 16 | (offset & 0xffff);
    std::string got(records[i].size(), 0);
    ASSERT_GE(reader.seek(static_cast<int64_t>(offset), SEEK_SET), 0);
    ASSERT_EQ(reader.read(got.data(), got.size()), static_cast<int64_t>(got.size()));
    ASSERT_TRUE(got == records[i]) << i;
  }
}

std::vector<std::string> someRecords() {
  std::vector<std::string> records;
  for (uint32_t i = 0; i < 4000; ++i) records.push_back(sampleText(500 + i * 37 % 1500, i));
  return records;
}

TEST(BgzfParallel, KeepsTheOrderWithAnyNumberOfWorkers) {
  TempFolder folder;
  auto records = someRecords();
  for (int workers : {0, 1, 4}) {
    SCOPED_TRACE(workers);
    thread_coop pool;
    for (int i = 0; i < workers; ++i) pool.addWorker([] {});
    writeInPhases(folder.path("out.gz"), &pool, records);
    pool.join();
  }
}

// Tasks of others delay the blocks at random.
TEST(BgzfParallel, KeepsTheOrderBesideSlowTasks) {
  TempFolder folder;
  thread_coop pool;
  for (int i = 0; i < 4; ++i) {
    pool.addWorker([i, &pool] {
      std::mt19937 random(static_cast<uint32_t>(i));
      for (int step = 0; step < 100; ++step) {
        auto delay = std::chrono::microseconds(random() % 800);
        pool.addTask(
            std::make_shared<std::function<void()>>([delay] { std::this_thread::sleep_for(delay); }));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
      }
    });
  }
  writeInPhases(folder.path("out.gz"), &pool, someRecords());
  pool.join();
}

}  // namespace
