#include "readdata/interval/gene_list.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "temp_folder.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// A good line of the table with some columns, counted from 0, replaced.
std::string line(const std::vector<std::pair<int, std::string>>& changes) {
  std::vector<std::string> columns = {"585", "NM_1",     "chr1",     "+", "100",   "900",  "150",  "800",
                                      "2",   "100,500,", "300,900,", "7", "GENE1", "cmpl", "cmpl", "0,-1,"};
  for (const auto& [column, text] : changes) columns.at(column) = text;
  std::string joined;
  for (const std::string& column : columns) joined += (joined.empty() ? "" : "\t") + column;
  return joined;
}

struct Outcome {
  bool good;
  std::string path, messages;
};

Outcome load(GeneList& list, const TempFolder& folder, const std::string& text) {
  std::string path = folder.write("refGene.txt", text);
  CaptureStderr();
  bool good = list.load(path.c_str());
  return {good, path, GetCapturedStderr()};
}

TEST(GeneList, KeepsCodingTranscripts) {
  std::string text = "#bin\tname\n" + line({}) + "\n" +                                       //
                     line({{1, "NM_2"}, {3, "-"}, {12, "GENE2"}, {13, "incmpl"}}) + "\r\n" +  //
                     line({{1, "NM_3"}, {12, "LOST1"}, {13, "unk"}}) + "\n" +                 //
                     line({{1, "NM_4"}, {12, "LOST2"}, {14, "none"}}) + "\n" +                //
                     line({{1, "NR_5"}, {12, "LOST3"}, {6, "900"}, {7, "900"}}) + "\n" +      //
                     line({{1, "NM_6"}, {2, "chr0"}, {8, "1"}, {9, "5"}, {10, "6,7,8"}, {15, "2,"}}) +
                     "\textra\n" + line({{1, "NM_7"}, {12, "ALPHA"}});
  TempFolder folder;
  GeneList list;
  Outcome outcome = load(list, folder, text);
  ASSERT_TRUE(outcome.good) << outcome.messages;
  EXPECT_EQ(list.transcript_total(), 4u);
  EXPECT_EQ(list.exon_total(), 7u);

  std::vector<std::string> names;
  for (const Gene* gene : list.genes()) names.push_back(gene->name);
  EXPECT_EQ(names, (std::vector<std::string>{"GENE1", "GENE2", "ALPHA"}));  // in order of first sight
  ASSERT_EQ(list.by_contig().size(), 2u);
  const auto& chr1 = list.by_contig().at("chr1");
  ASSERT_EQ(chr1.size(), 3u);
  const Transcript& first = *chr1[0];
  EXPECT_EQ(first.name, "NM_1");
  EXPECT_EQ(first.strand, -1);
  EXPECT_EQ(chr1[1]->strand, 1);
  EXPECT_EQ(first.exon_starts, (std::vector<int32_t>{100, 500}));
  EXPECT_EQ(first.exon_ends, (std::vector<int32_t>{300, 900}));
  EXPECT_EQ(first.exon_frames, (std::vector<int32_t>{0, -1}));
  EXPECT_EQ(std::vector<int32_t>(
                {first.bin, first.tx_start, first.tx_end, first.cds_start, first.cds_end, first.score}),
            std::vector<int32_t>({585, 100, 900, 150, 800, 7}));
  EXPECT_EQ(chr1[1]->cds_start_stat, Transcript::kIncomplete);
  const Transcript& cut = *list.by_contig().at("chr0")[0];
  EXPECT_EQ(cut.exon_ends, std::vector<int32_t>{6});
  EXPECT_EQ(cut.gene, &list.by_gene().at("GENE1"));
  EXPECT_EQ(list.by_gene().at("GENE1").transcripts, (std::vector<const Transcript*>{&first, &cut}));
}

TEST(GeneList, TellsWhatIsWrong) {
  const std::string columns = "Failed to parse transcripts in RefSeq file %, expecting at least 16 columns\n";
  auto counts = [](const std::string& bad) {
    return "Exon starts or ends or frames count does not match exonCount at line \"" + bad +
           "\" in RefSeq file %\n";
  };
  auto status = [](const std::string& bad) {
    return "Unknown cds stat descr at line \"" + bad + "\" in RefSeq file %\n";
  };
  auto range = [](const std::string& bad) {
    return "Number out of range at line \"" + bad + "\" in RefSeq file %\n";
  };
  const std::string few = line({{8, "4"}}), many = line({{8, "2000000000"}}), negative = line({{8, "-1"}});
  const std::string short_list = line({{9, "100"}}), word = line({{13, "Cmpl"}}), blank = line({{14, ""}});
  const std::string large = line({{5, "2147483648"}}), huge = line({{9, "1,99999999999999999999,"}});
  struct {
    std::string text, message;
  } const cases[] = {
      {"a\tb\n", columns},  {line({}) + "\n\n", columns}, {few, counts(few)},
      {many, counts(many)}, {negative, counts(negative)}, {short_list, counts(short_list)},
      {word, status(word)}, {blank, status(blank)},       {large, range(large)},
      {huge, range(huge)},
  };
  for (const auto& c : cases) {
    TempFolder folder;
    GeneList list;
    Outcome outcome = load(list, folder, c.text + "\n");
    std::string expected = c.message;
    expected.replace(expected.find('%'), 1, outcome.path);
    EXPECT_FALSE(outcome.good) << c.text;
    EXPECT_EQ(outcome.messages, expected);
  }
}

}  // namespace
