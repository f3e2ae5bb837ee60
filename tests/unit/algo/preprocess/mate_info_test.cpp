#include "algo/preprocess/mate_info.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>

#include "algo/preprocess/score_line.h"
#include "read_builder.h"
#include "thrown.h"

namespace {

// Parsed lines with the text they stand in.
struct Lines {
  std::deque<std::string> texts;
  std::vector<VCFLine> lines;

  void add(std::string text) {
    texts.push_back(std::move(text));
    if (texts.back().ends_with('\n')) texts.back().pop_back();
    VCFLine line;
    ASSERT_EQ(line.parse(texts.back().data(), uint32_t(texts.back().size())), VCFLine::kOk);
    lines.push_back(line);
  }
  void add(int32_t mate_start, const MateSummary& summary, const char* name) {
    std::string text;
    appendScoreLine(text, "chr1", mate_start, summary, name);
    add(text);
  }
};

const MateSummary* find(const MateInfoByVcf& info, const std::string& name, int32_t start, int flag) {
  bam_record record = readBuilder(name).at(0, start).cigar("4M").flag(FLAG_PAIRED | flag);
  BAMRead read;
  read.attach(record);
  return info.find(read);
}

// More names than a block holds, among them those that would break a line.
TEST(MateInfo, KeepsAnyNames) {
  std::vector<std::string> names = {"x;y", "END=3", "tab\there", std::string(254, 'n'), "\xff\x80", "*"};
  for (int i = 0; i < 30000; ++i) names.push_back("read" + std::to_string(i) + std::string(i % 90, '.'));
  Lines lines;
  for (size_t i = 0; i < names.size(); ++i)
    lines.add(int32_t(i % 1000), {0, 0, FLAG_FIRST, int32_t(i), 1}, names[i].c_str());
  MateInfoByVcf info;
  for (int round = 0; round < 2; ++round) {
    info.clear();
    info.add(lines.lines);
    for (size_t i = 0; i < names.size(); ++i) {
      const MateSummary* mate = find(info, names[i], int32_t(i % 1000), FLAG_SECOND);
      ASSERT_TRUE(mate) << names[i];
      ASSERT_EQ(mate->score, int32_t(i));
    }
  }
}

TEST(MateInfo, RefusesOtherFormats) {
  const auto told = [](const std::string& info) {
    Lines lines;
    lines.add("chr1\t5\t*\t*\t*\t*\t*\t" + info);
    return thrownBy<std::runtime_error>([&] { MateInfoByVcf().add(lines.lines); });
  };
  EXPECT_EQ(told("1;2;3;4;5;n"), "");
  EXPECT_EQ(told("1;2;3;4;n"), "Dedup: score_info format changed. Please rerun algo LocusCollector.");
  const std::string long_name(255, 'n');
  for (const std::string& info :
       std::vector<std::string>{"", ".", "1;2;3;4", "1;2;3;4;5;6;n", "1;2;x;4;5;n", "1;;3;4;5;n",
                                "1;2;3;4;9999999999;n", "1;2;3;4; 5;n", "1;2;3;4;5;" + long_name})
    EXPECT_EQ(told(info), "Dedup: score info fie is in incorrect format or corrupted") << info;
}

}  // namespace
