#include "algo/preprocess/qual_transform.h"

#include <gmock/gmock.h>

#include "read_builder.h"
#include "temp_folder.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// A table of read group "a": qualities of 30 are worth 20 and 10 after CG; the fourth cycle is 3 better. Insertions
// of 45 are worth 35.
std::string writeTable(const TempFolder& folder, const std::string& name = "t",
                       const std::string& group = "a") {
  const auto counts = [](double quality) {
    return RecalCounts{uint64_t(1) << 40, std::lrint(std::pow(10, -0.1 * quality) * (1ll << 40)) << 24 >> 2};
  };
  RecalTable table;
  table.arguments.quantizing_levels = 0;
  RecalGroup& counted = table.groups.emplace_back(group);
  auto fill = [&](RecalCounts& cell, double quality) {
    cell = counts(quality);
    cell.observations >>= 2;
  };
  RecalRow& row = counted.row(kMismatch, 30, table.arguments);
  fill(row.total, 20);
  fill(row.contexts[6], 10);
  fill(row.cycles[504], 23);
  fill(counted.row(kInsertion, 45, table.arguments).total, 35);
  table.writeText(folder.path(name));
  return folder.path(name);
}

ReadGroup readGroup(const std::string& id, const std::string& platform = "ILLUMINA") {
  ReadGroup group;
  group.id = id;
  group.platform = platform;
  return group;
}

std::vector<int> qualitiesOf(const ReadBuilder& builder, const QualTransform::Groups& groups) {
  bam_record record = builder.build();
  BAMRead read;
  read.attach(record);
  read.read_group = 0;
  QualTransform transform(groups);
  EXPECT_EQ(transform.transform(&read), &read);
  return {read.quals, read.quals + read.length};
}

ReadBuilder read(const std::string& bases, std::vector<uint8_t> quals) {
  return readBuilder("r")
      .at(0, 10)
      .cigar(std::to_string(bases.size()) + "M")
      .seq(bases)
      .quals(std::move(quals));
}

QualCalParams params(const std::string& text) {
  QualCalParams parsed;
  EXPECT_TRUE(parsed.parse(text));
  return parsed;
}

std::string stderrOf(const std::function<void()>& call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(QualTransform, AddsTheDeltasOfContextAndCycle) {
  TempFolder folder;
  const std::string table = writeTable(folder);
  const auto groups = QualTransform::load({params("table=" + table)}, {readGroup("a")});
  EXPECT_THAT(qualitiesOf(read("AACGT", {30, 30, 30, 30, 30}), groups), ElementsAre(20, 20, 20, 13, 20));
  EXPECT_THAT(qualitiesOf(read("AAACG", {30, 30, 30, 30, 30}), groups), ElementsAre(20, 20, 20, 23, 10));
  // Below the least quality they stay, without a row they take the group's.
  EXPECT_THAT(qualitiesOf(read("AACGT", {5, 6, 2, 31, 200}), groups), ElementsAre(5, 20, 2, 20, 20));
  EXPECT_THAT(qualitiesOf(read("AAC", {255, 255, 255}), groups), ElementsAre(255, 255, 255));
  EXPECT_THAT(qualitiesOf(readBuilder("r").at(0, 1), groups), ElementsAre());
  EXPECT_THROW(qualitiesOf(read(std::string(501, 'A'), std::vector<uint8_t>(501, 30)), groups),
               std::runtime_error);
}

TEST(QualTransform, TakesItsParameters) {
  TempFolder folder;
  const std::string table = "table=" + writeTable(folder);
  auto with = [&](const std::string& more) {
    return qualitiesOf(read("AAACG", {12, 30, 30, 30, 30}),
                       QualTransform::load({params(table + more)}, {readGroup("a")}));
  };
  EXPECT_THAT(with(",min_qual=13"), ElementsAre(12, 20, 20, 23, 10));
  EXPECT_THAT(with(",levels=14/22/30"), ElementsAre(22, 22, 22, 22, 14));
  EXPECT_THAT(with(",levels=14/22/30,rounding=down"), ElementsAre(14, 14, 14, 22, 6));
  EXPECT_THAT(with(",prior=11"), ElementsAre(20, 20, 20, 23, 10));  // so many counts outweigh any
}

TEST(QualTransform, MakesIndelQualitiesWhenAsked) {
  TempFolder folder;
  const std::string table = "table=" + writeTable(folder);
  for (bool indel : {false, true}) {
    const auto groups =
        QualTransform::load({params(table + (indel ? ",indel=true" : ",indel=false"))}, {readGroup("a")});
    QualTransform transform(groups);
    EXPECT_EQ(transform.needsBaseTags(0), indel);
    bam_record record = read("AAC", {30, 30, 30}).tag("BI", "N%N").build();
    BAMRead read;
    read.attach(record);
    read.read_group = 0;
    if (indel) read.prepareBaseTags();
    transform.transform(&read);
    EXPECT_STREQ(reinterpret_cast<char*>(read.getBITag()), indel ? "D%D" : "N%N");  // 35; 4 is too low
    EXPECT_EQ(std::string(reinterpret_cast<char*>(read.getBDTag()), 3), "NNN");     // not in the table
    EXPECT_EQ(aux_find(read.record(), "BD") != nullptr, indel);
  }
}

TEST(QualTransform, LeavesReadGroupsItDoesNotServe) {
  TempFolder folder;
  QualCalParams a = params("table=" + writeTable(folder)),
                b = params("table=" + writeTable(folder, "u", "b"));
  QualTransform::Groups groups;
  const std::string told = stderrOf([&] {
    groups = QualTransform::load({a, b, a}, {readGroup("a"), readGroup("b", "ONT"), readGroup("c")});
  });
  EXPECT_THAT(groups, ElementsAre(testing::NotNull(), testing::IsNull(), testing::IsNull()));
  EXPECT_EQ(told,
            "Warning: Unsupported platform: ONT, no recalibration will be performed. \n"
            "Warning: read group a has a calibration table already, that of " +
                a.table +
                " is not used\n"
                "Warning: read group c is in no calibration table, its base qualities are kept\n");
}

TEST(QualCalParams, TellWhatIsWrong) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "Missing table param\n"},
      {"prior=3", "Missing table param\n"},
      {"table=t,indel=yes", "Unknown indel val yes\n"},
      {"table=t,rounding=up,rounding=x", "Unknown rounding val x\n"},
      {"table=t,levels=10/-1", "Negative level -1\n"},
      {"table=t,levels=10/x", "Invalid level x\n"},
      {"table=t,levels=94", "Too high level 94\n"},
      {"table=t,min_qual=6x", "Invalid min_qual val 6x\n"},
      {"table=t,prior=nan", "Invalid prior val nan\n"},
      {"table=t,colour=red", "Unknown param colour\n"},
  };
  for (auto [text, message] : cases)
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(QualCalParams().parse(text)) << text; }), message);
  EXPECT_EQ(stderrOf([&] { EXPECT_TRUE(QualCalParams().parse("table=t,levels=")); }),
            "Warning: the static quantization level is 0!\n");
  const QualCalParams all = params("table=a=b,prior=-1.5,min_qual=7,indel=true,levels=30/10,rounding=down");
  EXPECT_EQ(all.table, "a=b");
  EXPECT_EQ(all.prior, -1.5);
  EXPECT_EQ(all.min_qual, 7);
  EXPECT_TRUE(all.indel && all.round_down);
  EXPECT_THAT(all.levels, ElementsAre(30, 10));
}
