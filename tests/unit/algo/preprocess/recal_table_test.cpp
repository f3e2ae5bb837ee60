#include "algo/preprocess/recal_table.h"

#include <gmock/gmock.h>
#include <random>

#include "algo/preprocess/recal_plot.h"
#include "temp_folder.h"

using testing::HasSubstr;

namespace {

constexpr int64_t kOne = 1 << RecalCounts::kFractionBits;

RecalTable makeTable(unsigned seed = 1, int bases = 20000) {
  RecalTable table;
  table.groups.emplace_back("lane 1");
  table.groups.emplace_back("empty");
  table.groups.emplace_back("lane2");
  std::mt19937 draw(seed);
  for (int i = 0; i < bases; i++) {
    const auto event = RecalEvent(draw() % 3);
    const int quality = event == kMismatch ? int(draw() % 5) * 10 : 45;
    RecalRow& row = table.groups[draw() % 2 * 2].row(event, quality, table.arguments);
    const int64_t errors =
        draw() % 50 == 0 ? int64_t(draw() % 4 + 1) * kOne / 4 : 0;  // exact with two decimals
    row.total.add(errors);
    row.contexts[draw() % row.contexts.size()].add(errors);
    row.cycles[draw() % 20 == 0 ? 1001 : draw() % 2 ? 499 - draw() % 100 : 501 + draw() % 100].add(errors);
  }
  return table;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string textOf(const RecalTable& table) {
  TempFolder folder;
  table.writeText(folder.path("t"));
  return readFile(folder.path("t"));
}

// What standard error tells of reading `text`; the exception's text must be the general one.
std::string faultOf(const std::string& text) {
  TempFolder folder;
  const std::string path = folder.write("t", text);
  testing::internal::CaptureStderr();
  try {
    RecalTable().readText(path);
  } catch (const std::invalid_argument& error) {
    EXPECT_EQ(error.what(), "Error: QualCal failed to load table file " + path);
    return testing::internal::GetCapturedStderr();
  }
  return "read: " + testing::internal::GetCapturedStderr();
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, text.npos) << from;
  return at == text.npos ? text : text.replace(at, from.size(), to);
}

}  // namespace

TEST(RecalTableText, ReadsBackWhatItWrote) {
  const RecalTable table = makeTable();
  TempFolder folder;
  table.writeText(folder.path("a"));
  RecalTable read;
  read.readText(folder.path("a"));
  EXPECT_EQ(read.arguments, table.arguments);
  ASSERT_EQ(read.groups.size(), 2u);
  for (size_t g : {0, 1}) {
    const RecalGroup &back = read.groups[g], &group = table.groups[2 * g];
    EXPECT_EQ(back.name, group.name);
    for (RecalEvent event : {kMismatch, kInsertion, kDeletion}) {
      EXPECT_EQ(back.total(event), group.total(event));
      EXPECT_NEAR(back.sum(event).reported, group.sum(event).reported, 5e-5);
      for (int q = 0; q < kRecalQualities; q++) {
        if (!group.find(event, q)) {
          EXPECT_FALSE(back.find(event, q));
          continue;
        }
        RecalRow expected = *group.find(event, q);
        expected.contexts.back() = expected.cycles.back() = {};  // invalid values are not written
        EXPECT_EQ(back.find(event, q)->total, expected.total);
        EXPECT_EQ(back.find(event, q)->contexts, expected.contexts);
        EXPECT_EQ(back.find(event, q)->cycles, expected.cycles);
      }
    }
  }
}

TEST(RecalTableText, TellsWhatIsWrong) {
  const std::string text = textOf(makeTable());
  const std::string r1 = "lane 1\t30\tM\t";
  struct Case {
    std::string from, to, expected;
  } const cases[] = {
      {".V1:5", ".V2:5", "Error: wrong format for quality table"},
      {":2:17;", ":3:17;", "Error: there should be 1-th table Arguments"},
      {"#:TORVESIN_QCAL_TABLE:8:", "#:TORVESIN_QCAL_TABLE:9:",
       "Error: there should be 5-th table RecalTable2"},
      {"#:TORVESIN_QCAL_TABLE:6:", "TABLE:6:", "Error: there should be 3-th table RecalTable0"},
      {":RecalTable1:", ":RecalTable3:", "Error: unsupported table RecalTable3"},
      {"\tnull\n", "\n", "Error: there should be 2 tokens in this line: binary_tag_name"},
      {"\nlane 1\tM\t", "\nlane 1\tM\t1\t", "Error: there should be 6 tokens in this line: lane 1\tM\t1"},
      {"value\t500", "value\t2147483647", "Error: invalid argument in this line: maximum_cycle_value"},
      {"size\t3", "size\t30", "Error: invalid argument in this line: indels_context_size"},
      {"\n93\t0\t", "\n94\t0\t",
       "Error: the quantization level 94 exceeds the maximum 94 in this line: 94\t0"},
      {"\n0\t0\t0", "\n0\t0\t300", "Error: the quantization level 300 exceeds"},
      {"\nlane 1\tM\t", "\nlane 1\tX\t", "Error: invalid operation X"},
      {"\tAA\tContext\tM", "\tA\tContext\tM",
       "Error: length of context A does not meet the requirement in this line: lane 1"},
      {"\tAA\tContext\tM", "\tAN\tContext\tM", "Error: invalid context AN"},
      {"\tAA\tContext\tM", "\tAA\tMotif\tM", "Error: unknown covariate Motif"},
      {r1, "lane 1\t-3\tM\t", "Error: invalid number -3"},
      {"\tCycle\tM\t", "\tCycle\tM\tnan", "Error: invalid number nan"},
      {r1, "lane 1\t94\tM\t", "read: Warning: skip this large score 94"},
      {"\t-10\tCycle", "\t-501\tCycle", "read: Warning: skip this large cycle -501"},
      {"\t-10\tCycle", "\t99999999999\tCycle", "read: Warning: skip this large cycle 99999999999"},
  };
  for (const Case& c : cases)
    EXPECT_THAT(faultOf(replaced(text, c.from, c.to)), HasSubstr(c.expected)) << c.to;
  EXPECT_THAT(faultOf(""), HasSubstr("Error: wrong format for quality table"));
  EXPECT_THAT(faultOf(text), "read: ");
}

// At many lengths: no part of a table passes for a whole one.
TEST(RecalTableText, RefusesTruncation) {
  const std::string text = textOf(makeTable(2, 100));
  for (size_t size = 0; size < text.size(); size += size < 1500 ? 7 : 37) {
    const std::string fault = faultOf(text.substr(0, size));
    EXPECT_THAT(fault, testing::StartsWith("Error: ")) << size;
    if (size <= 30) continue;
    EXPECT_THAT(fault, testing::AnyOf(HasSubstr("terminates prematurely: "), HasSubstr("-th table")));
  }
}

TEST(RecalTableText, SurvivesMutation) {
  const std::string text = textOf(makeTable(3, 100));
  std::mt19937 draw(4);
  static constexpr char kText[] = "0123456789-.e\t\n:;MIDACGTnan\0\xff";
  constexpr std::string_view kLetters(kText, sizeof kText - 1);
  int refused = 0;
  for (int round = 0; round < 600; round++) {
    std::string mutated = text;
    for (unsigned i = 0, n = 1 + draw() % 4; i < n; i++) {
      const size_t at = draw() % mutated.size();
      switch (draw() % 3) {
        case 0:
          mutated[at] = kLetters[draw() % kLetters.size()];
          break;
        case 1:
          mutated.erase(at, draw() % 20);
          break;
        default:
          mutated.insert(at, 1 + draw() % 12, kLetters[draw() % kLetters.size()]);
      }
    }
    refused += !faultOf(mutated).starts_with("read: ");
  }
  EXPECT_GT(refused, 300);
}

TEST(RecalTableText, TellsFilesThatDoNotOpen) {
  RecalTable table = makeTable();
  EXPECT_NO_THROW(table.writeText(""));
  EXPECT_THROW(table.writeText("/no/such/folder/t"), std::invalid_argument);
  EXPECT_THROW(table.writeText("/dev/full"), std::runtime_error);
  testing::internal::CaptureStderr();
  EXPECT_THROW(table.readText("/no/such/folder/t"), std::invalid_argument);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Error: failed to read table file /no/such/folder/t"));
}

TEST(RecalTablePart, RefusesWhatIsBroken) {
  RecalTable table = makeTable(7, 20);
  TempFolder folder;
  table.writePart(folder.path("a"));
  const std::string bytes = readFile(folder.path("a"));
  auto fault = [&](const std::string& content) -> std::string {
    const std::string path = folder.write("b", content);
    RecalTable read;
    try {
      read.addPart(path);
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(read.groups.size(), 0u);
      return replaced(error.what(), path, "NAME");
    }
    return "";
  };
  for (size_t size = 0; size < bytes.size(); size += 3)
    EXPECT_EQ(fault(bytes.substr(0, size)), "File NAME terminated unexpectedly");
  EXPECT_EQ(fault(bytes + '\0'), "File NAME is not a partial calibration table");
  EXPECT_EQ(fault("x" + bytes), "File NAME is not a partial calibration table");
  std::mt19937 draw(8);
  for (int round = 0; round < 400; round++) {
    std::string mutated = bytes;
    mutated[draw() % bytes.size()] = char(draw());
    fault(mutated);  // any answer but a crash
  }
  EXPECT_THROW(table.addPart("/no/such/part"), std::runtime_error);
  EXPECT_THROW(table.writePart("/dev/full"), std::runtime_error);
  table.groups[0].name = "other";
  EXPECT_THROW(table.addPart(folder.path("a")), std::runtime_error);
}
