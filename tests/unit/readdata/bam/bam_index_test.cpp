#include "readdata/bam/bam_index.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "bam_files.h"
#include "readdata/bam/bam_impl.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

using testing::HasSubstr;

// Where each record begins, found by walking the file without an index.
std::vector<std::pair<uint64_t, uint64_t>> recordSpans(const std::string& path) {
  BAMImpl bam(path);
  bam.open("r");
  bam.readHeader();
  std::vector<std::pair<uint64_t, uint64_t>> spans;
  bam_record record;
  for (uint64_t begin = bam.tell(); bam.readRecord(record) > 0; begin = bam.tell())
    spans.emplace_back(begin, bam.tell());
  return spans;
}

TEST(BamIndex, LooksInTwoPlaces) {
  TempFolder folder;
  std::string file = inBlocks(rawBam(sampleContigs(), sampleReads(100, 3, 13)));
  for (const char* name : {"x.bam", "y.BAM"}) {
    std::string path = folder.write(name, file), second = path.substr(0, path.size() - 4) + ".bai";
    EXPECT_EQ(thrownBy([&] { BamIndex::load(path, 0); }),
              "Failed to load index file " + second + ", No such file or directory");
    BamIndex::build(path)->save(second);
    EXPECT_EQ(BamIndex::load(path, 0)->path, second);
    BamIndex::build(path)->save(path + ".bai");
    EXPECT_EQ(BamIndex::load(path, 0)->path, path + ".bai");
  }
  std::string odd = folder.write("reads", file);
  EXPECT_THAT(thrownBy([&] { BamIndex::load(odd, 0); }), HasSubstr("index file " + odd + ".bai, "));
  std::filesystem::create_directory(odd + ".bai");
  EXPECT_THAT(thrownBy([&] { BamIndex::load(odd, 0); }), HasSubstr("Is a directory"));
  std::filesystem::remove(odd + ".bai");
  ASSERT_EQ(mkfifo((odd + ".bai").c_str(), 0600), 0);  // nobody writes to it
  EXPECT_THAT(thrownBy([&] { BamIndex::load(odd, 0); }), HasSubstr("Illegal seek"));
}

// --- disorder ---

TEST(BamIndexHelper, RefusesDisorder) {
  struct Step {
    int32_t ref_id, pos;
  };
  const struct {
    std::vector<Step> steps;
    bool named;
    const char* message;
  } cases[] = {
      {{{1, 5}, {0, 9}}, true, "Read r is not sorted: refID 1 > refID 0\n"},
      {{{1, 5}, {0, 9}}, false, "Reads are not sorted: refID 1 > refID 0\n"},
      {{{1, 5}, {1, 4}}, true, "Read r is not sorted: 5 > 4 on refID 1\n"},
      {{{1, 5}, {1, 4}}, false, "Reads are not sorted: 5 > 4 on refID 1\n"},
      {{{1, 5}, {-1, -1}, {1, 6}},
       true,
       "BAM file x.bam is not sorted: reads without coordinates  precedes reads with coordinates."},
      {{{-1, -1}, {0, 0}},
       false,
       "BAM file x.bam is not sorted: reads without coordinates  precedes reads with coordinates."},
      {{{2, 0}}, true, "BAM file x.bam: a read at position 1 of contig number 2 cannot be indexed"},
      {{{0, -1}}, true, "BAM file x.bam: a read at position 0 of contig number 0 cannot be indexed"},
      {{{0, 1 << 29}},
       true,
       "BAM file x.bam: a read at position 536870913 of contig number 0 cannot be indexed"},
      {{{0, 5}, {0, 5}, {1, 0}, {-1, 3}, {-1, 1}}, true, ""},
  };
  for (const auto& c : cases) {
    BamIndex index;
    BamIndexHelper helper(index, 2, "x.bam", 0);
    uint64_t offset = 1 << 16;
    EXPECT_EQ(thrownBy([&] {
                for (const Step& step : c.steps) {
                  helper.add(step.ref_id, step.pos, step.pos + 10, true, offset, offset + 50,
                             c.named ? "r" : nullptr);
                  offset += 50;
                }
              }),
              c.message);
  }
}

TEST(BamIndexHelper, BoundsTheLinearIndex) {
  BamIndex index;
  BamIndexHelper helper(index, 1, "x.bam", 0);
  helper.add(0, (1 << 29) - 1, int64_t(1) << 44, true, 100, 200, "r");
  helper.finish(200);
  EXPECT_EQ(index.contigs[0].linear.size(), 32768u);
  EXPECT_EQ(index.contigs[0].linear.front(), 100u);
}

// Reads behind 2^29 could not be found.
TEST(CheckBaiContigs, InputsWithAnIndexAreBoundToo) {
  TempFolder folder;
  for (int32_t length : {536870911, 536870912}) {
    RawRead read;
    read.pos = length - 1;
    std::string path = folder.write("a.bam", inBlocks(rawBam({{"c", length}}, {read})));
    EXPECT_NO_THROW(open_read_source(path, nullptr, false));
    bool fits = length == 536870911;
    if (fits) BamIndex::build(path)->save(path + ".bai");  // and stays for the other length
    EXPECT_EQ(thrownBy([&] { open_read_source(path, nullptr, true); }),
              fits ? ""
                   : "Contig c of BAM file " + path +
                         " has 536870912 bases, more than the 536870911 that a .bai index can hold");
  }
}

// --- hostile files ---

class HostileIndex : public testing::Test {
 protected:
  // One contig with one bin, the pseudo bin and two windows, and the tail.
  static constexpr size_t kContigs = 4, kBins = 8, kBin = 12, kChunks = 16, kBegin = 20, kEnd = 28,
                          kPseudo = 36, kPseudoChunks = 40, kWindows = 76, kTail = 96, kSize = 104;
  HostileIndex() {
    bam_ = folder_.write("a.bam", inBlocks(rawBam({{"c", 40000}}, std::vector<RawRead>(3))));
    auto u32 = [](uint32_t value) { return littleBytes(value, 4); };
    auto u64 = [&](uint64_t value) {
      return u32(static_cast<uint32_t>(value)) + u32(static_cast<uint32_t>(value >> 32));
    };
    auto spans = recordSpans(bam_);
    uint64_t begin = spans.front().first, end = spans.back().second;
    good_ = "BAI\1" + u32(1) + u32(2) + u32(4681) + u32(1) + u64(begin) + u64(end) + u32(37450) + u32(2) +
            u64(begin) + u64(end) + u64(3) + u64(0) + u32(2) + u64(begin) + u64(begin) + u64(0);
  }
  std::string complaint(const std::string& bytes, int64_t contigs = 1) {
    folder_.write("a.bam.bai", bytes);
    return thrownBy([&] { BamIndex::load(bam_, 0, contigs); });
  }
  std::string with(size_t at, uint32_t value) const {
    std::string bytes = good_;
    return bytes.replace(at, 4, littleBytes(value, 4));
  }

  TempFolder folder_;
  std::string bam_, good_;
};

TEST_F(HostileIndex, Fields) {
  ASSERT_EQ(good_.size(), kSize);
  ASSERT_EQ(complaint(good_), "");
  const struct {
    const char* what;
    size_t at;
    uint32_t value;
    const char* message;
  } cases[] = {
      {"magic", 0, 0x02494142, "Incorrect bam index file format for file "},
      {"contigs", kContigs, 0xFFFFFFFF, "count of -1 contigs"},
      {"contigs", kContigs, 0, "does not belong to"},
      {"contigs", kContigs, 0x7FFFFFFF, "does not belong to"},
      {"bins", kBins, 0xFFFFFFFF, "count of -1 bins"},
      {"bins", kBins, 0x7FFFFFFF, "is truncated"},
      {"bins", kBins, 0, ""},  // what follows is read as windows
      {"bins", kBins, 3, ""},
      {"bin", kBin, 37451, "has bin 37451"},
      {"bin", kBin, 0xFFFFFFFF, "has bin 4294967295"},
      {"bin", kBin, 37450, "malformed bin 37450"},
      {"chunks", kChunks, 0xFFFFFFFF, "count of -1 chunks"},
      {"chunks", kChunks, 0x7FFFFFFF, "is truncated"},
      {"chunks", kChunks, 0, ""},
      {"chunk", kBegin + 4, 0x10, "ends before it begins"},
      {"chunk", kEnd + 4, 0x10, "does not belong to"},
      {"pseudo bin", kPseudo, 4681, "has bin 4681 twice"},
      {"pseudo bin", kPseudoChunks, 1, "malformed bin 37450"},
      {"windows", kWindows, 0xFFFFFFFF, "count of -1 windows"},
      {"windows", kWindows, 0x7FFFFFFF, "is truncated"},
      {"windows", kWindows, 4, "is truncated"},
      {"windows", kWindows, 1, "behind its end"},
      {"window", kWindows + 8, 0x7FFFFFFF, "does not belong to"},
  };
  for (const auto& c : cases) {
    std::string message = complaint(with(c.at, c.value));
    EXPECT_THAT(message, HasSubstr(c.message)) << c.what << " " << c.value;
    EXPECT_THAT(message, HasSubstr(bam_ + ".bai")) << c.what << " " << c.value;
    if (message.find("does not belong") != std::string::npos) {
      EXPECT_THAT(message, HasSubstr("belong to " + bam_));
    }
  }
}

TEST_F(HostileIndex, TruncatedAtEveryByte) {
  for (size_t cut = 0; cut < kSize; ++cut) {
    std::string message = complaint(good_.substr(0, cut));
    if (cut == kTail) {
      EXPECT_EQ(message, "");  // the tail may be missing
    } else {
      EXPECT_THAT(message, HasSubstr(bam_ + ".bai")) << "cut at " << cut;
    }
  }
  EXPECT_THAT(complaint(good_ + "x"), HasSubstr("behind its end"));
}

}  // namespace
