#include "readdata/vcf/vcf_line.h"

#include <gmock/gmock.h>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

// A record of its own: the buffer ends right behind the NUL of the line, so that a sanitizer sees every step too far.
struct Record {
  explicit Record(const std::string& text) : buffer(text.begin(), text.end()) {
    buffer.push_back('\0');
    result = line.parse(buffer.data(), static_cast<uint32_t>(text.size()));
  }
  std::string column(VCFLine::Column which) const { return line.column(which); }

  std::vector<char> buffer;
  VCFLine line;
  VCFLine::Result result;
};

using Items = std::vector<std::pair<std::string, std::string>>;

Items walk(const Record& record, int32_t sample) {
  Items items;
  VCFFieldCursor cursor(record.line, sample);
  while (cursor.next()) {
    EXPECT_TRUE(cursor.is(std::string(cursor.key, cursor.keyLength).c_str()));
    EXPECT_FALSE(cursor.is((std::string(cursor.key, cursor.keyLength) + "X").c_str()));
    items.emplace_back(std::string(cursor.key, cursor.keyLength),
                       std::string(cursor.value, cursor.valueLength));
  }
  EXPECT_EQ(cursor.index, -1);
  EXPECT_FALSE(cursor.next());
  return items;
}

Items walkSample(const std::string& columns, int32_t sample) {
  return walk(Record("1\t5\t.\tA\tC\t.\t.\t.\t" + columns), sample);
}

TEST(VCFLine, CutsAllColumnsAndLeavesLaterSamplesJoined) {
  const Record record("chr1\t100\trs1\tACG\tA,T\t9.5\tPASS\tDP=3\tGT:DP\t0/1:3\t0/0:4\t./.\r");
  ASSERT_EQ(record.result, VCFLine::kOk);
  EXPECT_STREQ(record.line.line, "chr1");
  EXPECT_EQ(record.line.pos, 99);
  EXPECT_EQ(record.line.end, 102);
  EXPECT_EQ(record.column(VCFLine::kRef), "ACG");
  EXPECT_EQ(record.column(VCFLine::kFilter), "PASS");
  EXPECT_EQ(record.column(VCFLine::kSample), "0/1:3\t0/0:4\t./.");  // and no carriage return
  EXPECT_TRUE(record.line.hasColumn(VCFLine::kSample));
}

TEST(VCFLine, EndComesFromInfoOrReference) {
  const std::vector<std::tuple<std::string, VCFLine::Result, int>> cases = {
      {"END=20", VCFLine::kOk, 20},         {"DP=1;END=20;END=30", VCFLine::kOk, 20},
      {"CIEND=1;XEND=2", VCFLine::kOk, 6},  // the tail of a longer key
      {"A=END=7", VCFLine::kOk, 6},         {"CIEND=-5,5;END=20", VCFLine::kOk, 20},
      {"ENDX=9", VCFLine::kOk, 6},          {"END=.", VCFLine::kOk, 6},
      {"END=5", VCFLine::kOk, 5},           {"END=2147483647", VCFLine::kOk, 2147483647},
      {"END=4", VCFLine::kBad, 0},          {"END=", VCFLine::kBad, 0},
      {"END=;A", VCFLine::kBad, 0},         {"END=x", VCFLine::kBad, 0},
      {"END=20x", VCFLine::kBad, 0},        {"END=-20", VCFLine::kBad, 0},
      {"END=2147483648", VCFLine::kBad, 0}, {"END=99999999999999999999999", VCFLine::kBad, 0},
  };
  for (const auto& [info, result, end] : cases) {
    const Record record("1\t5\t.\tAC\tC\t.\tEND=9\t" + info);
    EXPECT_EQ(record.result, result) << info;
    if (result != VCFLine::kOk) continue;
    EXPECT_EQ(record.line.end, end) << info;
  }
}

TEST(VCFLine, PositionsAreNotBelieved) {
  for (const char* pos : {"", "x", "-1", "+5", " 5", "5x", "2147483648", "18446744073709551617"})
    EXPECT_EQ(Record("1\t" + std::string(pos) + "\t.\tA\tC\t.\t.\t.").result, VCFLine::kBad) << pos;
  const Record last("1\t2147483647\t.\tA\tC\t.\t.\t.");
  EXPECT_EQ(last.result, VCFLine::kOk);
  EXPECT_EQ(last.line.end, 2147483647);
  EXPECT_EQ(Record("1\t2147483647\t.\tAC\tC\t.\t.\t.").result, VCFLine::kBad);
  const Record telomere("1\t0\t.\tN\tC\t.\t.\t.");
  EXPECT_EQ(telomere.result, VCFLine::kOk);
  EXPECT_EQ(std::pair(telomere.line.pos, telomere.line.end), std::pair(-1, 0));
  EXPECT_EQ(Record("1\t0\t.").line.end, 0);
}

TEST(VCFLine, RefusesWhatIsNoRecord) {
  for (const char* text : {"", "\r", "1", "1\t", "1\t5", "1 5 . A C"})
    EXPECT_EQ(Record(text).result, VCFLine::kBad) << text;
  EXPECT_EQ(Record(std::string("1\t5\t.\tA\tC\t.\t.\tDP=1\0;A", 21)).result, VCFLine::kBad);
}

TEST(VCFLine, ColumnsBeyond65535) {
  const auto site = [](size_t ref, size_t info) {
    return "1\t5\t.\t" + std::string(ref, 'A') + "\tC\t.\t.\t" + std::string(info, 'x');
  };
  // INFO begins at 13 + ref: the last place, and one behind.
  const Record fits(site(65522, 3) + ";END=70000");
  ASSERT_EQ(fits.result, VCFLine::kOk);
  EXPECT_EQ(fits.line.offsets[VCFLine::kInfo], 65535);
  EXPECT_EQ(fits.line.end, 70000);
  EXPECT_FALSE(fits.line.hasColumn(VCFLine::kFormat));
  EXPECT_EQ(fits.column(VCFLine::kFormat), "");
  EXPECT_EQ(Record(site(65523, 3)).result, VCFLine::kTooWide);
  // The line may go on as long as it likes, but no column may begin there.
  const Record tail(site(1, 200000));
  ASSERT_EQ(tail.result, VCFLine::kOk);
  EXPECT_EQ(tail.column(VCFLine::kInfo).size(), 200000u);
  EXPECT_EQ(tail.column(VCFLine::kSample), "");
  EXPECT_FALSE(tail.line.hasColumn(VCFLine::kSample));
  EXPECT_TRUE(walk(tail, 0).empty());
  EXPECT_EQ(Record(site(1, 200000) + "\tGT\t0/1").result, VCFLine::kTooWide);
  EXPECT_EQ(Record(std::string(70000, 'c') + "\t5\t.").result, VCFLine::kTooWide);
}

TEST(VCFFieldCursor, WalksTheSampleAskedFor) {
  const std::string columns = "GT:DP:GQ\t0/1:3:9\t1/1\t0/0:5:6:7\t:8:\t";
  EXPECT_EQ(walkSample(columns, 0), (Items{{"GT", "0/1"}, {"DP", "3"}, {"GQ", "9"}}));
  EXPECT_EQ(walkSample(columns, 1),
            (Items{{"GT", "1/1"}, {"DP", ""}, {"GQ", ""}}));  // fewer values than keys
  EXPECT_EQ(walkSample(columns, 2), (Items{{"GT", "0/0"}, {"DP", "5"}, {"GQ", "6"}}));
  EXPECT_EQ(walkSample(columns, 3), (Items{{"GT", ""}, {"DP", "8"}, {"GQ", ""}}));
  EXPECT_EQ(walkSample(columns, 4), (Items{{"GT", ""}, {"DP", ""}, {"GQ", ""}}));
  EXPECT_EQ(walkSample(columns, 5), Items{});
  EXPECT_EQ(walkSample("GT", 0), Items{});
  EXPECT_EQ(walkSample("\t0/1", 0), Items{});
}

// Whatever the bytes are, every step stays in the line and the walk ends.
TEST(VCFFieldCursor, StaysInsideRandomLines) {
  std::mt19937 random(7);
  const std::string alphabet = "\t\t\t;:=,.GTEND1\r";
  int read = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text = "1\t5\t";
    for (size_t length = random() % 40; length > 0; --length) text += alphabet[random() % alphabet.size()];
    const Record record(text);
    if (record.result != VCFLine::kOk) continue;
    ++read;
    for (int32_t sample = -1; sample < 4; ++sample) ASSERT_LE(walk(record, sample).size(), text.size());
  }
  EXPECT_GT(read, 10000);
}

}  // namespace
