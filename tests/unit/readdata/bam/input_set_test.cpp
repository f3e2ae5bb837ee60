#include "readdata/bam/input_set.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "read_builder.h"
#include "readdata/bam/bam_impl.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Names = std::vector<std::pair<std::string, uint32_t>>;

// Files of which only the headers matter.
class Files {
 public:
  Files& add(const std::string& path, const std::string& text, const Names& contigs = {{"c1", 1000}}) {
    auto header = std::make_shared<bam_header>();
    for (const auto& [name, length] : contigs) {
      header->names.push_back(name);
      header->lengths.push_back(length);
    }
    header->text = text;
    files_.push_back(std::make_unique<BAMImpl>(path));
    files_.back()->header = header;
    return *this;
  }
  Files& addWithoutHeader(const std::string& path) {
    files_.push_back(std::make_unique<BAMImpl>(path));
    return *this;
  }
  std::vector<BAMHandle*> handles() const {
    std::vector<BAMHandle*> list;
    for (const auto& file : files_) list.push_back(file.get());
    return list;
  }

 private:
  std::vector<std::unique_ptr<BAMHandle>> files_;
};

const std::string kHead = "@HD\tVN:1.6\tSO:coordinate\n";
const std::string kGroup = "@RG\tID:g\tSM:s\n";

// What joining the files prints; `thrown` becomes the text of the exception.
std::string joinMessages(const Files& files, uint32_t flags, std::string* thrown = nullptr) {
  testing::internal::CaptureStderr();
  try {
    InputSet set(files.handles(), flags);
  } catch (const std::invalid_argument& error) {
    if (thrown) *thrown = error.what();
  }
  return testing::internal::GetCapturedStderr();
}

std::vector<std::string> linesOf(const std::string& text, const std::string& type) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find('\n', at);
    if (text.compare(at, type.size(), type) == 0) lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

std::vector<std::string> contigNames(const InputSet& set) {
  std::vector<std::string> names;
  for (const Contig& contig : set.contigs()) names.emplace_back(contig.contig);
  return names;
}

TEST(InputSet, TellsFaultsOfHeadersThenRefuses) {
  struct Case {
    const char* what;
    std::string text;
    const char* message;
  } cases[] = {
      {"no order", "@HD\tVN:1.6\n" + kGroup, "BAM file x.bam is not sorted by coordinate\n"},
      {"other order", "@HD\tVN:1.6\tSO:queryname\n" + kGroup, "BAM file x.bam is not sorted by coordinate\n"},
      {"no header line", kGroup, "The header line (@HD) is missing in BAM file x.bam\n"},
      {"empty text", "",
       "The header line (@HD) is missing in BAM file x.bam\nThere is no readgroup (@RG) in BAM file x.bam\n"},
      {"no group", kHead, "There is no readgroup (@RG) in BAM file x.bam\n"},
      {"group without ID", kHead + "@RG\tSM:s\n", "Readgroup from x.bam does not have ID"},
      {"group with empty ID", kHead + "@RG\tID:\tSM:s\n", "Readgroup from x.bam does not have ID"},
      {"group twice", kHead + kGroup + kGroup, "Readgroup g occurred more than once in BAM file x.bam\n"},
      {"group without sample", kHead + "@RG\tID:g\n", "Readgroup g from BAM file x.bam has no SM tag\n"},
      {"contig line without name", kHead + kGroup + "@SQ\tLN:1000\n",
       "BAM file x.bam does not have SN at one @SQ line\n"},
      {"fields set apart by blanks", kHead + "@RG ID:g SM:s\n",
       "There is no readgroup (@RG) in BAM file x.bam\n"},
  };
  for (const Case& c : cases) {
    Files files;
    files.add("x.bam", c.text);
    std::string thrown;
    EXPECT_EQ(joinMessages(files, 3, &thrown), c.message) << c.what;
    EXPECT_EQ(thrown, "Invalid input BAM files") << c.what;
  }
}

TEST(InputSet, TellsTheFaultsOfAllFiles) {
  Files files;
  files.add("a.bam", kHead + kGroup + "@SQ\tSN:c1\tM5:aa\n@SQ\tSN:c2\n", {{"c1", 1000}, {"c2", 50}})
      .addWithoutHeader("b.bam")
      .add("c.bam", "@HD\tSO:unsorted\n@SQ\tSN:c1\tM5:bb\n@SQ\tSN:c2\tM5:cc\n", {{"c2", 51}, {"c1", 1000}})
      .add("d.bam", "@SQ\tSN:c1\tM5:zz\n", {{"", 7}, {"NO_COOR", 7}, {"t\tb", 7}, {"d", 7}, {"d", 7}});
  std::string thrown;
  EXPECT_EQ(joinMessages(files, 3, &thrown),
            "Cannot read header from BAM file b.bam\n"
            "Incompatible contig length (c2) among input BAM files\n"
            "BAM file c.bam is not sorted by coordinate\n"
            "BAM file c.bam @SQ SN:c1 M5:bb does not match M5:aa from previous input files\n"
            "There is no readgroup (@RG) in BAM file c.bam\n"
            "Invalid contig name () in BAM file d.bam\n"
            "Invalid contig name (NO_COOR) in BAM file d.bam\n"
            "Invalid contig name (t\tb) in BAM file d.bam\n"
            "Contig d occurred more than once in BAM file d.bam\n"
            // The line for c1 is passed over: this file's own list lacks that contig.
            "The header line (@HD) is missing in BAM file d.bam\n"
            "There is no readgroup (@RG) in BAM file d.bam\n");
  EXPECT_EQ(thrown, "Invalid input BAM files");
}

TEST(InputSet, SurvivesHostileText) {
  const std::string texts[] = {
      "@RG\tID:g\tSM:s\r\n\r\n\n@CO\r\n",
      "@RG\t\t\tID:g\t:\tx\tAB\tABC\tABC:\tSM:s\tID:other\tSM:twice",
      "@\n@R\n@RG\tID:g\tSM:s\n\t\n@PG\n@PG\t\n@PG\tPP:p\n@PG\tID:p\tPP:p\n@SQ\tSN:not-in-the-list\tM5:5\n",
      "@RG\tID:g\tSM:s\n" + std::string("\0@RG\tID:g\n", 11),
      "@RG\tID:g\tSM:s\n" + std::string(100000, '\t') + '\n' + std::string(100000, '\n') +
          "@PG\tID:" + std::string(100000, 'x'),
  };
  for (const std::string& text : texts) {
    Files files;
    files.add("x.bam", text).add("y.bam", text);
    std::unique_ptr<InputSet> set;
    ASSERT_NO_THROW(set = std::make_unique<InputSet>(files.handles(), 2)) << text.substr(0, 100);
    ASSERT_EQ(set->readGroups().size(), 1u);
    EXPECT_EQ(set->readGroups()[0].id, "g");
    EXPECT_EQ(set->readGroups()[0].sample, "s");
    // What comes out is a header that reads the same again.
    std::string merged = set->headerText({});
    EXPECT_EQ(merged.find('\r'), std::string::npos);
    Files again;
    again.add("z.bam", merged);
    EXPECT_EQ(InputSet(again.handles(), 3).headerText({}), merged);
  }
}

TEST(InputSet, KeepsReadGroupsOfOneNameApart) {
  Files files;
  files.add("a.bam", kHead + "@RG\tID:g\tSM:s\tPL:one\n@RG\tID:h-dup-1\tSM:s\n@RG\tID:h\tSM:s\tLB:1\n")
      .add("b.bam", kHead + "@RG\tPL:one\tSM:s\tID:g\n")
      .add("c.bam", kHead + "@RG\tID:g\tSM:s\tPL:two\n@RG\tID:h\tSM:s\tLB:2\n")
      .add("d.bam", kHead + "@RG\tID:g\tSM:s\tPL:three\n")
      .add("e.bam", kHead + "@RG\tID:g\tSM:s\tPL:two\n@RG\tID:g-dup-1\tSM:u\n");
  testing::internal::CaptureStderr();
  InputSet set(files.handles(), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Readgroup g with different attributes is present in multiple bam files:  a.bam, b.bam, c.bam, "
            "d.bam, e.bam\n"
            "Readgroup g-dup-1 with different attributes is present in multiple bam files:  e.bam\n"
            "Readgroup h with different attributes is present in multiple bam files:  a.bam, c.bam\n");
  EXPECT_THAT(linesOf(set.headerText({}), "@RG"),
              ElementsAre("@RG\tID:g\tSM:s\tPL:one", "@RG\tID:h-dup-1\tSM:s", "@RG\tID:h\tSM:s\tLB:1",
                          "@RG\tID:g-dup-1\tSM:s\tPL:two", "@RG\tID:h-dup-2\tSM:s\tLB:2",
                          "@RG\tID:g-dup-2\tSM:s\tPL:three", "@RG\tID:g-dup-1-dup-1\tSM:u"));
  EXPECT_EQ(set.readGroups()[3].id, "g-dup-1");
  EXPECT_EQ(set.readGroups()[3].attributes.at("ID"), "g-dup-1");

  testing::internal::CaptureStderr();
  InputSet quiet(files.handles(), 1, true);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(InputSet, KeepsProgramsApartWithTheirChains) {
  const std::string sort = "@PG\tID:sort\tPP:map\n", mark = "@PG\tID:mark\tPP:sort\n";
  Files files;
  files.add("a.bam", kHead + "@PG\tID:map\tCL:one\n" + sort + mark + "@CO\tsame\n@CO\ta\n")
      .add("b.bam", kHead + "@PG\tID:map\tCL:one\n" + sort + mark + "@CO\tsame\n@CO\tb\n")
      // Behind another mapper all that follows is another program, whatever the order of the lines.
      .add("c.bam", kHead + mark + sort + "@PG\tID:map\tCL:two\n")
      .add("d.bam", kHead + "@PG\tID:x\tPP:y\n@PG\tID:y\tPP:x\n@PG\tID:lost\tPP:nowhere\n");
  InputSet set(files.handles(), 1);
  EXPECT_THAT(linesOf(set.headerText({}), "@PG"),
              ElementsAre("@PG\tID:map\tCL:one", "@PG\tID:sort\tPP:map", "@PG\tID:mark\tPP:sort",
                          "@PG\tID:mark-dup-1\tPP:sort-dup-1", "@PG\tID:sort-dup-1\tPP:map-dup-1",
                          "@PG\tID:map-dup-1\tCL:two", "@PG\tID:x\tPP:y", "@PG\tID:y\tPP:x",
                          "@PG\tID:lost\tPP:nowhere"));
  EXPECT_THAT(linesOf(set.headerText({}), "@CO"), ElementsAre("@CO\tsame", "@CO\ta", "@CO\tb"));
}

TEST(InputSet, JoinsAVeryLongProgramChain) {
  // From the far end, and many lines of one ID: neither depth nor number may cost more than in proportion.
  constexpr int kLines = 50000;
  std::string text = kHead;
  for (int i = kLines; i > 0; i--)
    text += "@PG\tID:" + std::to_string(i) + "\tPP:" + std::to_string(i - 1) +
            "\n@PG\tID:a\tCL:" + std::to_string(i) + '\n';
  Files files;
  files.add("x.bam", text);
  InputSet set(files.handles(), 1);
  EXPECT_EQ(linesOf(set.headerText({}), "@PG").size(), 2u * kLines);
}

// Whatever subsets the files have: every number leads to the name that it stands for, before and after the
// contigs took the order of the reference.
TEST(InputSet, NumbersFollowTheOrderOfTheReference) {
  std::mt19937 random(1);
  for (int round = 0; round < 50; round++) {
    std::vector<std::string> names;
    for (int i = 0; i < 12; i++) names.push_back("c" + std::to_string(i * 7 % 12));
    std::vector<Contig> reference;
    for (const std::string& name : names) reference.push_back({name.c_str(), 0, uint32_t(name.size())});
    Files files;
    for (int i = 0; i < 3; i++) {
      Names own;
      std::string text = kHead;
      for (const std::string& name : names)
        if (random() % 2) {
          own.emplace_back(name, name.size());
          text += "@SQ\tSN:" + name + "\tM5:of-" + name + '\n';
        }
      files.add("f" + std::to_string(i), text, own);
    }
    InputSet set(files.handles(), 1);
    for (bool ordered : {false, true}) {
      if (ordered) {
        ASSERT_EQ(set.check_contigs(reference), 0);
        std::vector<std::string> expected, given = contigNames(set);
        for (const std::string& name : names)
          if (std::count(given.begin(), given.end(), name)) expected.push_back(name);
        EXPECT_EQ(given, expected);
      }
      for (size_t joined = 0; joined < set.contigs().size(); joined++) {
        const std::string name = set.contigs()[joined].contig;
        EXPECT_EQ(set.contigNumber(name), int32_t(joined));
        EXPECT_THAT(set.headerText({}), HasSubstr("@SQ\tSN:" + name + "\tLN:" + std::to_string(name.size()) +
                                                  "\tM5:of-" + name + "\n"));
        for (size_t file = 0; file < 3; file++) {
          const std::vector<std::string>& own = set.handles()[file]->header->names;
          auto found = std::find(own.begin(), own.end(), name);
          int32_t number = found == own.end() ? -1 : int32_t(found - own.begin());
          EXPECT_EQ(set.fileContig(file, int32_t(joined)), number);
          if (number >= 0) {
            EXPECT_EQ(set.joinedContig(file, number), int32_t(joined));
          }
        }
      }
    }
    EXPECT_EQ(set.contigNumber("absent"), -1);
  }
}

TEST(InputSet, OneReadGroupTagIsLeft) {
  Files files;
  const std::string text = kHead + "@RG\tID:g\tSM:s\n@RG\tID:k\tSM:t\n";
  files.add("a.bam", text).add("b.bam", kHead + "@RG\tID:g\tSM:u\n@RG\tID:k\tSM:t\n");
  InputSet set(files.handles(), 1, true);
  auto auxOf = [](const bam_record& record) { return std::string(record.aux(), record.auxEnd()); };
  struct {
    const char *what, *aux, *first, *second;  // the aux data of the record in either file afterwards
  } const cases[] = {
      {"two texts", "RGZg|RGZk|", "RGZg|", "RGZg-dup-1|"},
      {"one twice", "NMC1RGZg|XXZx|RGZg|", "NMC1XXZx|RGZg|", "NMC1XXZx|RGZg-dup-1|"},
      {"a letter behind", "RGZg|RGAqXXZRG|", "XXZRG|RGZg|", "XXZRG|RGZg-dup-1|"},
      {"group that keeps its name", "RGZk|RGZg|", "RGZk|", "RGZk|"},
      {"one alone", "RGZk|NMC1", "RGZk|NMC1", "RGZk|NMC1"},
  };
  for (const auto& c : cases)
    for (size_t file : {0, 1}) {
      std::string aux = c.aux, expected = file == 0 ? c.first : c.second;
      for (std::string* bytes : {&aux, &expected}) std::replace(bytes->begin(), bytes->end(), '|', '\0');
      bam_record record = readBuilder("r").cigar("4M").auxBytes(aux).build();
      record.ref_id = 0;
      set.translate(file, record);
      EXPECT_EQ(auxOf(record), expected) << c.what << " " << file;
      EXPECT_EQ(record.l_aux, int32_t(expected.size())) << c.what << " " << file;
    }
}

}  // namespace
