#include "readdata/interval/interval_list.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <sys/stat.h>

#include "temp_folder.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// "contig:start-end(strand)name" of all entries in memory coordinates, contigs in the list's order.
std::string dump(const IntervalList& list) {
  std::string text;
  for (const auto& entries : list.per_contig())
    for (const IntervalEntry& e : entries)
      text += std::string(text.empty() ? "" : " ") + e.contig + ":" + std::to_string(e.start) + "-" +
              std::to_string(e.end) + (e.negative_strand ? "-" : "") + e.name;
  return text;
}

struct Loaded {
  bool good;
  std::string messages;
};

Loaded load(IntervalList& list, const std::string& path) {
  CaptureStderr();
  bool good = list.load(path.c_str());
  return {good, GetCapturedStderr()};
}

const std::string kHeader = "@HD\tVN:1.6\n@SQ\tSN:b\tLN:1000\n@SQ\tM5:x\tLN:50\tSN:a\textra\n@PG\tID:x\n";

TEST(IntervalList, LoadsEachForm) {
  const std::string wide(3000, 'w');
  struct {
    std::string text;
    IntervalList::Kind kind;
    std::string entries;
  } const cases[] = {
      {"", IntervalList::kPlain, ""},
      {"b\na:1-2\n\nb:7\n", IntervalList::kPlain, "b:0-4294967295 b:6-7 a:0-2"},
      {"#x\r\nb\r\na:1-2", IntervalList::kPlain, "b:0-4294967295 a:0-2"},  // CRLF, no final newline
      {":5-9\nN:3-4\n", IntervalList::kPlain, "N:0-4294967295"},
      {wide + "\nb:1-2\n", IntervalList::kPlain, wide.substr(0, 1023) + ":0-4294967295 b:0-2"},
      {"b\t1\t2\n#c\t3\t4\na\t0\t10\tname\t0\t-\nb\t5\t9\n", IntervalList::kBed, "b:1-2 b:5-9 a:0-10"},
      {"track name=x\nbrowser position c:1-2\nb\t1\t2\r\nb 5 9\nb\tx\t9\nb\t4\n", IntervalList::kBed,
       "b:1-2"},
      {"  b\t1\t2  \n", IntervalList::kBed, "b:1-2"},
      {"b\t1\t2" + wide + "\nb\t3\t4\n", IntervalList::kBed, "b:1-2 b:3-4"},
      {"b\t3\t99999999999999999999\n", IntervalList::kBed, "b:3-4294967295"},
      {"@SQ\tSN:b\tLN:5\nb\t1\t2\n", IntervalList::kBed, "b:1-2"},  // no @HD: no Picard-style list
      {"#x\n@CO\n" + kHeader + "a\t1\t50\t-\tone\n#a\nb\t11\t20\t+\ttwo", IntervalList::kPicard,
       "b:10-20two a:0-50-one"},
      {kHeader, IntervalList::kPicard, ""},
  };
  for (const auto& c : cases) {
    TempFolder folder;
    IntervalList list;
    Loaded loaded = load(list, folder.write("list", c.text));
    EXPECT_TRUE(loaded.good) << c.text.substr(0, 60);
    EXPECT_EQ(loaded.messages, "");
    EXPECT_EQ(list.kind(), c.kind) << c.text.substr(0, 60);
    EXPECT_EQ(dump(list), c.entries);
    EXPECT_EQ(list.total(),
              c.entries.empty() ? 0u : std::count(c.entries.begin(), c.entries.end(), ' ') + 1u);
  }
}

TEST(IntervalList, TellsWhatIsWrong) {
  const std::string plain = "Failed to load intervals from file %\n", bed = "Failed to load BED file %\n",
                    picard = "Failed to load Picard style interval list %\n";
  struct {
    std::string text, messages;
  } const cases[] = {
      {"b\nb:3-1\n", "Failed to parse string b:3-1 at line 2\n" + plain},
      {"#\nb:4294967296\n", "Failed to parse string b:4294967296 at line 2\n" + plain},
      {"b\t4294967296\t5\n", "Invalid start 4294967296 at line 1\n" + bed},
      {"@HD\tVN\n@SQ\tLN:5\n@SQ\tSN:a\tLN:5\n@SQ\tSN:a\tLN:6\n@SQ\tSN:b\n@SQ\n",
       "Missing SN in @SQ line at line 2\nDuplicated SN in @SQ line at line 4\nMissing LN in @SQ line at "
       "line 5\n"
       "Missing SN in @SQ line at line 6\nMissing LN in @SQ line at line 6\n" +
           picard},
      {"@HD\tVN\n@SQ\tSN:a\tLN:4294967296\n@SQ\tSN:b\tLN:-1\n@SQ\tSN:c\tLN:\n",
       "Invalid LN in @SQ line at line 2\nInvalid LN in @SQ line at line 3\nInvalid LN in @SQ line at line "
       "4\n" +
           picard},
      {kHeader + "b\t1\t2\t+\n", "5 tab separated columns expected, got 4 at line 5\n" + picard},
      {kHeader + "b\t1\t2\t+\tx\ty\n", "5 tab separated columns expected, got 6 at line 5\n" + picard},
      {kHeader + "c\t1\t2\t+\tx\n", "Cannot find contig c at line 5\n" + picard},
      {kHeader + "b\t1\t2\t*\tx\n", "Invalid strand flag * at line 5\n" + picard},
      {kHeader + "b\t0\t2\t+\tx\n", "Invalid start 0 at line 5\n" + picard},
      {kHeader + "b\tx\t2\t+\tx\n", "Invalid start x at line 5\n" + picard},
      {kHeader + "b\t1\t-2\t+\tx\n", "Invalid end -2 at line 5\n" + picard},
  };
  for (const auto& c : cases) {
    TempFolder folder;
    IntervalList list;
    std::string path = folder.write("list", c.text), expected = c.messages;
    expected.replace(expected.find('%'), 1, path);
    Loaded loaded = load(list, path);
    EXPECT_FALSE(loaded.good);
    EXPECT_EQ(loaded.messages, expected);
  }
}

TEST(IntervalList, TellsWhatCannotBeRead) {
  TempFolder folder;
  IntervalList list;
  std::string none = folder.path("none"), inside = folder.path("folder");
  EXPECT_EQ(load(list, none).messages, "Failed to open file " + none + ": No such file or directory\n");
  ASSERT_EQ(mkdir(inside.c_str(), 0700), 0);
  Loaded loaded = load(list, inside);
  EXPECT_FALSE(loaded.good);
  EXPECT_EQ(
      loaded.messages,
      "Failed to read header at line 1: Is a directory\nFailed to load intervals from file " + inside + "\n");
  std::string pipe = folder.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);  // nobody writes to it
  for (const std::string& path : {pipe, std::string("/dev/zero")}) {
    loaded = load(list, path);
    EXPECT_FALSE(loaded.good);
    EXPECT_EQ(loaded.messages, "Failed to open file " + path + ": Illegal seek\n");
  }
}

TEST(IntervalList, PadsWithinThe32Bits) {
  struct {
    int64_t amount;
    const char *padded, *merged;
  } const cases[] = {
      {0, "a:9-20 a:29-40 a:99-4294967295", "a:9-20 a:29-40 a:99-4294967295"},
      {5, "a:4-25 a:24-45 a:94-4294967295", "a:4-45 a:94-4294967295"},
      {10, "a:0-30 a:19-50 a:89-4294967295", "a:0-50 a:89-4294967295"},
      {INT64_MAX, "a:0-4294967295 a:0-4294967295 a:0-4294967295", "a:0-4294967295"},
      {-2, "a:11-18 a:31-38 a:101-4294967293", "a:11-18 a:31-38 a:101-4294967293"},
      {-6, "a:15-14 a:35-34 a:105-4294967289", "a:105-4294967289"},
      {-30, "a:39-0 a:59-10 a:129-4294967265", "a:129-4294967265"},
      {-5000000000, "a:4294967295-0 a:4294967295-0 a:4294967295-0", ""},
      {INT64_MIN, "a:4294967295-0 a:4294967295-0 a:4294967295-0", ""},
  };
  for (const auto& c : cases) {
    IntervalList list;
    ASSERT_TRUE(list.add_strings("a:10-20,a:30-40,a:100-"));
    list.pad(c.amount);
    EXPECT_EQ(dump(list), c.padded) << c.amount;
    list.merge();
    EXPECT_EQ(dump(list), c.merged) << c.amount;
  }
}

// Each place stays covered by the list, and no two entries touch.
TEST(IntervalList, MergeAgreesWithABitmap) {
  std::mt19937 random(29);
  for (int round = 0; round < 200; ++round) {
    std::vector<std::vector<bool>> covered(3, std::vector<bool>(210)), after = covered;
    std::string text;
    for (unsigned i = 1 + random() % 40; i > 0; --i) {
      unsigned contig = random() % 3, start = random() % 190, length = random() % 9;
      text += "c" + std::to_string(contig) + "\t" + std::to_string(start) + "\t" +
              std::to_string(start + length) + "\n";
      for (unsigned place = start; place < start + length; ++place) covered[contig][place] = true;
    }
    TempFolder folder;
    IntervalList list;
    ASSERT_TRUE(load(list, folder.write("x.bed", text)).good);
    list.merge();
    IntervalMap map;
    list.append_to(map);
    for (const auto& [name, intervals] : map) {
      for (size_t i = 0; i < intervals.size(); ++i) {
        ASSERT_EQ(intervals[i].contig, name.c_str());
        if (i) {
          ASSERT_GT(intervals[i].start, intervals[i - 1].end);
        }
        for (uint32_t place = intervals[i].start; place < intervals[i].end; ++place)
          after[name[1] - '0'][place] = true;
      }
    }
    ASSERT_EQ(after, covered) << text;
  }
}

TEST(IntervalList, ChecksItsHeaderAgainstTheContigs) {
  TempFolder folder;
  IntervalList list, plain;
  ASSERT_TRUE(load(list, folder.write("list", kHeader)).good);
  ASSERT_TRUE(plain.add_strings("x:1-5"));
  const std::string head = "interval list header and ref contigs have different ";
  struct {
    std::vector<Contig> contigs;
    bool relaxed;
    std::string message;
  } const cases[] = {
      {{{"b", 0, 1000}, {"a", 0, 50}}, false, ""},
      {{{"b", 0, 1000}}, false, head + "number of contigs, 2 vs 1\n"},
      {{{"b", 0, 1000}, {"c", 0, 50}}, false, head + "contig name for contig 1, a vs c\n"},
      {{{"b", 0, 1001}, {"a", 0, 50}}, false, head + "length for contig b, 1000 vs 1001\n"},
      {{{"b", 0, 1000}, {"a", 0, 50}}, true, ""},
      {{{"a", 0, 50}}, true, ""},
      {{}, true, ""},
      {{{"c", 0, 50}}, true, "Contig c in bam files is not in interval list file header\n"},
      {{{"a", 0, 50}, {"b", 0, 1000}},
       true,
       "Contig b in bam files is out of order compared to interval list file header\n"},
      {{{"a", 0, 51}},
       true,
       "Contig a in bam file has different size then in the interval list file header\n"},
  };
  for (const auto& c : cases) {
    CaptureStderr();
    EXPECT_EQ(list.check_contigs(c.contigs, c.relaxed), c.message.empty());
    EXPECT_TRUE(plain.check_contigs(c.contigs, c.relaxed));
    EXPECT_EQ(GetCapturedStderr(), c.message);
  }
  // Contigs added by hand are not part of the header, however often the list grows.
  std::string added;
  for (int i = 0; i < 100; ++i) added += ",n" + std::to_string(i) + ":1-5";
  ASSERT_TRUE(list.add_strings(added.c_str() + 1));
  for (const char* name : {"n0", "n99"}) {
    CaptureStderr();
    EXPECT_FALSE(list.check_contigs({{"b", 0, 1000}, {name, 0, 0}}, true));
    EXPECT_EQ(GetCapturedStderr(),
              std::string("Contig ") + name + " in bam files is not in interval list file header\n");
  }
  EXPECT_TRUE(list.check_contigs({{"b", 0, 1000}, {"a", 0, 50}}, true));
}

}  // namespace
