#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bam_files.h"
#include "readdata/bam/bam_impl.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

using testing::HasSubstr;
using Names = std::vector<std::string>;

// Names of the reads of a range, in the order in which the cursor delivers them. Takes their contents away,
// as the cache does.
Names fetch(BAMHandle::FetchState& cursor, int32_t contig, uint32_t start, uint32_t end) {
  Names names;
  for (bool more = cursor.seek(contig, start, end); more; more = cursor.readNext()) {
    bam_record taken;
    taken.swap(cursor.current);
    names.push_back(taken.name());
  }
  EXPECT_FALSE(cursor.readNext());
  return names;
}

// Every read of the file, contig by contig in tiles of `tile` bases, then those without coordinates.
Names fetchAll(BAMHandle& bam, uint32_t tile) {
  auto cursor = bam.newFetchState();
  Names names;
  for (size_t contig = 0; contig < bam.header->contigCount(); ++contig) {
    for (uint64_t start = 0; start < bam.header->lengths[contig]; start += tile)
      for (const std::string& name : fetch(*cursor, static_cast<int32_t>(contig),
                                           static_cast<uint32_t>(start), static_cast<uint32_t>(start + tile)))
        names.push_back(name);
  }
  for (const std::string& name : fetch(*cursor, -1, 0, 0)) names.push_back(name);
  return names;
}

Names allNames(const std::vector<RawRead>& reads) {
  Names names;
  for (const RawRead& read : reads) names.push_back(read.name);
  return names;
}

class CursorFaults : public testing::Test {
 protected:
  std::string write(const std::string& name, const std::vector<RawRead>& reads, size_t block = 1000) {
    return folder_.write(name, inBlocks(rawBam(sampleContigs(), reads), block));
  }
  // The file with the index of another one, past the checks of loading.
  std::unique_ptr<BAMHandle> openWith(const std::string& path, std::shared_ptr<const BamIndex> index) {
    auto bam = std::make_unique<BAMImpl>(path);
    bam->open("r");
    bam->readHeader();
    bam->setIndex(std::move(index));
    return bam;
  }
  std::shared_ptr<BamIndex> indexOf(const std::vector<RawRead>& reads, size_t block = 1000) {
    auto index = BamIndex::build(write("indexed.bam", reads, block));
    index->path = "the.bai";
    return index;
  }
  TempFolder folder_;
};

TEST_F(CursorFaults, TruncationIsNeverSilent) {
  auto reads = sampleReads(400, 20, 33);
  std::string whole = write("whole.bam", reads);
  BamIndex::build(whole)->save(folder_.path("cut.bam.bai"));
  std::string file = fileBytes(whole);
  auto index = BamIndex::load(folder_.path("cut.bam"), 0);
  auto blocks = blocksOf(file);
  size_t complete = 0;
  for (const ZlibBlock& block : blocks) {
    for (size_t cut : {block.address, block.address + 11, block.address + block.size - 1}) {
      std::string path = folder_.write("cut.bam", file.substr(0, cut));
      for (uint32_t tile : {50000u, 300000000u}) {
        Names got;
        // Refused by the check of loading, or, without it, by the cursor.
        std::string loading = toldBy([&] { got = fetchAll(*open_read_source(path, nullptr, true), tile); });
        Names read;
        std::string reading = toldBy([&] { read = fetchAll(*openWith(path, index), tile); });
        if (loading.empty()) {
          ASSERT_EQ(got, allNames(reads)) << "cut at " << cut;
        }
        if (reading.empty()) {
          ASSERT_EQ(read, allNames(reads)) << "cut at " << cut;
        }
        if (!loading.empty()) {
          EXPECT_THAT(loading, HasSubstr(path));
        }
        if (!reading.empty()) {
          EXPECT_THAT(reading, HasSubstr(path));
        }
        complete += loading.empty();
        if (cut < blocks.back().address - blocks[blocks.size() - 2].size) {
          EXPECT_FALSE(reading.empty());
        }
      }
    }
  }
  EXPECT_EQ(complete, 2u);  // only the end marker was missing, whole
}

TEST_F(CursorFaults, UnsortedReads) {
  auto reads = sampleReads(500, 0, 34);
  auto index = indexOf(reads);
  std::swap(reads[100].pos, reads[99].pos);  // of one contig, and of one size
  ASSERT_EQ(reads[99].ref_id, reads[100].ref_id);
  ASSERT_GT(reads[99].pos, reads[100].pos);
  std::string path = write("a.bam", reads);
  std::string message = toldBy([&] { fetchAll(*openWith(path, index), 500000000); });
  EXPECT_THAT(message, HasSubstr("BAM file " + path + " is not sorted: read 100 at "));
}

TEST_F(CursorFaults, ReadsOfAnotherContigThanPromised) {
  for (size_t first : {0, 1, 100, 199}) {
    std::vector<RawRead> reads(200);
    for (size_t i = first; i < reads.size(); ++i) reads[i].ref_id = 2;
    auto index = indexOf(reads);
    BamIndex::ContigIndex &told = index->contigs[0], &real = index->contigs[2];
    for (const auto& [bin, chunks] : real.bins)
      told.bins[bin].insert(told.bins[bin].end(), chunks.begin(), chunks.end());
    told.has_counts = false;
    real = {};
    std::string path = write("a.bam", reads);
    std::string message = toldBy([&] { fetchAll(*openWith(path, index), 500000000); });
    EXPECT_THAT(message, HasSubstr(path)) << first;
    EXPECT_THAT(message, HasSubstr("the.bai")) << first;
    EXPECT_THAT(message, HasSubstr("small:1")) << first;
  }
}

TEST_F(CursorFaults, PlacedReadsAmongUnplaced) {
  auto reads = sampleReads(20, 200, 35);
  auto index = indexOf(reads);
  for (size_t at : {20, 21, 100, 219}) {
    std::vector<RawRead> moved = reads;
    moved[at].ref_id = 6;
    moved[at].pos = 5;
    std::string path = write("a.bam", moved);
    std::string message = toldBy([&] { fetch(*openWith(path, index)->newFetchState(), -1, 0, 0); });
    EXPECT_THAT(message, HasSubstr(path)) << at;
    EXPECT_THAT(message, HasSubstr("last:6")) << at;
  }
}

TEST_F(CursorFaults, CountOfUnplacedReads) {
  auto reads = sampleReads(20, 30, 36);
  auto index = std::make_shared<BamIndex>(*indexOf(reads));
  std::string path = write("a.bam", reads);
  for (uint64_t count : {29, 31, 0}) {
    index->n_no_coor = count;
    EXPECT_THAT(toldBy([&] { fetchAll(*openWith(path, index), 500000000); }), HasSubstr(path));
    index->has_no_coor = false;
    EXPECT_EQ(fetchAll(*openWith(path, index), 500000000), allNames(reads));
    index->has_no_coor = true;
  }
}

}  // namespace
