#include "algo/vcall/model/genotype_assignment.h"

#include <cmath>
#include <deque>
#include <gtest/gtest.h>
#include <limits>

#include "algo/vcall/model/genotype_index.h"
#include "read_builder.h"

namespace {
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Allele allele(const char* bases, int32_t ref_suffix = 0) {
  return {bases, int32_t(strlen(bases)), ref_suffix};
}

class Assignment : public testing::Test {
 protected:
  Assignment() {
    site_.position = 104;
    site_.ref = allele("A");
    site_.alts = {allele("C")};
  }

  Read* read(const std::string& cigar, const std::string& seq, int32_t group = 0, bool reverse = false,
             int32_t start = 100) {
    bam_record record = readBuilder("r").at(0, start).cigar(cigar).seq(seq).flag(reverse ? FLAG_REVERSE : 0);
    reads_.emplace_back().attach(record);
    reads_.back().read_group = group;
    return &reads_.back();
  }
  // A read with this base at the site.
  Read* base(char b, int32_t group = 0, bool reverse = false) {
    return read("10M", std::string("GGGG") + b + "GGGGG", group, reverse);
  }
  void pile(const std::string& bases, int32_t group = 0) {
    for (char b : bases) pileup_.push_back(base(b, group, pileup_.size() % 2));
    site_.pileup = &pileup_;
  }
  void row(std::vector<double> values, int32_t sample = 0, bool reverse = false) {
    clips_.push_back({.read = base('A', 0, reverse), .sample = sample});
    values_.insert(values_.end(), values.begin(), values.end());
    rows_ = {clips_, values_.data(), site_.alts.size() + 1};
    site_.rows = &rows_;
  }
  GQStatistics assign(bool gvcf = false) {
    const int32_t sample_of[] = {0, 1};
    std::vector<SiteRead> rows, pileup;
    collectRows(site_, rows);
    collectPileup(site_, sample_of, pileup);
    samples_.clear();
    for (size_t i = 0; i < site_.likelihoods.size(); ++i) samples_.push_back("s" + std::to_string(i));
    return assignGenotypes(site_, rows, pileup, samples_, gvcf, record_, calls_);
  }
  // The sample's columns as "AD=1,2 DP=3 ...".
  std::string columns(size_t sample = 0) {
    std::string text;
    for (const auto& [key, values] : record_.genotypes["s" + std::to_string(sample)]) {
      text += (text.empty() ? "" : " ") + key + "=";
      for (size_t i = 0; i < values.size(); ++i) text += (i ? "," : "") + values[i];
    }
    return text;
  }
  std::string only(GenotypeLikelihoods likelihoods) {
    site_.likelihoods = {likelihoods};
    record_.clear();
    assign();
    return columns();
  }

  Site site_;
  std::deque<BAMRead> reads_;
  std::vector<Read*> pileup_;
  std::vector<ReadClip> clips_;
  std::vector<double> values_;
  ReadLikelihoodRows rows_;
  std::vector<std::string> samples_;
  VariantContext record_;
  std::vector<GenotypeCall> calls_;
};

TEST_F(Assignment, NoCall) {
  EXPECT_EQ(only({2, {}}), "GT=./.");
  EXPECT_EQ(only({4, {}}), "GT=./././.");
  EXPECT_EQ(only({1, {kNaN, kNaN}}), "GT=.");
  EXPECT_EQ(only({2, {0, 0, -0.04}}), "GT=./.");
  EXPECT_EQ(only({2, {0, 0, -0.1}}), "GQ=0 GT=0/0 PL=0,0,1");
  only({2, {0, 0, 0}});
  EXPECT_TRUE(calls_[0].counts.empty());
  pile("AAC");
  EXPECT_EQ(only({2, {0, 0, 0}}), "AD=2,1 DP=3 GT=./.");
  EXPECT_EQ(only({2, {}}), "GT=./.");  // reads do not matter without likelihoods
  EXPECT_EQ(calls_[0].depth, -1);
}

TEST_F(Assignment, DroppedAllelesTakeTheirGenotypesAlong) {
  site_.alts = {allele("C"), allele("G"), allele("T")};
  site_.alts[1].length = 0;
  // 00 01 11 02 12 22 03 13 23 33
  EXPECT_EQ(only({2, {-9, -8, -7, 0, -1, -2, -6, -4, -0.1, -5}}), "GQ=10 GT=1/2 PL=50,40,30,20,0,10");
  EXPECT_EQ(calls_[0].counts, (std::vector<int32_t>{0, 1, 0, 1}));
  // What is left is equal, whatever it lies below the dropped ones.
  EXPECT_EQ(only({2, {-4, -4, -4, 0, -1, -2, -4, -4, -1, -4}}), "GT=./.");
  site_.alts[0].length = site_.alts[2].length = 0;
  pile("ACGTAN");
  EXPECT_EQ(only({2, {-9, -8, -7, 0, -1, -2, -6, -4, -0.1, -5}}), "AD=2 DP=5 GT=0/0");
  EXPECT_EQ(calls_[0].adDepth, (std::vector<int32_t>{2, 0, 0, 0}));
}

TEST_F(Assignment, ManyGenotypes) {
  site_.alts.assign(13, allele("C"));
  auto likelihoods = [](uint32_t ploidy) {
    GenotypeLikelihoods l{ploidy, std::vector<double>(GenotypeIndex::count(ploidy, 14), -2)};
    l.gl[1] = 0;
    return l;
  };
  EXPECT_EQ(only(likelihoods(2)), "GQ=20 GT=0/1");  // 105 genotypes
  pile("AC");
  EXPECT_EQ(only(likelihoods(2)).substr(0, 35), "AD=1,1,0,0,0,0,0,0,0,0,0,0,0,0 DP=2");
  EXPECT_EQ(record_.getGenotype("s0", "PL").size(), 105u);
  only(likelihoods(3));
  EXPECT_EQ(record_.getGenotype("s0", "GT"), std::vector<std::string>{"0/0/1"});
  EXPECT_TRUE(record_.getGenotype("s0", "PL").empty());
  site_.alts[12].length = 0;  // 91 are left
  site_.pileup = nullptr;
  only(likelihoods(2));
  EXPECT_EQ(record_.getGenotype("s0", "PL").size(), 91u);
}

TEST_F(Assignment, PileupCountsBases) {
  site_.ref = allele("aGG");  // with a longer allele beside it, and an alternate that is a deletion
  site_.alts = {allele("C", 2), allele("G")};
  pile("ACCANG");
  pile("TC", 1);
  pileup_.push_back(read("4M2D6M", "GGGGAAAAAA"));          // deleted here
  pileup_.push_back(read("2H3S2M1I3M3S", "GGGGGTGCAGGG"));  // the ninth base
  pileup_.push_back(read("4M", "AAAA"));                    // ends before
  pileup_.push_back(read("4M3N4M", "AAAAAAAA"));            // spliced
  pileup_.push_back(read("5M", "CCCCC", 7));                // of no known group
  pileup_.push_back(read("3M", "CCC", 0, false, 105));      // begins behind
  site_.likelihoods = {{2, {-3, 0, -3, -9, -9, -9}}, {2, {-3, 0, -4, -9, -9, -9}}};
  assign();
  EXPECT_EQ(columns(0), "AD=3,2,0 DP=6 GQ=30 GT=0/1 PL=30,0,30,90,90,90");
  EXPECT_EQ(columns(1), "AD=0,1,0 DP=2 GQ=30 GT=0/1 PL=30,0,40,90,90,90");

  std::vector<SiteRead> reads;
  const int32_t sample_of[] = {0, 1};
  collectPileup(site_, sample_of, reads);
  ASSERT_EQ(reads.size(), pileup_.size());
  EXPECT_EQ(reads[0].offset, 4);
  EXPECT_EQ(reads[0].qual, 30);
  EXPECT_EQ(reads[8].offset, -1);
  EXPECT_EQ(reads[8].base, 0);
  EXPECT_EQ(reads[9].offset, 8);
  EXPECT_EQ(reads[12].sample, -1);
}

TEST_F(Assignment, RowsCountInformativeReads) {
  site_.alts = {allele("AC"), allele("AG"), allele("AT")};
  site_.alts[1].length = 0;
  site_.likelihoods = {{2, {-3, 0, -3, -9, -9, -9, -9, -9, -9, -9}}, {2, {}}};
  row({-1, -5, -1.1, -5});   // the reference: what was dropped is no rival
  row({-5, 0, -9, -0.2});    // no lead of more than the margin
  row({-5, -1, -9, -1.21});  // just ahead
  row({-5, -1.5, -9, -1});   // the last
  row({kNaN, -1, -9, -5});   // out
  row({-5, -1, -9, -5}, 1);  // of the sample without likelihoods
  assign();
  EXPECT_EQ(columns(0), "AD=1,1,1 DP=3 GQ=30 GT=0/1 PL=30,0,30,90,90,90");
  EXPECT_EQ(columns(1), "GT=./.");
  std::vector<SiteRead> reads;
  collectRows(site_, reads);
  ASSERT_EQ(reads.size(), 5u);
  EXPECT_EQ(reads[3].allele, 3);
  EXPECT_EQ(reads[1].allele, -1);
  EXPECT_EQ(reads[0].base, 'A');

  pile("ACGTN");  // every base counts, informative or not
  record_.clear();
  assign();
  EXPECT_EQ(record_.getGenotype("s0", "DP"), std::vector<std::string>{"4"});
  pileup_.resize(1);  // never fewer than those that support an allele
  record_.clear();
  assign();
  EXPECT_EQ(record_.getGenotype("s0", "DP"), std::vector<std::string>{"3"});
}

TEST_F(Assignment, StrandsOfReferenceAndAlternates) {
  site_.likelihoods = {{2, {-3, 0, -3}}};
  pile("AAACCN");  // forward first, then by turns
  assign(true);
  EXPECT_EQ(columns(), "AD=3,2 DP=5 GQ=30 GT=0/1 PL=30,0,30 SB=2,1,1,1");

  site_.alts = {allele("C"), allele("G")};
  site_.likelihoods = {{2, {-3, 0, -3, -9, -9, -9}}};
  row({-5, -1, -1});             // not informative among three, but not the reference
  row({-1, -5, -1.1}, 0, true);  // too near to the best alternate
  row({-1, -5, -1.3}, 0, true);
  row({kNaN, -1, -1});
  record_.clear();
  assign(true);
  EXPECT_EQ(record_.getGenotype("s0", "SB"), (std::vector<std::string>{"0", "1", "1", "0"}));
  EXPECT_EQ(record_.getGenotype("s0", "AD"), (std::vector<std::string>{"1", "0", "0"}));
}

TEST_F(Assignment, PhasedHomozygous) {
  site_.likelihoods = {{2, {-9, -3, 0}}, {2, {-3, 0, -3}}, {2, {-9, -3, 0}}, {1, {-9, 0}}};
  for (const char* sample : {"s0", "s1", "s3"}) record_.addGenotype(sample, "PGT", "%s", "0|1");
  assign();
  EXPECT_EQ(columns(0), "GQ=30 GT=1/1 PGT=1|1 PL=90,30,0");
  EXPECT_EQ(columns(1), "GQ=30 GT=0/1 PGT=0|1 PL=30,0,30");
  EXPECT_EQ(columns(2), "GQ=30 GT=1/1 PL=90,30,0");
  EXPECT_EQ(columns(3), "GQ=90 GT=1 PGT=0|1 PL=90,0");
}

TEST_F(Assignment, StatisticsOfGQ) {
  site_.likelihoods = {{2, {}}};
  EXPECT_TRUE(std::isnan(assign().mean));
  site_.likelihoods = {{2, {0, -2, -9}}, {2, {}}};
  GQStatistics gq = assign();
  EXPECT_EQ(gq.mean, 20);
  EXPECT_TRUE(std::isnan(gq.stddev));
  site_.likelihoods = {{2, {0, -2, -9}}, {2, {}}, {2, {0, -4, -9}}, {2, {0, -6, -9}}};
  gq = assign();
  EXPECT_EQ(gq.mean, 40);
  EXPECT_DOUBLE_EQ(gq.stddev, 20);
}
}  // namespace
