#include "readdata/ref/fasta_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/text.h"
#include "temp_folder.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// A FASTA text, its index, and, kept apart, the upper-case bases.
struct Sample {
  std::string text, index;
  std::map<std::string, std::string> bases;
};

// Contigs whose lines are 1 to 5000 bases long, in mixed case, with "\n" or "\r\n", the last one perhaps
// without.
Sample makeSample(unsigned seed, const std::string& line_end, bool end_last_line) {
  std::mt19937 random(seed);
  Sample sample;
  const size_t widths[] = {1, 7, 60, 61, 100, 4096, 5000};
  for (size_t i = 0; i < std::size(widths); ++i) {
    std::string name = format("c%zu", i), mixed, upper;
    size_t length = i == 2 ? 60 * 300 : 1 + random() % 20000;  // one ends with a full line
    for (size_t b = 0; b < length; ++b) {
      mixed += "ACGTNRYacgtnry"[random() % 14];
      upper += static_cast<char>(toupper(mixed.back()));
    }
    sample.text += ">" + name + " described\n";
    sample.index += format("%s\t%zu\t%zu\t%zu\t%zu\n", name.c_str(), length, sample.text.size(), widths[i],
                           widths[i] + line_end.size());
    for (size_t b = 0; b < length; b += widths[i]) sample.text += mixed.substr(b, widths[i]) + line_end;
    sample.bases[name] = upper;
  }
  if (!end_last_line) sample.text.resize(sample.text.size() - line_end.size());
  return sample;
}

// Opens in silence and gives the number of failed comparisons of random fetches, which run on one object.
int mismatches(FastaFile& fasta, const Sample& sample, unsigned seed, int fetches) {
  std::mt19937 random(seed);
  int wrong = 0;
  uint32_t end = 0;
  for (int i = 0; i < fetches; ++i) {
    std::string name = format("c%u", unsigned(random() % 7));
    const std::string& bases = sample.bases.at(name);
    uint32_t start = random() % 3 ? random() % bases.size() : std::min<uint32_t>(end, bases.size() - 1);
    uint32_t length = random() % 4 ? random() % 200 : random() % 30000;  // also beyond the end
    end = start + length;
    std::string expected = bases.substr(start, length);
    std::string got(length + 1, '*');
    uint32_t count = fasta.fetch(name.c_str(), start, end, got.data());
    wrong += count != expected.size() || got.substr(0, expected.size()) != expected ||
             got.find_first_not_of('*', expected.size()) != got.npos;
  }
  return wrong;
}

TEST(FastaFile, FetchesWhatAPlainParseFinds) {
  for (const char* line_end : {"\n", "\r\n"}) {
    for (bool end_last_line : {true, false}) {
      TempFolder folder;
      Sample sample = makeSample(11, line_end, end_last_line);
      std::string path = folder.write("ref.fa", sample.text);
      folder.write("ref.fa.fai", sample.index);
      FastaFile fasta(path);
      EXPECT_EQ(mismatches(fasta, sample, 1, 3000), 0);
      for (const auto& [name, bases] : sample.bases) {
        std::string whole(bases.size(), '*');
        EXPECT_EQ(fasta.fetch(name.c_str(), 0, 0xFFFFFFFF, whole.data()), bases.size());
        EXPECT_EQ(whole, bases);
      }
    }
  }
}

TEST(FastaFile, ClonesFetchSideBySideAndOutliveTheFirst) {
  TempFolder folder;
  Sample sample = makeSample(12, "\n", true);
  std::string path = folder.write("ref.fa", sample.text);
  folder.write("ref.fa.fai", sample.index);
  auto first = std::make_unique<FastaFile>(path);
  std::vector<std::unique_ptr<FastaFile>> clones;
  for (int i = 0; i < 4; ++i) clones.push_back(std::make_unique<FastaFile>(i < 2 ? *first : *clones[0]));
  std::vector<int> wrong(4, -1);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, i] { wrong[i] = mismatches(*clones[i], sample, 100 + i, 1500); });
  EXPECT_EQ(mismatches(*first, sample, 99, 1500), 0);
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(wrong, testing::Each(0));
  first.reset();
  EXPECT_EQ(mismatches(*clones[3], sample, 5, 100), 0);
}

TEST(FastaFile, OddRangesAndUnknownContigs) {
  TempFolder folder;
  std::string path = folder.write("ref.fa", ">a\nACgtn\nacg\n>b\nTT\n");
  folder.write("ref.fa.fai", "a text\t8\t3\t5\t6\nb\t2\t16\t2\t3\nhollow\t0\t19\t0\t0\n");
  FastaFile fasta(path);
  EXPECT_THAT(fasta.names(), testing::ElementsAre("a", "b", "hollow"));
  struct {
    const char* contig;
    uint32_t start, end, count;
    const char* bases;
  } const cases[] = {
      {"a", 0, 8, 8, "ACGTNACG"},
      {"a", 3, 5, 2, "TN"},
      {"a", 5, 6, 1, "A"},
      {"a", 7, 1000, 1, "G"},
      {"a", 3, 3, 0, ""},
      {"a", 4, 3, 0, ""},
      {"a", 8, 9, 0, ""},
      {"a", 0xFFFFFFFE, 0xFFFFFFFF, 0, ""},
      {"b", 1, 2, 1, "T"},
      {"hollow", 0, 10, 0, ""},
      {"c", 0, 1, FastaFile::kFailed, ""},
      {"a text", 0, 1, FastaFile::kFailed, ""},
      {"", 0, 1, FastaFile::kFailed, ""},
  };
  CaptureStderr();
  for (const auto& c : cases) {
    char buffer[8] = {};
    EXPECT_EQ(fasta.fetch(c.contig, c.start, c.end, buffer), c.count) << c.contig << c.start;
    EXPECT_STREQ(std::string(buffer, strnlen(buffer, 8)).c_str(), c.bases);
  }
  EXPECT_EQ(GetCapturedStderr(), "");
}

// What opening `path` prints; the exception must be the one that all such failures end in.
std::string refusal(const std::string& path) {
  CaptureStderr();
  try {
    FastaFile fasta(path);
    return "opened: " + GetCapturedStderr();
  } catch (const std::invalid_argument& failure) {
    EXPECT_STREQ(failure.what(), "Invalid input file");
    return GetCapturedStderr();
  }
}

TEST(FastaFile, StartOfTheText) {
  const std::string opened = "opened: ";
  const std::string piece(1023, 'c');
  std::string ten_pieces = ";";
  while (ten_pieces.size() < 11 * 1023 - 1) ten_pieces += 'c';
  struct {
    std::string text, message;
  } const cases[] = {
      {"", opened},
      {">a\nA\n", opened},
      {"\n\r\n;note\n; other\n>a\nA\n", opened},
      {ten_pieces + "\n>a\n", opened},
      {"\n" + ten_pieces + "c\n>a\n", "Comment too long at line 2 in "},
      {";" + piece + "\n\nACGT\n", "Invalid FASTA header at line 3 in "},  // a long comment counts once
      {"\n; without end", "Comment too long at line 2 in "},
      {"ACGT\n", "Invalid FASTA header at line 1 in "},
      {"\n\rACGT\n", "Invalid FASTA header at line 2 in "},
      {" >a\n", "Invalid FASTA header at line 1 in "},
      {std::string(5000, '\0'), "Invalid FASTA header at line 1 in "},
  };
  for (const auto& c : cases) {
    TempFolder folder;
    std::string path = folder.write("ref.fa", c.text);
    folder.write("ref.fa.fai", "");
    EXPECT_EQ(refusal(path), c.message == opened ? opened : c.message + path + "\n") << c.text.substr(0, 40);
  }
}

TEST(FastaFile, RefusesBadIndexLines) {
  const std::string malformed = "Malformed FASTA index entry",
                    width = "Invalid line width in FASTA index entry",
                    offset = "Offset beyond the end of the FASTA file in FASTA index entry";
  struct {
    std::string line, message;
  } const cases[] = {
      {"b\t2\t16\t2\t3\textra", ""},
      {"b\t0\t0\t0\t0", ""},
      {"b 2 16 2 3", malformed},
      {"", malformed},
      {"b\t2\t16\t2", malformed},
      {"b\t2\tx\t2\t3", malformed},
      {"\t2\t16\t2\t3", malformed},
      {" b\t2\t16\t2\t3", malformed},
      {"b\t-1\t16\t2\t3", malformed},
      {"b\t4294967296\t16\t2\t3", malformed},
      {"b\t2\t16\t2\t4294967296", malformed},
      {"b\t2\t9223372036854775808\t2\t3", malformed},
      {"b\t2\t99999999999999999999999\t2\t3", malformed},
      {std::string(9000, 'n') + "\t2\t16\t2\t3", malformed},
      {std::string(5, '\0') + "\t2\t16\t2\t3", malformed},
      {"a\t2\t16\t2\t3", "Duplicate FASTA index entry"},
      {"a longer\t2\t16\t2\t3", "Duplicate FASTA index entry"},
      {"b\t2\t16\t0\t0", width},
      {"b\t2\t16\t0\t3", width},
      {"b\t2\t16\t2\t1", width},
      {"b\t2\t16\t2\t0", width},
      {"b\t3\t16\t2\t2", width},
      {"b\t4294967295\t16\t1\t4294967295", width},
      {"b\t2\t20\t2\t3", offset},
      {"b\t2\t9223372036854775000\t2\t3", offset},
  };
  for (const auto& c : cases) {
    TempFolder folder;
    std::string path = folder.write("ref.fa", ">a\nACgtn\nacg\n>b\nTT\n");
    std::string index = folder.write("ref.fa.fai", "a\t8\t3\t5\t6\n" + c.line + "\n");
    std::string expected = c.message + " at line 2\nInvalid FASTA index file " + index + "\n";
    EXPECT_EQ(refusal(path), c.message.empty() ? "opened: " : expected) << c.line.substr(0, 60);
  }
}

TEST(FastaFile, RefusesWhatIsNoFile) {
  TempFolder folder;
  std::string none = folder.path("none.fa"), folder_path = folder.path("folder.fa"),
              pipe = folder.path("pipe.fa");
  EXPECT_EQ(refusal(none), "Failed to open FASTA file " + none + ": No such file or directory\n");
  ASSERT_EQ(mkdir(folder_path.c_str(), 0700), 0);
  EXPECT_EQ(refusal(folder_path), "Failed to open FASTA file " + folder_path + ": Is a directory\n");
  EXPECT_EQ(refusal("/dev/zero"), "Failed to open FASTA file /dev/zero: Illegal seek\n");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);  // nobody writes to it
  EXPECT_EQ(refusal(pipe), "Failed to open FASTA file " + pipe + ": Illegal seek\n");

  std::string path = folder.write("ref.fa", ">a\nA\n"), index = folder.path("ref.fa.fai");
  ASSERT_EQ(mkdir(index.c_str(), 0700), 0);
  EXPECT_EQ(refusal(path), "Error reading FASTA index file " + index + ": Is a directory\n");
  ASSERT_EQ(rmdir(index.c_str()), 0);
  ASSERT_EQ(mkfifo(index.c_str(), 0600), 0);
  EXPECT_EQ(refusal(path), "Failed to open FASTA index file " + index + ": Illegal seek\n");
  if (geteuid() != 0) {
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    EXPECT_EQ(refusal(path), "Failed to open FASTA file " + path + ": Permission denied\n");
  }
}

TEST(FastaFile, TellsAtTheFetchThatTheFileIsShorterThanItsIndex) {
  TempFolder folder;
  std::string bases(100000, 'A');
  std::string path = folder.write("ref.fa", ">a\n" + bases);
  folder.write("ref.fa.fai", "a\t200000\t3\t200000\t200001\n");
  FastaFile fasta(path);
  std::string buffer(200000, '*');
  struct {
    uint32_t start, end;
    std::string message;
  } const cases[] = {
      {99000, 100000, ""},
      {99000, 100001, "Truncated contig a in FASTA file " + path + "\n"},
      {0, 200000, "Truncated contig a in FASTA file " + path + "\n"},
      {100000, 100001, "Truncated contig a in FASTA file " + path + "\n"},
      {150000, 150001, "Failed to seek to contig a:150000 in FASTA file " + path + ": Invalid argument\n"},
      {0, 100000, ""},  // a failed fetch leaves the object usable
  };
  for (const auto& c : cases) {
    CaptureStderr();
    uint32_t count = fasta.fetch("a", c.start, c.end, buffer.data());
    EXPECT_EQ(GetCapturedStderr(), c.message);
    EXPECT_EQ(count, c.message.empty() ? c.end - c.start : FastaFile::kFailed) << c.start;
  }
  ASSERT_EQ(truncate(path.c_str(), 50), 0);  // while it is open
  CaptureStderr();
  EXPECT_EQ(fasta.fetch("a", 70000, 70010, buffer.data()), FastaFile::kFailed);
  EXPECT_NE(GetCapturedStderr(), "");
}

}  // namespace
