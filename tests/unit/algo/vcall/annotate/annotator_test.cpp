// annotator_test.cpp - the fields of small sites whose values follow by hand.
#include "algo/vcall/annotate/annotator.h"

#include <cmath>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include "algo/vcall/annotate/strand_table.h"
#include "read_builder.h"

namespace {

AnnotationSet everything() {
  AnnotationSet all;
  for (size_t i = 0; i < static_cast<size_t>(AnnotationField::kCount); ++i)
    all.add(static_cast<AnnotationField>(i));
  return all;
}

// A site at position 100 and what is known of it.
class SiteMaker {
 public:
  SiteMaker(const std::string& ref, const std::vector<std::string>& alts) : texts_{ref} {
    texts_.insert(texts_.end(), alts.begin(), alts.end());
    const auto allele = [](const std::string& text) { return Allele{text.data(), int32_t(text.size())}; };
    site.position = 100;
    site.ref = allele(texts_[0]);
    for (size_t i = 1; i < texts_.size(); ++i) site.alts.push_back(allele(texts_[i]));
    model.mleCounts.assign(alts.size(), 0);
    context.site = &site;
    context.model = &model;
    context.gqMean = context.gqStddev = std::nan("");
  }
  SiteMaker(const SiteMaker&) = delete;
  SiteMaker& samples(int n, const std::vector<int32_t>& counts, const std::vector<double>& gl,
                     int depth = -1) {
    for (int i = 0; i < n; ++i) {
      GenotypeCall call;
      call.counts = counts;
      call.depth = depth;
      calls.push_back(call);
      uint32_t ploidy = 0;
      for (int32_t count : counts) ploidy += uint32_t(count);
      site.likelihoods.push_back({ploidy, gl});
    }
    return *this;
  }
  // `n` reads of 20 bases whose offset 10, or as told, stands at the position.
  SiteMaker& reads(int n, int allele, bool reverse = false, int qual = 30, int mapq = 60,
                   const std::string& cigar = "20M", int offset = 10, int neighbours = 20) {
    for (int i = 0; i < n; ++i) {
      std::vector<uint8_t> quals(20, uint8_t(neighbours));
      quals[size_t(offset)] = uint8_t(qual);
      ReadBuilder builder = readBuilder("r").at(0, 90).cigar(cigar).quals(quals).mapq(mapq);
      if (reverse) builder.reverse();
      bam_record record = builder;
      reads_.emplace_back().attach(record);
      const char base = allele < 0 ? 'N' : texts_[size_t(allele)][0];
      evidence.push_back({&reads_.back(), 0, offset, base, uint8_t(qual), allele});
    }
    return *this;
  }
  SiteMaker& asRows() {
    site.rows = &rows_;
    return *this;
  }

  std::map<std::string, std::string> annotate(const AnnotationSet& wanted = everything()) {
    site.pileup = site.rows || evidence.empty() ? nullptr : &pileup_;
    context.calls = calls;
    context.reads = evidence;
    if (site.pileup) context.pileup = evidence;
    AnnotatorList annotators;
    for (size_t i = 0; i < static_cast<size_t>(AnnotationField::kCount); ++i)
      annotators.insert(&annotationDef(static_cast<AnnotationField>(i)));
    EXPECT_EQ(annotators.size(), 7u);
    VariantContext record;
    for (const AnnotationDef* def : annotators) def->object->annotate(record, context, wanted);
    std::map<std::string, std::string> fields;
    for (const auto& [key, values] : record.info) {
      std::string& text = fields[key];
      for (const std::string& value : values) text += (text.empty() ? "" : ",") + value;
    }
    return fields;
  }

  Site site;
  AlleleCountResult model;
  SiteContext context;
  std::vector<GenotypeCall> calls;
  std::vector<SiteRead> evidence;

 private:
  std::vector<std::string> texts_;
  std::deque<BAMRead> reads_;
  std::vector<Read*> pileup_;
  ReadLikelihoodRows rows_;
};

const std::vector<int32_t> kHomRef = {2, 0}, kHet = {1, 1}, kHomAlt = {0, 2};
const std::vector<double> kHomRefGL = {0, -100, -100}, kHetGL = {-100, 0, -100}, kHomAltGL = {-100, -100, 0};
using Fields = std::map<std::string, std::string>;

}  // namespace

TEST(AlleleCountTest, LeavesOutDroppedAllelesAndSamplesWithoutData) {
  SiteMaker maker("A", {"C", "G", "T"});
  const std::vector<double> gl(10, -1);
  maker.samples(2, {1, 1, 0, 0}, gl).samples(1, {0, 0, 0, 2}, gl).samples(1, {0, 0, 0, 1}, {-1, 0, -1, -1});
  maker.samples(1, {}, {}).samples(1, {}, gl);  // no data; all genotypes alike
  maker.site.alts[1].length = 0;
  maker.model.mleCounts = {2, 9, 4};
  Fields fields = maker.annotate();
  EXPECT_EQ(fields["AN"], "7");
  EXPECT_EQ(fields["AC"], "2,3");
  EXPECT_EQ(fields["AF"], "0.286,0.429");
  EXPECT_EQ(fields["MLEAC"], "2,4");
  EXPECT_EQ(fields["MLEAF"], "0.286,0.571");

  AnnotationSet wanted;
  wanted.add(AnnotationField::AF);
  EXPECT_EQ(maker.annotate(wanted), (Fields{{"AF", "0.286,0.429"}}));
  EXPECT_EQ(SiteMaker("A", {}).samples(1, {2}, {0}).annotate(), (Fields{{"AN", "2"}}));
  EXPECT_EQ(SiteMaker("A", {"C"}).samples(1, {}, {}).annotate(), Fields());
}

TEST(CoverageTest, QualityByDepth) {
  const auto qd = [](SiteMaker& maker, double qual) {
    maker.context.qual = qual;
    return maker.annotate()["QD"];
  };
  SiteMaker snp("A", {"C"});
  snp.samples(1, kHet, kHetGL, 20).samples(1, kHomRef, kHomRefGL, 50).samples(1, {}, {});
  EXPECT_EQ(qd(snp, 100), "5.000");  // the homozygous reference does not dilute it
  EXPECT_EQ(qd(snp, 699.9), "34.995");
  EXPECT_EQ(qd(snp, 700), "30.000");
  EXPECT_EQ(qd(snp, std::nan("")), "");
  // Two copies of a deletion of 9, one of an insertion of 3: (2 * 9 + 3) / 3 / 3.
  SiteMaker indel("AAAAAAAAAA", {"A", "AAAAAAAAAAAAA"});
  indel.samples(1, {0, 2, 0}, std::vector<double>(6, 0), 4)
      .samples(1, {1, 0, 1}, std::vector<double>(6, 0), 6);
  EXPECT_EQ(qd(indel, 70), "3.000");
  // Of equal length: six different bases, or at least 1.
  EXPECT_EQ(qd(SiteMaker("ACGTACG", {"TGCATCC"}).samples(1, kHet, kHetGL, 10), 100), "5.000");
  EXPECT_EQ(qd(SiteMaker("ACGTACG", {"TCGTACC"}).samples(1, kHet, kHetGL, 10), 100), "10.000");
}

TEST(CoverageTest, DepthAndMappingQuality) {
  SiteMaker maker("A", {"C"});
  maker.samples(1, kHet, kHetGL, 4).samples(1, kHomRef, kHomRefGL, 7).samples(1, {}, {});
  maker.context.gqMean = 30.25;
  maker.reads(2, 0, false, 30, 30).reads(1, 1, false, 2, 50).reads(1, 1, false, 30, 0).reads(1, -1);
  Fields fields = maker.annotate();
  EXPECT_EQ(fields["DP"], "11");
  EXPECT_EQ(fields["MQ"], "32.787");         // sqrt(4300 / 4)
  EXPECT_EQ(fields["RAW_MQ"], "11825.000");  // for each of DP, also those without a base here
  EXPECT_EQ(fields["MQ0"], "1");
  EXPECT_EQ(fields["GQ_MEAN"], "30.250");
  EXPECT_EQ(fields.count("MIN_DP") + fields.count("SB") + fields.count("GQ_STDDEV"), 0u);  // not a number
}

TEST(InbreedingTest, TenSamplesMakeACoefficient) {
  const auto cohort = [](int refs, int hets, int homs) {
    SiteMaker maker("A", {"C"});
    maker.samples(refs, kHomRef, kHomRefGL).samples(hets, kHet, kHetGL).samples(homs, kHomAlt, kHomAltGL);
    maker.samples(1, {0, 1}, {-9, 0}).samples(1, {}, {});  // neither is diploid with data
    return maker.annotate();
  };
  Fields nine = cohort(0, 9, 0), ten = cohort(0, 10, 0), mixed = cohort(6, 2, 2);
  EXPECT_EQ(nine.count("InbreedingCoeff"), 0u);
  EXPECT_EQ(nine["ExcessHet"], "19.7754");  // C(18, 9) / 2^9
  EXPECT_EQ(ten["InbreedingCoeff"], "-1.0000");
  EXPECT_EQ(ten["ExcessHet"], "22.5630");
  EXPECT_EQ(mixed["InbreedingCoeff"], "0.5238");  // 1 - 2 / (20 * 0.7 * 0.3)
  EXPECT_EQ(cohort(12, 0, 0).count("InbreedingCoeff"), 0u);
  EXPECT_EQ(cohort(12, 0, 0)["ExcessHet"], "0.0000");
  EXPECT_EQ(cohort(0, 4000, 0)["ExcessHet"], "2147483647.0000");
}

TEST(StrandBiasTest, PileupTakesTheLargerP) {
  SiteMaker maker("A", {"C"});
  maker.samples(1, kHet, kHetGL).reads(8, 0).reads(8, 1, true);
  Fields strict = maker.annotate();
  EXPECT_EQ(strict["FS"], "38.085");  // p = 2 / C(16, 8)
  maker.reads(9, 1, false, 5).reads(9, 1, false, 30, 0).reads(9, 1, false, 30, 255).reads(9, -1);
  EXPECT_EQ(maker.annotate()["FS"], strict["FS"]);  // none of these counts
  EXPECT_EQ(maker.annotate()["SOR"], strict["SOR"]);
  maker.reads(8, 1, false, 16);  // below 17 in the second table only
  char expected[16];
  snprintf(expected, sizeof expected, "%.3f", -10 * std::log10(fisherP({8, 0, 8, 8})));
  EXPECT_EQ(maker.annotate()["FS"], expected);
  snprintf(expected, sizeof expected, "%.3f", strandOddsRatio({8, 0, 8, 8}));
  EXPECT_EQ(maker.annotate()["SOR"], expected);
  maker.context.gvcf = true;
  EXPECT_EQ(maker.annotate().count("FS") + maker.annotate().count("SOR"), 0u);
}

TEST(StrandBiasTest, WhatIsNotAsked) {
  SiteMaker two("A", {"C", "G"}), few("A", {"C"}), rows("A", {"C", "G"});
  const std::vector<double> gl(6, 0);
  EXPECT_EQ(two.samples(1, {1, 1, 0}, gl).reads(8, 0).reads(8, 1, true).annotate().count("FS"), 0u);
  EXPECT_EQ(few.samples(1, kHet, kHetGL).reads(1, 0).reads(1, 1, true).annotate().count("FS"), 0u);
  // Rows tell alleles apart whatever the base at the position, and alternates count together.
  rows.samples(1, {1, 1, 0}, gl)
      .asRows()
      .reads(8, 0, false, 2)
      .reads(4, 1, true)
      .reads(4, 2, true)
      .reads(9, -1);
  EXPECT_EQ(rows.annotate()["FS"], "38.085");
}

TEST(RankSumFieldTest, EachFieldHasItsOwnValues) {
  const auto annotate = [](auto&& add) {
    SiteMaker maker("A", {"C", "G"});
    maker.samples(1, {1, 1, 0}, std::vector<double>(6, 0));
    maker.site.alts[1].length = 0;
    maker.reads(2, 0).reads(2, 2, false, 60).reads(3, 1, false, 40, 0).reads(3, 1, false, 5);
    add(maker);
    return maker.annotate();
  };
  const std::vector<std::string> keys = {"BaseQRankSum", "ClippingRankSum", "MQRankSum", "ReadPosEndDist",
                                         "ReadPosRankSum"};
  const auto values = [&](Fields fields) {
    std::string text;
    for (const std::string& key : keys) text += fields[key] + ' ';
    return text;
  };
  // Two against two without overlap: Z = 2 / sqrt(4 / 12 * (5 - 12 / 12)), of either sign.
  EXPECT_EQ(values(annotate([](SiteMaker& m) { m.reads(2, 1); })), "0.000 0.000 0.000 0.000 0.000 ");
  EXPECT_EQ(values(annotate([](SiteMaker& m) { m.reads(2, 1, false, 31); })),
            "1.732 0.000 0.000 0.000 0.000 ");
  EXPECT_EQ(values(annotate([](SiteMaker& m) { m.reads(2, 1, false, 30, 59); })),
            "0.000 0.000 -1.732 0.000 0.000 ");
  EXPECT_EQ(values(annotate([](SiteMaker& m) { m.reads(2, 1, false, 30, 60, "20M7H"); })),
            "0.000 1.732 0.000 0.000 0.000 ");
  EXPECT_EQ(values(annotate([](SiteMaker& m) { m.reads(2, 1, false, 30, 60, "4S16M"); })),
            "0.000 1.732 0.000 0.000 -1.732 ");
  EXPECT_EQ(values(annotate([](SiteMaker& m) {
              m.reads(1, 1, false, 30, 60, "20M", 0);
              m.reads(1, 1, false, 30, 60, "20M", 19);
            })),
            "0.000 0.000 0.000 -1.732 -1.732 ");
  Fields none = annotate([](SiteMaker&) {});
  for (const std::string& key : keys) EXPECT_EQ(none.count(key), 0u) << key;
}
