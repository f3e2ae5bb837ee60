// What counts as what in the alignment summary; whole tables are compared with a plain recount in the e2e
// tests.
#include "algo/demo/alignment_summary_metric.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "read_builder.h"

namespace {

using Row = std::map<std::string, std::string>;

// A metric over reads on a contig of repeated "ACGT", which is what ReadBuilder makes reads of too.
class Table {
 public:
  Table() { settings_.adapters = AlignmentSummarySettings::defaultAdapters(); }

  AlignmentSummarySettings& settings() { return settings_; }
  Table& add(bam_record record, uint32_t reference_end = 4000) {
    if (!metric_) {
      builder_ = std::make_unique<MultiCategroyAlignmentSummaryMetricBuilder>(settings_);
      metric_ = builder_->create();
    }
    BAMRead read;
    read.attach(record);
    ReferenceSource source({reference().data(), 0, reference_end});
    metric_->update(read, source);
    return *this;
  }
  ReadMetrics& metric() { return *metric_; }

  std::map<std::string, Row> rows() {
    metric_->compute();
    std::vector<std::string> titles, lines;
    metric_->titles(titles);
    metric_->lines(lines);
    EXPECT_EQ(titles.size(), 1u);
    EXPECT_EQ(lines.size(), 1u);
    std::vector<std::string> names = split(titles[0], '\t');
    std::map<std::string, Row> out;
    for (const std::string& line : split(lines[0], '\n')) {
      if (line.empty()) continue;
      std::vector<std::string> fields = split(line, '\t');
      EXPECT_EQ(fields.size(), names.size());
      for (size_t i = 0; i < fields.size(); i++) out[fields[0]][names[i]] = fields[i];
    }
    return out;
  }
  Row row(const std::string& category = "UNPAIRED") { return rows().at(category); }

 private:
  static const std::string& reference() {
    static const std::string bases = [] {
      std::string text;
      for (int i = 0; i < 1000; i++) text += "ACGT";
      return text;
    }();
    return bases;
  }
  AlignmentSummarySettings settings_;
  std::unique_ptr<MultiCategroyAlignmentSummaryMetricBuilder>
      builder_;  // whose settings the metric refers to
  std::unique_ptr<ReadMetrics> metric_;
};

ReadBuilder mapped(const std::string& cigar = "40M") {
  return readBuilder("r").at(0, 100).cigar(cigar);
}

ReadBuilder pairOf(int32_t mate_contig, int32_t tlen) {
  return mapped().mate(mate_contig, 300, tlen);
}

// 16 bases or more of an adapter, as an unmapped read.
ReadBuilder unmapped(std::string letters) {
  return readBuilder("u").seq(std::move(letters));
}

}  // namespace

TEST(AlignmentSummary, AdaptersAreMatchedFromTheFirstBaseWithOneMismatch) {
  const std::string adapter = "AGATCGGAAGAGCTCGTATGCCGTC";
  struct Case {
    std::string letters;
    bool expected;
  };
  std::string one = adapter, two = adapter;
  one[3] = two[3] = 'A';
  two[9] = 'C';
  for (const Case& c : {Case{adapter.substr(0, 15), false}, Case{adapter.substr(0, 16), true},
                        Case{one, true}, Case{two, false}, Case{"C" + adapter, false}}) {
    SCOPED_TRACE(c.letters);
    EXPECT_EQ(Table().add(unmapped(c.letters)).row()["PCT_ADAPTER"], c.expected ? "1.000000" : "0.000000");
  }
  // The index in the middle of an adapter may be any.
  Table indexed;
  indexed.add(unmapped("AGATCGGAAGAGCACACGTCTGAACTCCAGTCACGATTACAGATCTCG"));
  EXPECT_EQ(indexed.row()["PCT_ADAPTER"], "1.000000");
  EXPECT_EQ(Table().add(mapped().seq(adapter + "CCCCCCCCCCCCCCC")).row()["PCT_ADAPTER"], "0.000000");
}

TEST(AlignmentSummary, ChimerasAreOfPairsWithTwoGoodEnds) {
  struct Case {
    ReadBuilder read;
    const char* in_pairs;
    const char* chimeras;
  };
  // One ordinary pair is always there, so that a read left out of the pairs leaves 0 of 1.
  const Case cases[] = {
      {pairOf(0, 100000), "2", "0.000000"},
      {pairOf(0, 100001), "2", "0.500000"},
      {pairOf(0, -100001), "2", "0.500000"},
      {pairOf(0, INT32_MIN), "2", "0.500000"},
      {pairOf(1, 0), "2", "0.500000"},
      {pairOf(1, 0).tag("MQ", 20), "2", "0.500000"},
      {pairOf(1, 0).tag("MQ", 19), "2", "0.000000"},
      {pairOf(1, 0).tag("MQ", 60).mapq(19), "2", "0.000000"},
      {pairOf(1, 0).mapq(19), "2", "0.500000"},
      {mapped().mateUnmapped(), "1", "0.000000"},
  };
  for (size_t i = 0; i < std::size(cases); i++) {
    SCOPED_TRACE(i);
    Row row = Table().add(pairOf(0, 200)).add(cases[i].read).row("FIRST_OF_PAIR");
    EXPECT_EQ(row["READS_ALIGNED_IN_PAIRS"], cases[i].in_pairs);
    EXPECT_EQ(row["PCT_CHIMERAS"], cases[i].chimeras);
  }
}

TEST(AlignmentSummary, ConvertedBasesAreNoMismatches) {
  std::string converted;  // "ACGT" with every C read as T
  for (int i = 0; i < 40; i++) converted += "ATGT"[i % 4];
  for (bool reverse : {false, true}) {
    Table table;
    table.settings().bisulfite = true;
    ReadBuilder read = mapped().seq(converted);
    if (reverse) read.reverse();
    table.add(read);
    Row row = table.row();
    EXPECT_EQ(row["PF_ALIGNED_BASES"], "40");
    EXPECT_EQ(row["PF_MISMATCH_RATE"], reverse ? "0.250000" : "0.000000");
  }
}
