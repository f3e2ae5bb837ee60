// Blocks of a GVCF: joining two of them, and the line that carries one.
#include "readdata/vcf/gq_block.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>

#include "readdata/stream/posix_io_handle.h"
#include "temp_folder.h"
#include "thrown.h"

namespace {

// Depth and quality tell the block and the position they come from.
GQBlock block(uint32_t start, uint32_t end, int32_t low, int32_t mark, std::vector<int32_t> likelihoods) {
  GQBlock made{low, low + 1, start, end, std::move(likelihoods), {}, {}, {}};
  for (uint32_t i = start; i < end; ++i) {
    made.DP.push_back(mark + static_cast<int32_t>(i));
    made.GQ.push_back(2 * mark + static_cast<int32_t>(i));
    made.ref.push_back("ACGT"[i % 4]);
  }
  return made;
}

std::string text(const GQBlock& made) {
  return formatFGQB(made, "c");
}

void append(GQBlock& to, const GQBlock& from, uint32_t start) {
  const auto skipped = static_cast<ptrdiff_t>(start - from.start);
  to.DP.insert(to.DP.end(), from.DP.begin() + skipped, from.DP.end());
  to.GQ.insert(to.GQ.end(), from.GQ.begin() + skipped, from.GQ.end());
  to.ref.insert(to.ref.end(), from.ref.begin() + skipped, from.ref.end());
  to.end = from.end;
}

struct MergeCase {
  uint32_t start, end;  // of the second block; the first is 10 to 20
  int32_t low;          // the first has 5
  enum { kBothStay, kOverlapCut, kJoined, kSwallowed } expected;
};

TEST(GQBlock, MergeEveryPosition) {
  const GQBlock first = block(10, 20, 5, 1000, {0, 30, 300});
  for (const MergeCase& c : {MergeCase{21, 30, 5, MergeCase::kBothStay},
                             {20, 30, 6, MergeCase::kBothStay},
                             {20, 30, 5, MergeCase::kJoined},
                             {15, 30, 5, MergeCase::kJoined},
                             {10, 30, 5, MergeCase::kJoined},
                             {15, 30, 6, MergeCase::kOverlapCut},
                             {5, 30, 6, MergeCase::kOverlapCut},
                             {15, 20, 6, MergeCase::kSwallowed},
                             {12, 15, 5, MergeCase::kSwallowed},
                             {5, 10, 5, MergeCase::kSwallowed},
                             {20, 20, -1, MergeCase::kSwallowed}}) {
    SCOPED_TRACE(testing::Message() << c.start << "-" << c.end << " of " << c.low);
    const GQBlock second = block(c.start, c.end, c.low, 2000, {7, 20, 400});
    GQBlock b1 = first, b2 = second, expected1 = first, expected2 = second;
    mergeGQBlock(b1, b2);
    if (c.expected == MergeCase::kOverlapCut) {
      expected2 = block(20, c.end, c.low, 2000, {7, 20, 400});
    } else if (c.expected == MergeCase::kJoined) {
      expected2 = first;
      append(expected2, second, 20);
      expected2.minPL = {0, 20, 300};
    } else if (c.expected == MergeCase::kSwallowed) {
      expected2 = block(10, c.end, 5, 1000, {0, 30, 300});
    }
    if (c.expected >= MergeCase::kJoined) expected1.reset(10);
    EXPECT_EQ(text(b1), text(expected1));
    EXPECT_EQ(text(b2), text(expected2));
  }
}

TEST(GQBlock, MergeRefusesWhatIsNotInOrder) {
  const auto broken = [](GQBlock b1, GQBlock b2) {
    return thrownBy<std::logic_error>([&] { mergeGQBlock(b1, b2); });
  };
  const GQBlock first = block(10, 20, 5, 0, {0, 1, 2});
  EXPECT_EQ(broken(first, block(3, 9, 5, 0, {0, 1, 2})), "b1.start <= b2.end");
  EXPECT_EQ(broken(first, {-1, -1, 25, 15, {}, {}, {}, {}}), "b2.end >= b1.end");
  EXPECT_EQ(broken(first, block(20, 25, 5, 0, {0, 1})), "b1.minPL.size() == b2.minPL.size()");
}

struct Reader {
  explicit Reader(const std::string& content) { stream.openFile(folder.write("t", content).c_str(), "r"); }
  bool read() { return readFGQB(block, stream, contig); }
  int64_t offset() { return stream.seek(0, SEEK_CUR); }

  TempFolder folder;
  POSIXIOHandle stream;
  GQBlock block;
  std::string contig;
};

TEST(FGQB, LineAsDocumented) {
  GQBlock made{20, 30, 99, 107, {0, 12, -180}, {5, 5, 5, 5, 5, 5, 5, 6}, {12, 12, 12, 14, 1, 1, 2, 3}, {}};
  for (char base : std::string("AAAAAACA")) made.ref.push_back(base);
  EXPECT_EQ(formatFGQB(made, "chr1"),
            "#FGQB\t8\t20\t30\tchr1\t100\tA5CA\t12x3+14+1x2+2+3\t5x7+6\t0,12,-180\n");
  made.reset(7);
  EXPECT_EQ(formatFGQB(made, "chr1"), "#FGQB\t0\t-1\t-1\tchr1\t8\t\t\t\t\n");
}

TEST(FGQB, ReadsBackWhatWasWritten) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    GQBlock made = block(random() % 1000, 0, static_cast<int32_t>(random() % 99), 0, {});
    made.end = made.start + random() % 50;
    if (round % 50 == 0) made.end = made.start / 2;  // the reach of a record goes past the block
    for (uint32_t i = made.start; i < made.end; ++i) {
      made.ref.push_back("ACGTN"[random() % 3 ? 0 : random() % 5]);
      made.DP.push_back(random() % 3 ? 7 : static_cast<int32_t>(random()));
      made.GQ.push_back(static_cast<int32_t>(random() % 3));
    }
    for (uint32_t i = random() % 5; i > 0; --i) made.minPL.push_back(static_cast<int32_t>(random() >> 1));
    const std::string line = formatFGQB(made, "chrUn_7:x");
    Reader reader(line + "next");
    ASSERT_TRUE(reader.read()) << line;
    EXPECT_EQ(formatFGQB(reader.block, reader.contig), line);
    EXPECT_EQ(reader.block.end, made.end);
    EXPECT_EQ(reader.offset(), static_cast<int64_t>(line.size()));
  }
}

TEST(FGQB, RefusesEveryMismatch) {
  const std::string good = "#FGQB\t4\t20\t30\tc\t100\tA2C\t12x3+14\t5x4\t0,12,180\n";
  ASSERT_TRUE(Reader(good).read());
  for (size_t length = 6; length < good.size(); ++length) EXPECT_FALSE(Reader(good.substr(0, length)).read());
  for (const std::string line : {
           "5\t20\t30\tc\t100\tA2C\t12x3+14\t5x4\t0",                             // bases do not add up
           "4\t20\t30\tc\t100\tA2CC\t12x3+14\t5x4\t0",                            // one too many
           "4\t20\t30\tc\t100\tA3\t12x3\t5x4\t0",                                 // depths do not
           "4\t20\t30\tc\t100\tA3\t12x4\t5x5\t0",                                 // qualities do not
           "4\t20\t30\tc\t100\tA3\t12x-4\t5x4\t0",                                // signs and holes
           "4\t20\t30\tc\t100\tA3\t12x0+1x4\t5x4\t0",                             //
           "4\t20\t30\tc\t100\tA3\t12x\t5x4\t0",                                  //
           "4\t20\t30\tc\t100\tA3\t1x2+\t5x4\t0",                                 //
           "4\t20\t30\tc\t100\tA3\t\t5x4\t0",                                     //
           "4\t20\t30\tc\t100\tA3\t12x4\t5x4\t0,",                                //
           "4\t20\t30\tc\t100\tA3\t12x4\t5x4\t0\t",                               //
           "4\t20\t30\t\t100\tA3\t12x4\t5x4\t0",                                  // no contig
           "4\t20\t30\tc\t0\tA3\t12x4\t5x4\t0",                                   // before the contig
           "-9\t20\t30\tc\t5\t\t\t\t0",                                           //
           "4\t20\t30\tc\t2147483647\tA3\t12x4\t5x4\t0",                          // past all positions
           "4\t2147483648\t30\tc\t9\tA3\t12x4\t5x4\t0",                           // more than a number holds
           "4\t99999999999999999999\t30\tc\t9\tA3\t4x4\t5x4\t0",                  //
           "2147483647\t1\t2\tc\t1\tA2147483646\t1x2147483647\t1x2147483647\t0",  // a claim nobody can mean
           "500000000\t1\t2\tc\t1\tA499999999\t1x500000000\t1x499999999\t0",  // found before memory is taken
       })
    EXPECT_FALSE(Reader("#FGQB\t" + line + "\n").read()) << line;
  const ContigLengths lengths = {{"c", 103}}, shorter = {{"c", 102}};
  for (const auto& [known, fits] : {std::pair(&lengths, true), {&shorter, false}}) {
    Reader reader(good);
    EXPECT_EQ(readFGQB(reader.block, reader.stream, reader.contig, known), fits);
  }
  const std::string start = "#FGQB\t1\t1\t2\t", rest = "\t1\tA\t1\t1\t\n";
  EXPECT_TRUE(Reader(start + std::string(1023, 'c') + rest).read());
  EXPECT_FALSE(Reader(start + std::string(1024, 'c') + rest).read());
}

}  // namespace
