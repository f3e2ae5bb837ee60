#include "algo/onco/locus_reads.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "algo/onco/tn_annotations.h"
#include "locus_maker.h"

namespace {

// Whether each read counts, as text: '1' or '0'.
std::string counting(const LocusReads& reads) {
  std::string text;
  for (const LocusRead& read : reads.reads()) text += read.counts() ? '1' : '0';
  return text;
}

TEST(LocusReads, Build) {
  LocusMaker maker;
  maker.add(kTumor, "ahead", {-1.0, -1.25})
      .add(kTumor, "close", {-1.0, -1.1875})
      .add(kNormal, "out", {std::numeric_limits<double>::quiet_NaN(), -1.0})
      .add(kNormal, readBuilder("gap").at(0, 90).cigar("5M12D15M"), {-3.0, -1.0})
      .add(kNormal, readBuilder("clipped").at(0, 96).cigar("3S2M1I14M").qual(9), {-3.0, -1.0})
      .add(kNormal, readBuilder("before").at(0, 80).cigar("20M"), {-3.0, -1.0});
  std::vector<std::array<int, 4>> found;
  const LocusReads reads = maker.build();
  for (const LocusRead& r : reads.reads()) found.push_back({r.allele, r.offset, r.base, r.qual});
  EXPECT_EQ(found, (std::vector<std::array<int, 4>>{
                       {0, 10, 'G', 30}, {-1, 10, 'G', 30}, {1, -1, 0, 0}, {1, 8, 'A', 9}, {1, -1, 0, 0}}));
  EXPECT_EQ(reads.row(2)[1], -1.0);
}

TEST(LocusReads, Overlap) {
  const struct {
    std::vector<double> first, second;
    const char* counting;
  } cases[] = {
      {{-1, -4}, {-2, -5}, "10"},      // both for the reference: the likelier one stays
      {{-5, -2}, {-4, -1}, "01"},      // both for the alternate
      {{-1, -4}, {-3, -1}, "10"},      // they disagree, and the first is surer
      {{-1, -2}, {-4, -1}, "01"},      // ... or the second
      {{-0.1, -0.2}, {-4, -1}, "10"},  // one does not tell, but is likelier
      {{-1, -4}, {-1, -4}, "10"},      // no difference
  };
  for (const auto& c : cases) {
    LocusMaker maker;
    maker.add(kTumor, "pair", c.first).add(kNormal, "pair", c.first).add(kTumor, "pair", c.second);
    maker.add(kTumor, "other", c.first);
    LocusReads reads = maker.build();
    reads.removeOverlap();
    const std::string expected = {c.counting[0], '1', c.counting[1], '1'};
    EXPECT_EQ(counting(reads), expected);
    EXPECT_EQ(reads.reads()[0].status, c.counting[0] == '0' ? 8u | 64u : 8u);
    EXPECT_EQ(reads.reads()[1].status, 0u);  // of another sample
  }
  // Of more than two one stays, the likeliest.
  LocusMaker maker;
  maker.add(kTumor, "a", {-2, -5}).add(kTumor, "a", {-1, -4}).add(kTumor, "a", {-1.5, -4.5});
  LocusReads reads = maker.build();
  reads.removeOverlap();
  EXPECT_EQ(counting(reads), "010");
  // Another lane has another fragment of that name.
  LocusMaker lanes;
  lanes.add(kTumor, "a", {-2, -5}).add(kTumor, "a", {-1, -4}, 0, 1).add(kTumor, "a", {-1.5, -4.5});
  reads = lanes.build();
  reads.removeOverlap();
  EXPECT_EQ(counting(reads), "011");
}

TEST(LocusReads, DownsampleShares) {
  const struct {
    int ref, alt;
    double fraction;
    int mode, refLeft, altLeft;
  } cases[] = {
      {90, 10, 0, 1, 90, 10},    {90, 10, 0.0099, 1, 90, 10}, {90, 10, 0.1, 1, 85, 5},
      {90, 10, 0.01, 1, 89, 10},  // the odd one is of the reference
      {98, 2, 0.1, 1, 90, 0},     // what the alternate has not, the reference gives
      {0, 20, 0.3, 1, 0, 14},     // and the other way round
      {2, 18, 0.5, 1, 0, 10},    {90, 10, 0.999, 1, 1, 0},    {0, 0, 0.5, 1, 0, 0},
      {97, 3, 0.1, 0, 87, 3},    {93, 7, 0.1, 0, 84, 6},      {90, 10, 0.999, 0, 1, 0},
  };
  for (const auto& c : cases) {
    LocusMaker maker;
    maker.of(c.ref, kTumor, 0).of(c.alt, kTumor, 1).of(7, kNormal, 0).of(3, kNormal, 1);
    LocusReads reads = maker.build();
    reads.contaminationDownsample(kTumor, c.fraction, c.mode, "chr1", LocusMaker::kPosition);
    SCOPED_TRACE(c.fraction);
    const AlleleEvidence tumor = evidenceOf(reads, kTumor, 1), normal = evidenceOf(reads, kNormal, 1);
    EXPECT_EQ((std::vector{tumor.refCount, tumor.altCount}), (std::vector{c.refLeft, c.altLeft}));
    EXPECT_EQ((std::vector{normal.refCount, normal.altCount}), (std::vector{7, 3}));
  }
}

TEST(LocusReads, DownsampleDraw) {
  LocusMaker maker;
  maker.of(60, kTumor, 0).of(40, kTumor, 1);
  const auto draw = [&](const char* contig, uint32_t position) {
    LocusReads reads = maker.build();
    reads.contaminationDownsample(kTumor, 0.3, 1, contig, position);
    return counting(reads);
  };
  EXPECT_EQ(draw("chr1", 5), draw("chr1", 5));
  EXPECT_NE(draw("chr1", 5), draw("chr2", 5));
  // 15 of 60 of the reference go, in 2000 draws each of them about 500 times: the deviation is 19.
  std::vector<int> gone(60);
  for (uint32_t position = 0; position < 2000; ++position)
    for (size_t i = 0; const char counts : draw("chr1", position).substr(0, 60)) gone[i++] += counts == '0';
  EXPECT_GT(*std::min_element(gone.begin(), gone.end()), 400);
  EXPECT_LT(*std::max_element(gone.begin(), gone.end()), 600);
}

// The formulas over plain probabilities, of random rows.
TEST(Lods, AgreeWithNaive) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> likelihood(-6, 0);
  for (int round = 0; round < 200; ++round) {
    const size_t alleles = 2 + random() % 3;
    LocusMaker maker;
    for (size_t i = 0, n = random() % 60; i <= n; ++i) {
      std::vector<double> row(alleles);
      for (double& value : row) value = likelihood(random);
      maker.add(int32_t(random() % 2), "f" + std::to_string(random() % 40), row);
    }
    LocusReads reads = maker.build();
    reads.removeOverlap();
    reads.contaminationDownsample(kTumor, 0.1, 1, "chr1", uint32_t(round));
    std::vector<const double*> tumor, normal;
    for (size_t i = 0; i < reads.reads().size(); ++i)
      if (reads.reads()[i].counts())
        (reads.reads()[i].sample == kTumor ? tumor : normal).push_back(reads.row(i));
    const std::vector<TumorNormalLod> lods = calcLods(reads, true);
    ASSERT_EQ(lods.size(), alleles - 1);
    for (size_t a = 1; a < alleles; ++a) {
      double alt = 0, n = 0;
      for (const double* row : tumor) {
        std::vector<double> sorted(row, row + alleles);
        std::sort(sorted.rbegin(), sorted.rend());
        const bool counts = sorted[0] - sorted[1] > 0.2;
        alt += counts && row[a] == sorted[0];
        n += counts && (row[a] == sorted[0] || row[0] == sorted[0]);
      }
      const double f = n == 0 ? 0 : std::min(std::max(alt / n, 1 / (n + 1)), n / (n + 1));
      double tlod = 0, nlod = 0;
      for (const double* row : tumor) tlod += std::log10(1 - f + f * std::pow(10, row[a] - row[0]));
      for (const double* row : normal) nlod -= std::log10(0.5 + 0.5 * std::pow(10, row[a] - row[0]));
      EXPECT_DOUBLE_EQ(lods[a - 1].fraction, f);
      EXPECT_NEAR(lods[a - 1].tumor, tlod, 3e-3);  // each of 60 reads is summed within 3e-5
      EXPECT_NEAR(lods[a - 1].normal, nlod, 3e-3);
      EXPECT_EQ(calcLods(reads, false)[a - 1].normal, 0);
    }
  }
}

}  // namespace
