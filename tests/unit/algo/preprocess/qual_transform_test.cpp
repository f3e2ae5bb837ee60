#include "algo/preprocess/qual_transform.h"

#include <gmock/gmock.h>

#include "temp_folder.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// A table of one read group.
std::string writeTable(const TempFolder& folder, const std::string& name, const std::string& group) {
  RecalTable table;
  table.groups.emplace_back(group).row(kMismatch, 30, table.arguments).total.observations = 1;
  table.writeText(folder.path(name));
  return folder.path(name);
}

ReadGroup readGroup(const std::string& id, const std::string& platform = "ILLUMINA") {
  ReadGroup group;
  group.id = id;
  group.platform = platform;
  return group;
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

TEST(QualTransform, LeavesReadGroupsItDoesNotServe) {
  TempFolder folder;
  QualCalParams a = params("table=" + writeTable(folder, "t", "a")),
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
