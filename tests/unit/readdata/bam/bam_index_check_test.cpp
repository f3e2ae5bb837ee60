#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "bam_files.h"
#include "readdata/bam/bam_impl.h"
#include "readdata/stream/genome_bins.h"
#include "temp_folder.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using Names = std::vector<std::string>;

// All reads by way of the index, each contig in tiles of `tile` bases; or what was thrown.
struct Result {
  Names names;
  std::string message;
};

Result fetchAll(const std::string& path, uint64_t tile) {
  Result result;
  testing::internal::CaptureStderr();
  try {
    auto bam = open_read_source(path, nullptr, true);
    auto cursor = bam->newFetchState();
    auto contigs = static_cast<int32_t>(bam->header->contigCount());
    for (int32_t contig = 0; contig < contigs; ++contig)
      for (uint64_t start = 0; start < bam->header->lengths[contig]; start += tile)
        for (bool more =
                 cursor->seek(contig, static_cast<uint32_t>(start), static_cast<uint32_t>(start + tile));
             more; more = cursor->readNext())
          result.names.push_back(cursor->current.name());
    for (bool more = cursor->seek(-1, 0, 0); more; more = cursor->readNext())
      result.names.push_back(cursor->current.name());
  } catch (const std::exception& error) {
    result.message = error.what();
  }
  result.message = testing::internal::GetCapturedStderr() + result.message;
  return result;
}

Names namesOf(const std::vector<RawRead>& reads) {
  Names names;
  for (const RawRead& read : reads) names.push_back(read.name);
  return names;
}

class IndexCheck : public testing::Test {
 protected:
  std::string write(const std::vector<RawRead>& reads, size_t block) {
    return folder_.write("a.bam", inBlocks(rawBam(sampleContigs(), reads), block));
  }
  // The complaint about attaching the index of the file as changed by `change`.
  std::string complaint(const std::string& path, const std::function<void(BamIndex&)>& change) {
    auto index = BamIndex::build(path);
    index->path = "the.bai";
    change(*index);
    BAMImpl bam(path);
    bam.open("r");
    bam.readHeader();
    uint64_t before = bam.tell();
    testing::internal::CaptureStderr();
    std::string message;
    try {
      bam.setIndex(index);
    } catch (const std::invalid_argument& error) {
      message = error.what();
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(bam.tell(), before);
    return message;
  }
  TempFolder folder_;
};

// Where the numbers of all chunks, pseudo bins without their counts among them, stand in an index.
std::vector<size_t> chunkFields(const std::string& bai) {
  std::vector<size_t> fields;
  size_t at = 8;
  for (uint32_t contig = 0; contig < little(bai, 4, 4); ++contig) {
    uint32_t bins = little(bai, at, 4);
    at += 4;
    for (uint32_t i = 0; i < bins; ++i) {
      uint32_t bin = little(bai, at, 4), chunks = little(bai, at + 4, 4);
      at += 8;
      for (uint32_t k = 0; k < (bin == kPseudoBin ? 1 : chunks); ++k)
        for (size_t field = 0; field < 16; field += 4) fields.push_back(at + 16 * k + field);
      at += 16 * chunks;
    }
    at += 4 + 8 * little(bai, at, 4);
  }
  return fields;
}

TEST_F(IndexCheck, EveryChunkFieldChanged) {
  for (size_t block : {400, 0xff00}) {
    auto reads = sampleReads(200, 8, 51);
    std::string path = write(reads, block);
    auto built = BamIndex::build(path);
    ASSERT_TRUE(built->save(path + ".bai"));
    std::string good = fileBytes(path + ".bai");
    const Names all = namesOf(reads);
    for (uint64_t tile : {5000000u, 200000000u}) ASSERT_EQ(fetchAll(path, tile).names, all);
    std::vector<uint32_t> used;
    for (size_t at : chunkFields(good)) used.push_back(little(good, at, 4));
    std::mt19937 random(52);
    size_t refused = 0, changed = 0;
    for (size_t at : chunkFields(good)) {
      uint32_t value = little(good, at, 4);
      for (uint32_t other :
           {0u, 1u, 0xFFFFFFFFu, value + 1, value - 1, value + 0x10000, value - 0x10000, value ^ 0x8000u,
            used[random() % used.size()], used[random() % used.size()], used[random() % used.size()]}) {
        if (other == value) continue;
        std::string bad = good;
        folder_.write("a.bam.bai", bad.replace(at, 4, littleBytes(other, 4)));
        for (uint64_t tile : {5000000u, 200000000u}) {
          Result result = fetchAll(path, tile);
          ++changed;
          refused += !result.message.empty();
          if (result.message.empty()) {
            ASSERT_EQ(result.names, all)
                << "at " << at << ": " << value << " -> " << other << ", block " << block;
          } else {
            EXPECT_THAT(result.message, HasSubstr(path)) << at;
          }
        }
      }
    }
    EXPECT_GT(changed, 2000u);
    EXPECT_GT(refused, changed / 2);
  }
}

TEST_F(IndexCheck, GapsAndEnds) {
  auto reads = sampleReads(300, 5, 53);
  std::string path = write(reads, 500);
  const struct {
    const char* what;
    std::function<void(BamIndex&)> change;
    const char* message;
  } cases[] = {
      {"as built", [](BamIndex&) {}, ""},
      {"without tail", [](BamIndex& index) { index.has_no_coor = false; }, ""},
      {"without pseudo bins",
       [](BamIndex& index) {
         for (auto& contig : index.contigs) contig.has_counts = false;
       },
       ""},
      {"first contig emptied", [](BamIndex& index) { index.contigs[0] = {}; }, "contig small"},
      {"contig emptied", [](BamIndex& index) { index.contigs[2] = {}; }, "contig wide"},
      {"last contig emptied", [](BamIndex& index) { index.contigs[5] = {}; }, "at tiny:"},
      {"all contigs emptied", [](BamIndex& index) { index.contigs.assign(index.contigs.size(), {}); },
       "read 0 at big:"},
      {"chunks gone, counts left", [](BamIndex& index) { index.contigs[5].bins.clear(); }, "counts reads"},
      {"first read left out", [](BamIndex& index) { ++index.contigs[4].first_offset; }, "contig wide"},
      {"last read left out", [](BamIndex& index) { --index.contigs[4].last_offset; }, "contig wide"},
      {"window behind all reads",
       [](BamIndex& index) { index.contigs[2].linear.back() = index.contigs[2].lastChunkEnd(); },
       "of contig small leaves out"},
      {"window behind the next",
       [](BamIndex& index) { index.contigs[0].linear[3] = index.contigs[0].linear.back(); },
       "of contig big leaves out"},
      {"empty chunk",
       [](BamIndex& index) {
         Chunk& chunk = index.contigs[0].bins.begin()->second[0];
         chunk.end = chunk.begin;
       },
       "empty chunk in contig big"},
  };
  for (const auto& c : cases) {
    std::string message = complaint(path, c.change);
    if (*c.message == 0) {
      EXPECT_EQ(message, "") << c.what;
    } else {
      EXPECT_THAT(message, AllOf(HasSubstr("Index the.bai does not cover BAM file " + path + ": "),
                                 HasSubstr(c.message), HasSubstr(", build it anew")))
          << c.what;
    }
  }
}

TEST_F(IndexCheck, BothSpellingsOfABlocksEnd) {
  // Blocks of one read, with empty blocks between them, and each chunk end told as the end of its block.
  std::vector<RawRead> reads(20);
  std::string file = zlibBlock(headerBytes(sampleContigs(), headerText(sampleContigs())));
  std::vector<Chunk> next, own;
  const std::string& empty = endMarker();
  for (size_t i = 0; i < reads.size(); ++i) {
    reads[i].pos = static_cast<int32_t>(i * 100);
    reads[i].name = std::to_string(i);
    std::string bytes = reads[i].bytes();
    uint64_t begin = uint64_t(file.size()) << 16;
    file += zlibBlock(bytes);
    next.push_back({begin, uint64_t(file.size()) << 16});
    own.push_back({begin, begin + bytes.size()});
    if (i % 3 == 0) file += empty + empty;
  }
  std::string path = folder_.write("a.bam", file + empty);
  for (const auto& chunks : {next, own}) {
    auto change = [&](BamIndex& index) {
      index.contigs[0].bins = {{4681, chunks}};
      index.contigs[0].last_offset = chunks.back().end;
    };
    EXPECT_EQ(complaint(path, change), "");
    auto index = BamIndex::build(path);
    change(*index);
    ASSERT_TRUE(index->save(path + ".bai"));
    EXPECT_EQ(fetchAll(path, 700).names, namesOf(reads));
    EXPECT_THAT(complaint(path,
                          [&](BamIndex& gap) {
                            change(gap);
                            gap.contigs[0].bins[4681].erase(gap.contigs[0].bins[4681].begin() + 7);
                          }),
                HasSubstr("contig big"));
  }
}

// Indexes of other programs; a program that is not installed is left out, but not all of them.
TEST_F(IndexCheck, IndexesOfOtherPrograms) {
  const char* const programs[] = {"samtools index", "sambamba index", "PicardCommandLine BuildBamIndex"};
  size_t tried = 0;
  for (const char* program : programs)
    for (auto [count, unplaced, block] :
         {std::tuple<size_t, size_t, size_t>{400, 10, 500}, {400, 0, 0xff00}, {0, 10, 500}, {0, 0, 500}}) {
      auto reads = sampleReads(count, unplaced, 55);
      std::string path = write(reads, block), bai = path + ".bai", call = program;
      std::filesystem::remove(bai);
      call += call[0] == 'P' ? " I=" + path + " O=" + bai : " " + path + " " + bai;
      if (std::system((call + " > /dev/null 2>&1").c_str()) != 0) continue;
      ++tried;
      for (uint64_t tile : {100000u, 200000000u}) {
        Result result = fetchAll(path, tile);
        EXPECT_EQ(result.message, "") << call;
        EXPECT_EQ(result.names, namesOf(reads)) << call;
      }
    }
  if (tried == 0) GTEST_SKIP() << "no other program is installed";
}

}  // namespace
