// Reading through BGZFHandle: files made by zlib, a model that holds the whole text, and damaged files.
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include "readdata/stream/bgzf_handle.h"
#include "temp_folder.h"
#include "zlib_blocks.h"

namespace {

// A file of many block sizes, with empty blocks in it, and what it holds.
struct Sample {
  Sample() {
    std::mt19937 random(11);
    size_t sizes[] = {65536, 1, 0, 65280, 100, 0, 0, 40000, 65536, 65535, 17};
    for (size_t round = 0; round < 3; ++round)
      for (size_t size : sizes) {
        std::string data = sampleText(size, random());
        bytes += zlibBlock(data, static_cast<int>(random() % 10));
      }
    bytes += endMarker();
    blocks = blocksOf(bytes);
    text = joined(blocks);
  }
  // All virtual offsets of a place in the text: the end of a block is the beginning of the next, too.
  int64_t offsetOf(size_t block, size_t inside) const {
    return static_cast<int64_t>(blocks[block].address << 16 | inside);
  }
  std::string bytes;
  std::vector<ZlibBlock> blocks;
  std::string text;
};

const Sample& sample() {
  static const Sample made;
  return made;
}

size_t textStart(size_t block) {
  size_t start = 0;
  for (size_t i = 0; i < block; ++i) start += sample().blocks[i].data.size();
  return start;
}

std::string readAll(IOHandle& handle, size_t piece = 10007) {
  std::string all, buffer(piece, 0);
  for (;;) {
    int64_t got = handle.read(buffer.data(), piece);
    if (got < 0) throw std::runtime_error(handle.error_text());
    all.append(buffer, 0, static_cast<size_t>(got));
    if (got < static_cast<int64_t>(piece)) return all;
  }
}

// Random seeks, reads, delimited reads and peeks, on a handle and a clone of it that goes its own way.
TEST(BgzfReader, AgreesWithTheWholeTextAfterAnySeek) {
  TempFolder folder;
  std::string path = folder.write("in.gz", sample().bytes);
  BGZFHandle first;
  ASSERT_TRUE(first.openFile(path.c_str(), "r"));
  std::unique_ptr<IOHandle> owner;
  BGZFHandle* handles[2] = {&first, nullptr};
  size_t places[2] = {0, 0};
  const std::string& text = sample().text;
  std::mt19937 random(5);
  std::string buffer(200000, 0);
  size_t near_block = 0;
  for (int step = 0; step < 20000; ++step) {
    if (step % 1000 == 0) {
      owner = first.clone();
      ASSERT_NE(owner, nullptr);
      handles[1] = static_cast<BGZFHandle*>(owner.get());
      places[1] = places[0];
    }
    size_t which = random() % 2;
    BGZFHandle& handle = *handles[which];
    size_t& place = places[which];
    if (random() % 3 != 0) {  // mostly to a block nearby, as chunk lists do
      size_t block = random() % 4 == 0 ? random() % sample().blocks.size()
                                       : std::min(near_block + random() % 3, sample().blocks.size() - 1);
      near_block = block > 0 ? block - 1 : 0;
      size_t size = sample().blocks[block].data.size();
      size_t inside = std::min<size_t>(random() % (size + 1), 65535);
      if (random() % 8 == 0) inside = std::min<size_t>(size, 65535);
      ASSERT_GE(handle.seek(sample().offsetOf(block, inside), SEEK_SET), 0);
      place = textStart(block) + inside;
    }
    size_t count = random() % (random() % 5 == 0 ? 150000 : 400);
    size_t expected = std::min(count, text.size() - place);
    if (random() % 4 == 0) {
      size_t line_end = text.find('\n', place);
      if (line_end != std::string::npos) expected = std::min(expected, line_end + 1 - place);
      ASSERT_EQ(handle.read_until(buffer.data(), count, '\n'), static_cast<int64_t>(expected));
    } else if (const uint8_t* seen = handle.peek(count)) {
      ASSERT_EQ(expected, count);
      memcpy(buffer.data(), seen, count);
      handle.skip(count);
    } else {
      ASSERT_EQ(handle.read(buffer.data(), count), static_cast<int64_t>(expected));
    }
    ASSERT_EQ(text.compare(place, expected, buffer, 0, expected), 0) << step;
    place += expected;
    // The offset told is one that leads back here.
    int64_t told = handle.tell();
    ASSERT_EQ(handle.seek(0, SEEK_CUR), told);
    if (random() % 4 == 0) {
      ASSERT_EQ(handle.seek(told, SEEK_SET), told);
    }
  }
}

TEST(BgzfReader, ClonesReadOneFileOnManyThreads) {
  TempFolder folder;
  std::string path = folder.write("in.gz", sample().bytes);
  std::vector<std::unique_ptr<IOHandle>> clones;
  std::string head(70000, 0);
  {
    BGZFHandle handle;
    ASSERT_TRUE(handle.openFile(path.c_str(), "r"));
    ASSERT_EQ(handle.read(head.data(), head.size()), 70000);
    for (int i = 0; i < 3; ++i) clones.push_back(handle.clone());
    clones.push_back(clones[0]->clone());
    EXPECT_TRUE(head + readAll(handle) == sample().text);
  }  // the clones outlive the handle
  std::vector<std::string> got(clones.size());
  std::vector<std::thread> threads;
  for (size_t i = 0; i < clones.size(); ++i)
    threads.emplace_back([&, i] { got[i] = readAll(*clones[i], 100 + 1000 * i); });
  for (auto& thread : threads) thread.join();
  for (const auto& text : got) EXPECT_TRUE(head + text == sample().text);
}

TEST(BgzfReader, ReadsAPipe) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread feeder([&] {
    const std::string& bytes = sample().bytes;
    for (size_t at = 0; at < bytes.size();) {
      ssize_t put = write(ends[1], bytes.data() + at, std::min<size_t>(bytes.size() - at, 7777));
      if (put < 0) break;
      at += static_cast<size_t>(put);
    }
    close(ends[1]);
  });
  BGZFHandle handle;
  std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
  ASSERT_TRUE(handle.openFile(path.c_str(), "r"));
  std::string head(1000, 0);
  EXPECT_EQ(handle.has_eof(), -1);
  EXPECT_EQ(handle.read(head.data(), 1000), 1000);
  EXPECT_EQ(handle.has_eof(), -1);
  EXPECT_EQ(handle.clone(), nullptr);
  EXPECT_EQ(handle.seek(5, SEEK_SET), 5);  // inside the block at hand
  EXPECT_TRUE(head.substr(0, 5) + readAll(handle) == sample().text);
  feeder.join();
  close(ends[0]);
}

// What a damaged file answers: the kind of error, and the bytes read before it.
struct Damaged {
  std::string name;
  std::string bytes;
  int kind;
  std::string text;
  bool verify = false;
};

std::vector<Damaged> damagedFiles() {
  std::string good = zlibBlock(sampleText(5000)), bad = zlibBlock(sampleText(3000, 2));
  std::vector<Damaged> all;
  auto add = [&](std::string name, const std::string& block, int kind, std::string text,
                 bool verify = false) {
    all.push_back({std::move(name), good + block, kind, std::move(text), verify});
  };
  auto with = [&](size_t at, char value) {
    std::string block = bad;
    block[at] = value;
    return block;
  };
  for (size_t at : {0, 1, 2, 3, 10, 11, 12, 13, 14, 15})
    add("header byte " + std::to_string(at), with(at, 'Z' & ~4), BGZFHandle::kHeader,
        "corrupted or invalid header");
  for (size_t at : {4, 5, 6, 7, 8, 9}) add("free header byte " + std::to_string(at), with(at, 'Z'), 0, "");
  std::string small = bad;
  small.replace(16, 2, littleBytes(25, 2));
  add("block size that leaves no data", small, BGZFHandle::kHeader, "corrupted or invalid header");
  small.replace(16, 2, littleBytes(0, 2));
  add("block size 0", small, BGZFHandle::kHeader, "corrupted or invalid header");
  std::string large = bad;
  large.replace(16, 2, littleBytes(65535, 2));
  add("block size beyond the file", large, BGZFHandle::kIo, "truncated file");
  for (size_t cut : {1, 10, 17})
    add("cut in the header at " + std::to_string(cut), bad.substr(0, cut), BGZFHandle::kHeader,
        "corrupted or invalid header");
  for (size_t cut : {size_t{18}, size_t{19}, bad.size() / 2, bad.size() - 8, bad.size() - 1})
    add("cut at " + std::to_string(cut), bad.substr(0, cut), BGZFHandle::kIo, "truncated file");
  for (uint32_t size : {0u, 2999u, 3001u, 65536u, 65537u, 0x7fffffffu, 0xffffffffu}) {
    std::string block = bad;
    block.replace(block.size() - 4, 4, littleBytes(size, 4));
    add("stated length " + std::to_string(size), block, BGZFHandle::kZlib, "zlib error");
  }
  add("reserved kind of deflate block", with(18, 7), BGZFHandle::kZlib, "zlib error");
  std::string wrong_crc = with(bad.size() - 8, static_cast<char>(bad[bad.size() - 8] ^ 1));
  add("checksum, not looked at", wrong_crc, 0, "");
  add("checksum", wrong_crc, BGZFHandle::kCrc, "block checksum mismatch", true);
  add("plain text", "@HD\tVN:1.6\tSO:coordinate\n@SQ\tSN:chr1\tLN:1000\n", BGZFHandle::kHeader,
      "corrupted or invalid header");
  std::string zeros(70000, 0);
  add("zeros", zeros, BGZFHandle::kHeader, "corrupted or invalid header");
  return all;
}

TEST(BgzfReader, NamesTheFaultOfADamagedFile) {
  TempFolder folder;
  for (const auto& c : damagedFiles()) {
    SCOPED_TRACE(c.name);
    std::string path = folder.write("in.gz", c.bytes);
    BGZFHandle handle;
    handle.set_verify_crc(c.verify);
    ASSERT_TRUE(handle.openFile(path.c_str(), "r"));
    std::string buffer(10000, 0);
    ASSERT_EQ(handle.read(buffer.data(), 5000), 5000);  // the good block comes first
    ASSERT_TRUE(buffer.substr(0, 5000) == sampleText(5000));
    int64_t expected = c.kind == 0 ? 3000 : -1;
    EXPECT_EQ(handle.read(buffer.data(), 10000), expected);
    EXPECT_EQ(handle.error_code(), c.kind);
    EXPECT_EQ(handle.error_text(), c.text);
    // It stays bad, and what was good stays good.
    if (c.kind != 0) {
      EXPECT_EQ(handle.read_until(buffer.data(), 10000, '\n'), -1);
    }
    EXPECT_EQ(handle.seek(0, SEEK_SET), 0);
    EXPECT_EQ(handle.read(buffer.data(), 5000), 5000);
    EXPECT_EQ(handle.close(), 0);
  }
}

TEST(BgzfReader, SurvivesRandomDamage) {
  TempFolder folder;
  std::string good = sample().bytes.substr(0, sample().blocks[9].address);
  std::mt19937 random(3);
  std::string buffer(5000, 0);
  int failures = 0;
  for (int round = 0; round < 300; ++round) {
    std::string bytes = good;
    for (int i = 0; i < 3; ++i) bytes[random() % bytes.size()] = static_cast<char>(random());
    if (random() % 4 == 0) bytes.resize(random() % bytes.size());
    BGZFHandle handle;
    ASSERT_TRUE(handle.openFile(folder.write("in.gz", bytes).c_str(), "r"));
    handle.set_verify_crc(true);
    for (int step = 0; step < 30; ++step) {
      handle.seek(static_cast<int64_t>(sample().offsetOf(random() % 10, random() % 65536)), SEEK_SET);
      int64_t got = handle.read(buffer.data(), random() % buffer.size());
      ASSERT_GE(got, -1);
    }
    failures += handle.error_code() != 0;
  }
  EXPECT_GT(failures, 250);
}

TEST(BgzfReader, RefusesWrongSeeks) {
  TempFolder folder;
  std::string bytes = zlibBlock("0123456789") + endMarker();
  BGZFHandle handle;
  ASSERT_TRUE(handle.openFile(folder.write("in.gz", bytes).c_str(), "r"));
  char byte;
  struct {
    int64_t offset;
    int whence;
    int64_t seek;
    int64_t read;
  } cases[] = {
      {0, SEEK_SET, 0, 1},
      {9, SEEK_SET, 9, 1},
      {10, SEEK_SET, 10, 0},
      {11, SEEK_SET, -1, 0},  // the block is known
      {-1, SEEK_SET, -1, 0},
      {1, SEEK_CUR, -1, 0},
      {0, SEEK_END, -1, 0},
      {static_cast<int64_t>(bytes.size()) << 16, SEEK_SET, static_cast<int64_t>(bytes.size()) << 16, 0},
      {(static_cast<int64_t>(bytes.size()) << 16) + 1, SEEK_SET,
       (static_cast<int64_t>(bytes.size()) << 16) + 1, -1},
      {static_cast<int64_t>(bytes.size() + 1) << 16, SEEK_SET, -1, -1},
      {1 << 16, SEEK_SET, 1 << 16, -1},  // inside a block's bytes
      {0x7fffffffffffffff, SEEK_SET, -1, -1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(handle.seek(c.offset, c.whence), c.seek) << c.offset;
    EXPECT_EQ(handle.read(&byte, 1), c.read) << c.offset;
  }
  EXPECT_EQ(handle.write("x", 1), -1);
  EXPECT_EQ(handle.flush(), -1);
  EXPECT_EQ(handle.ensure_room(1), -1);

  BGZFHandle none;
  EXPECT_FALSE(none.openFile(folder.path("none").c_str(), "r"));
  EXPECT_EQ(none.error_text(), strerror(ENOENT));
  EXPECT_EQ(none.read(&byte, 1), -1);
  BGZFHandle directory;
  EXPECT_TRUE(!directory.openFile(folder.path("").c_str(), "r") || directory.read(&byte, 1) < 0);
  EXPECT_EQ(directory.error_text(), strerror(EISDIR));
}

}  // namespace
