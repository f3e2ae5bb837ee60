#include "algo/vcall/read_window.h"

#include <gtest/gtest.h>

#include "read_builder.h"

namespace {

BAMRead readOf(const ReadBuilder& builder) {
  bam_record record = builder.build();
  BAMRead read;
  read.attach(record);
  return read;
}

TEST(ReadWindow, CutsWhatLiesBeyondAShortInsert) {
  struct Case {
    const char* what;
    ReadBuilder read;
    uint32_t start, end;
  };
  const auto pair = [](int start, int mate, int tlen) {
    return readBuilder("r").at(0, start).cigar("100M").mate(0, mate, tlen);
  };
  const auto back = [&](int start, int mate, int tlen) {
    return pair(start, mate, tlen).flag(FLAG_SECOND | FLAG_REVERSE);
  };
  const Case cases[] = {
      {"forward", pair(1000, 960, 60), 1000, 1061},
      {"forward, insert 100", pair(1000, 1000, 100), 1000, 1100},
      {"forward, behind the insert", pair(1000, 900, 60), 1000, 1100},
      {"reverse", back(960, 1000, -60), 1000, 1060},
      {"reverse, mate at the end", back(901, 1000, -60), 901, 1001},
      {"reverse, mate in front", back(1000, 980, -60), 1000, 1100},
      {"long insert", back(960, 1000, -101), 960, 1060},
      {"no insert", back(960, 1000, 0), 960, 1060},
      {"one strand", pair(1000, 960, 60).flag(FLAG_REVERSE | FLAG_MATE_REVERSE), 1000, 1100},
      {"mate unmapped", pair(1000, 960, 60).flag(FLAG_MATE_UNMAPPED), 1000, 1100},
      {"largest number", pair(1000, 960, INT32_MIN), 1000, 1100},
  };
  for (const Case& c : cases) {
    BAMRead read = readOf(c.read);
    const ReadWindow window = adapterFreeWindow(read);
    EXPECT_EQ(window.start, c.start) << c.what;
    EXPECT_EQ(window.end, c.end) << c.what;
  }
}

// "readStart-readEnd refStart-refEnd".
std::string clipOf(const char* cigar, uint32_t start, uint32_t end, ReadWindow window = {0, UINT32_MAX},
                   int at = 100) {
  BAMRead read = readOf(readBuilder("r").at(0, at).cigar(cigar));
  ReadClip clip;
  if (!clipRead(read, {std::max(window.start, read.start), std::min(window.end, read.end)}, start, end, clip))
    return "nothing";
  EXPECT_EQ(clip.read, &read);
  return std::to_string(clip.readStart) + "-" + std::to_string(clip.readEnd) + " " +
         std::to_string(clip.refStart) + "-" + std::to_string(clip.refEnd);
}

TEST(ClipRead, KeepsWhatLiesInside) {
  EXPECT_EQ(clipOf("50M", 0, 1000), "0-50 100-150");
  EXPECT_EQ(clipOf("50M", 110, 120), "10-20 110-120");
  EXPECT_EQ(clipOf("50M", 150, 160), "nothing");
  EXPECT_EQ(clipOf("50M", 120, 120), "nothing");
  EXPECT_EQ(clipOf("3H5S50M7S", 0, 1000), "0-62 95-157");
  EXPECT_EQ(clipOf("5S50M7S", 97, 155), "2-60 97-155");
  EXPECT_EQ(clipOf("5S50M", 0, 98), "0-3 95-98");
  EXPECT_EQ(clipOf("5S50M", 0, 1000, {0, UINT32_MAX}, 3), "2-55 0-53");  // off the contig
  EXPECT_EQ(clipOf("5S50M7S", 0, 1000, {110, UINT32_MAX}), "15-62 110-157");
  EXPECT_EQ(clipOf("5S50M7S", 0, 1000, {0, 140}), "0-45 95-140");
  EXPECT_EQ(clipOf("20M10D20M", 125, 1000), "20-40 130-150");  // from inside the deletion
  EXPECT_EQ(clipOf("20M10D20M", 0, 125), "0-20 100-120");
  EXPECT_EQ(clipOf("20M10D20M", 121, 129), "nothing");
  EXPECT_EQ(clipOf("20M4I20M", 120, 1000), "24-44 120-140");
  EXPECT_EQ(clipOf("20M4I20M", 0, 120), "0-20 100-120");
  EXPECT_EQ(clipOf("20M4I20M", 119, 121), "19-25 119-121");
  EXPECT_EQ(clipOf("4I20M4I", 0, 1000), "0-28 100-120");
  EXPECT_EQ(clipOf("40S", 0, 1000), "nothing");
}

}  // namespace
