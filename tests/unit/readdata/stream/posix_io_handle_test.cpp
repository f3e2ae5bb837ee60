// Plain files through POSIXIOHandle, against the whole text in memory.
#include "readdata/stream/posix_io_handle.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

#include "readdata/stream/bgzf_handle.h"
#include "temp_folder.h"
#include "zlib_blocks.h"

namespace {

TEST(PosixHandle, WritesInPiecesOfAnySize) {
  TempFolder folder;
  std::string path = folder.path("out"), text = sampleText(300000);
  std::mt19937 random(1);
  for (size_t most : {10, 16384, 16385, 100000}) {
    POSIXIOHandle handle;
    ASSERT_TRUE(handle.openFile(path.c_str(), "w"));
    for (size_t at = 0; at < text.size();) {
      size_t count = std::min<size_t>(random() % most + 1, text.size() - at);
      ASSERT_EQ(handle.write(text.data() + at, count), static_cast<int64_t>(count));
      at += count;
      ASSERT_EQ(handle.seek(0, SEEK_CUR), static_cast<int64_t>(at));
      if (random() % 50 == 0) {
        ASSERT_EQ(handle.flush(), 0);
        ASSERT_EQ(fileBytes(path).size(), at);
      }
    }
    ASSERT_EQ(handle.seek(100, SEEK_SET), 100);
    ASSERT_EQ(handle.write("PATCH", 5), 5);
    ASSERT_EQ(handle.seek(0, SEEK_END), static_cast<int64_t>(text.size()));
    ASSERT_EQ(handle.write("END", 3), 3);
    ASSERT_EQ(handle.close(), 0);
    ASSERT_EQ(handle.close(), 0);
    std::string expected = text + "END";
    expected.replace(100, 5, "PATCH");
    EXPECT_TRUE(fileBytes(path) == expected) << most;
  }
}

TEST(PosixHandle, AgreesWithTheWholeTextAfterAnySeek) {
  TempFolder folder;
  std::string text = sampleText(200000), path = folder.write("in", text);
  POSIXIOHandle first;
  ASSERT_TRUE(first.openFile(path.c_str(), "r"));
  std::unique_ptr<IOHandle> clone;
  IOHandle* handles[2] = {&first, nullptr};
  size_t places[2] = {0, 0};
  std::mt19937 random(2);
  std::string buffer(60000, 0);
  for (int step = 0; step < 20000; ++step) {
    if (step % 500 == 0) {
      clone = first.clone();
      ASSERT_NE(clone, nullptr);
      handles[1] = clone.get();
      places[1] = places[0];
    }
    IOHandle& handle = *handles[random() % 2];
    size_t& place = places[&handle == &first ? 0 : 1];
    auto target = static_cast<int64_t>(random() % (text.size() + 1));
    switch (random() % 6) {
      case 0:
        ASSERT_EQ(handle.seek(target, SEEK_SET), target);
        place = static_cast<size_t>(target);
        break;
      case 1:
        ASSERT_EQ(handle.seek(target - static_cast<int64_t>(place), SEEK_CUR), target);
        place = static_cast<size_t>(target);
        break;
      case 2:
        ASSERT_EQ(handle.seek(target - static_cast<int64_t>(text.size()), SEEK_END), target);
        place = static_cast<size_t>(target);
        break;
      case 3:
        ASSERT_EQ(handle.seek(-1, SEEK_SET), -1);
        ASSERT_EQ(handle.error_code(), EINVAL);
        break;
      default:
        break;
    }
    ASSERT_EQ(handle.seek(0, SEEK_CUR), static_cast<int64_t>(place));
    size_t count = random() % (random() % 4 == 0 ? buffer.size() : 200);
    size_t expected = std::min(count, text.size() - place);
    if (random() % 2 == 0) {
      size_t line_end = text.find('\n', place);
      if (line_end != std::string::npos) expected = std::min(expected, line_end + 1 - place);
      ASSERT_EQ(handle.read_until(buffer.data(), count, '\n'), static_cast<int64_t>(expected));
    } else {
      ASSERT_EQ(handle.read(buffer.data(), count), static_cast<int64_t>(expected));
    }
    ASSERT_EQ(text.compare(place, expected, buffer, 0, expected), 0) << step;
    place += expected;
  }
}

TEST(PosixHandle, CopiesRegions) {
  TempFolder folder;
  std::string text = sampleText(200000), in = folder.write("in", text), out = folder.path("out");
  for (auto [from, to] :
       std::vector<std::pair<int64_t, int64_t>>{{0, 0}, {0, 200000}, {5, 6}, {100, 150000}}) {
    POSIXIOHandle reader, writer;
    ASSERT_TRUE(reader.openFile(in.c_str(), "r"));
    ASSERT_TRUE(writer.openFile(out.c_str(), "w"));
    ASSERT_EQ(writer.write("head", 4), 4);
    OffsetMap map;
    ASSERT_EQ(writer.copy(reader, from, to, &map), 0);
    EXPECT_EQ(map, (OffsetMap{{static_cast<uint64_t>(from), 4}}));
    ASSERT_EQ(writer.close(), 0);
    EXPECT_TRUE(fileBytes(out) ==
                "head" + text.substr(static_cast<size_t>(from), static_cast<size_t>(to - from)));
  }
  POSIXIOHandle reader, writer, full;
  BGZFHandle other;
  ASSERT_TRUE(reader.openFile(in.c_str(), "r"));
  ASSERT_TRUE(writer.openFile(out.c_str(), "w"));
  ASSERT_TRUE(full.openFile("/dev/full", "w"));
  EXPECT_EQ(writer.copy(reader, 0, 200001, nullptr), -2);
  EXPECT_NE(reader.error_text(), "");
  EXPECT_EQ(full.copy(reader, 0, 200000, nullptr), -3);
  EXPECT_EQ(full.error_text(), strerror(ENOSPC));
  EXPECT_EQ(writer.copy(other, 0, 1, nullptr), -1);
  EXPECT_EQ(reader.copy(writer, 0, 1, nullptr), -1);
}

TEST(PosixHandle, TellsOfFailures) {
  TempFolder folder;
  char byte = 0;
  POSIXIOHandle handle;
  EXPECT_FALSE(handle.openFile(folder.path("none").c_str(), "r"));
  EXPECT_EQ(handle.error_code(), ENOENT);
  EXPECT_EQ(handle.read(&byte, 1), -1);
  EXPECT_EQ(handle.error_code(), EBADF);
  std::string error;
  EXPECT_EQ(handle.open(folder.path("none/a").c_str(), "w", &error), nullptr);
  EXPECT_EQ(error, strerror(ENOENT));
  EXPECT_EQ(handle.error_code(), EBADF);  // its own, as before

  auto writer = handle.open(folder.path("out").c_str(), "w");
  ASSERT_NE(writer, nullptr);
  EXPECT_EQ(writer->read(&byte, 1), -1);
  EXPECT_EQ(writer->clone(), nullptr);
  EXPECT_EQ(writer->error_code(), EBADF);
  auto reader = handle.open(folder.path("out").c_str(), "r");
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->write("x", 1), -1);
  EXPECT_EQ(reader->flush(), -1);
  EXPECT_EQ(reader->read(&byte, 1), 0);
  auto folder_handle = handle.open(folder.path("").c_str(), "r");
  ASSERT_NE(folder_handle, nullptr);
  EXPECT_EQ(folder_handle->read(&byte, 1), -1);
  EXPECT_EQ(folder_handle->error_code(), EISDIR);

  // A full disk shows at the closing at the latest, and stays.
  for (size_t count : {1, 100000}) {
    POSIXIOHandle full;
    std::string bytes(count, 'x');
    ASSERT_TRUE(full.openFile("/dev/full", "w"));
    EXPECT_EQ(full.write(bytes.data(), count), count == 1 ? 1 : -1);
    if (count > 1) {
      EXPECT_EQ(full.write("x", 1), -1);
    }
    EXPECT_EQ(full.close(), -1);
    EXPECT_EQ(full.error_code(), ENOSPC);
  }
}

}  // namespace
