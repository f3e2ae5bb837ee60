#include "algo/vcall/indel_caller.h"

#include <cmath>
#include <deque>
#include <gtest/gtest.h>

#include "algo/vcall/model/genotype_index.h"
#include "read_builder.h"

namespace {

struct IndelCallerTest : testing::Test {
  ReferenceWindow window;
  std::deque<bam_record> records;
  std::deque<BAMRead> kept;
  std::vector<Read*> reads;
  const std::vector<int32_t> sample_of_group{0, 1, 2};
  Site site;

  IndelCallerTest() {
    window.start = 1000;
    for (uint32_t i = 0, x = 7; i < 600; ++i, x = x * 1664525 + 1013904223) window.bases += "ACGT"[x >> 30];
    window.bases.replace(300, 6, "GCATTA");  // position 1300 and what is behind it
  }
  std::string ref(uint32_t from, uint32_t to) const { return window.bases.substr(from - 1000, to - from); }
  void add(uint32_t start, const std::string& cigar, const std::string& bases, int32_t sample = 0) {
    records.push_back(readBuilder("r").at(0, int32_t(start)).cigar(cigar).seq(bases));
    kept.emplace_back().attach(records.back());
    kept.back().read_group = sample;
    reads.push_back(&kept.back());
  }
  void plain(uint32_t start, int32_t sample = 0) { add(start, "60M", ref(start, start + 60), sample); }
  void deletion(uint32_t start, int32_t sample = 0) {  // of CAT
    const uint32_t left = 1301 - start;
    add(start, std::to_string(left) + "M3D" + std::to_string(60 - left) + "M",
        ref(start, 1301) + ref(1304, 1364 - left), sample);
  }
  double row(size_t read, size_t allele) const {
    return site.rows->values[read * site.rows->alleles + allele];
  }
  bool prepare(IndelCaller& caller, const GivenAlleles::Record& record, uint32_t position = 1300) {
    return caller.prepare(position, record, window, reads, sample_of_group, site);
  }
};

const GivenAlleles::Record kDeletion{"GCAT", {"G"}}, kThree{"GCAT", {"G", "GCATCAT", "GT"}};

TEST_F(IndelCallerTest, LikelihoodsFollowFromTheRows) {
  for (uint32_t i = 0; i < 8; ++i) plain(1250 + i), deletion(1255 + i), deletion(1262 + i, 2);
  for (const uint32_t ploidy : {1u, 2u, 4u}) {
    IndelCaller caller(ploidy, 17, 3);
    ASSERT_TRUE(prepare(caller, kThree));
    ASSERT_EQ(site.rows->reads.size(), 24u);
    EXPECT_TRUE(site.likelihoods[1].gl.empty());
    for (const int32_t sample : {0, 2}) {
      std::vector<double> want;
      for (GenotypeIndex genotype(ploidy, 4); !genotype.exhausted(); genotype.next()) {
        want.push_back(0);
        for (size_t i = 0; i < 24; ++i) {
          double sum = 0;
          for (size_t a = 0; a < 4; ++a) sum += genotype.counts[a] * std::pow(10, row(i, a));
          if (site.rows->reads[i].sample == sample) want.back() += std::log10(sum / ploidy);
        }
      }
      const double best = *std::max_element(want.begin(), want.end());
      const std::vector<double>& gl = site.likelihoods[size_t(sample)].gl;
      ASSERT_EQ(gl.size(), want.size());
      for (size_t g = 0; g < gl.size(); ++g) {
        EXPECT_NEAR(gl[g], want[g] - best, 0.052);
        EXPECT_NEAR(gl[g] * 10, std::round(gl[g] * 10), 1e-9);
      }
      EXPECT_TRUE(sample == 0 || gl[ploidy] == 0) << ploidy;  // all chromosomes carry the deletion
    }
  }
}

TEST_F(IndelCallerTest, ReadsWithoutAGapSpeakForTheirAllele) {
  // 30 deleted bases near an end: taken for mismatches; clipped; with a gap, over the edges of the haplotypes.
  const std::string left = ref(1200, 1301), right = ref(1331, 1504);
  add(1249, "60M", left.substr(49) + right.substr(0, 8));
  add(1293, "60M", left.substr(93) + right.substr(0, 52));
  add(1249, "52M8S", left.substr(49) + right.substr(0, 8));
  add(1100, "201M30D173M", ref(1100, 1200) + left + right);
  for (uint32_t i = 0; i < 3; ++i) plain(1245 + 10 * i);
  plain(1302);  // begins too late
  add(1290, "5I20M999I20M5I", std::string(1049, 'A'));
  IndelCaller caller(2, 17, 3);
  ASSERT_TRUE(prepare(caller, {ref(1300, 1331), {"G"}}));
  ASSERT_EQ(site.rows->reads.size(), 7u);
  for (size_t i = 0; i < 7; ++i) EXPECT_EQ(row(i, 1) > row(i, 0) + 1, i < 4) << i;
}

TEST_F(IndelCallerTest, WhatCannotBeEvaluated) {
  plain(1280);
  IndelCaller caller(2, 17, 3), many(20, 17, 3), most(2000, 17, 3);
  EXPECT_FALSE(prepare(caller, {"GCAT", {}}));
  EXPECT_FALSE(prepare(caller, {"GCAG", {"G"}}));  // not the reference
  EXPECT_FALSE(prepare(caller, {"G", {"G" + std::string(200, 'A')}}));
  EXPECT_TRUE(prepare(caller, {"G", {"G" + std::string(198, 'A')}}));
  EXPECT_FALSE(prepare(caller, {ref(1590, 1600), {"A"}}, 1590));
  EXPECT_FALSE(prepare(caller, kDeletion, 5000));
  EXPECT_TRUE(prepare(many, kThree));  // 1771 genotypes with all three
  EXPECT_EQ(site.alts.size(), 2u);
  EXPECT_TRUE(prepare(most, kThree));
  EXPECT_EQ(site.likelihoods[0].gl.size(), 2001u);
  reads.clear();
  EXPECT_TRUE(prepare(caller, kDeletion));
  for (const GenotypeLikelihoods& sample : site.likelihoods) EXPECT_TRUE(sample.gl.empty());
}

}  // namespace
