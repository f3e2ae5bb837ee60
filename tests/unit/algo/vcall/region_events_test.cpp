#include "algo/vcall/region_events.h"

#include <cmath>
#include <gmock/gmock.h>
#include <random>
#include <tuple>

#include "algo/vcall/model/genotype_index.h"
#include "read_builder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;
using Carriers = std::vector<std::vector<size_t>>;
const double kNaN = std::nan("");

struct RegionEventsTest : testing::Test {
  //                             100       110       120
  const ReferenceWindow reference{"GATTACAGGCATTCGAACCTGATCCGTA", 100};
  std::vector<std::unique_ptr<Haplotype>> haplotypes;

  // A haplotype by its events: position, reference, alternate.
  void add(const std::vector<std::tuple<uint32_t, std::string, std::string>>& events) {
    haplotypes.push_back(std::make_unique<Haplotype>());
    for (const auto& [position, ref, alt] : events)
      haplotypes.back()->eventMap[position] = {position, ref, alt, HaplotypeEvent::kSNP};
  }
  std::vector<EventSite> collect(uint32_t start = 100, uint32_t end = 128,
                                 const GivenAlleles* given = nullptr) const {
    return collectEvents(haplotypes, reference, start, end, given);
  }
};

void expectSite(const EventSite& site, uint32_t position, const std::string& ref, const Texts& alts,
                const Carriers& carriers) {
  EXPECT_EQ(site.position, position);
  EXPECT_EQ(site.ref, ref);
  EXPECT_EQ(site.alts, alts);
  EXPECT_EQ(site.carriers, carriers);
}

TEST_F(RegionEventsTest, EventsOfOnePositionHaveOneSpan) {
  add({});
  add({{105, "C", "T"}});
  add({{105, "CAG", "C"}});
  add({{105, "C", "CTT"}, {120, "G", "A"}});
  add({{105, "C", "T"}, {120, "G", "A"}});
  add({{105, "CAGGC", "T"}, {120, "G", "N"}});
  const auto sites = collect();
  ASSERT_EQ(sites.size(), 2u);
  expectSite(sites[0], 105, "CAGGC", {"TAGGC", "CGC", "CTTAGGC", "T"}, {{0}, {1, 4}, {2}, {3}, {5}});
  expectSite(sites[1], 120, "G", {"A"}, {{0, 1, 2}, {3, 4}});  // none carries N
  EXPECT_FALSE(sites[0].isSNP());
  EXPECT_TRUE(sites[1].isSNP());
  EXPECT_EQ(sites[0].end(), 110u);
  EXPECT_THAT(collect(106, 120), IsEmpty());
  EXPECT_EQ(collect(105, 121).size(), 2u);
  haplotypes.resize(1);
  EXPECT_THAT(collect(), IsEmpty());
}

TEST_F(RegionEventsTest, ADeletionThatSpansASiteCarriesItsReference) {
  add({});
  add({{104, "ACAGG", "A"}});
  add({{107, "G", "C"}});
  const auto sites = collect();
  ASSERT_EQ(sites.size(), 2u);
  expectSite(sites[1], 107, "G", {"C"}, {{0, 1}, {2}});
}

TEST_F(RegionEventsTest, GivenAllelesAreThoseOfTheFile) {
  add({});
  add({{105, "C", "T"}});
  add({{105, "C", "T"}, {106, "A", "G"}});
  add({{105, "CAG", "C"}});
  add({{106, "AG", "A"}});
  GivenAlleles given;
  given.snps[105] = {{"C", {"G", "T"}}};
  given.snps[110] = {{"T", {"A"}}};  // not the reference's base
  given.snps[127] = {{"A", {"C"}}};
  given.others[105] = {{"CA", {"TG", "T"}}};
  given.others[126] = {{"TAA", {"T"}}};  // leads out of what is known
  const auto sites = collect(100, 127, &given);
  ASSERT_EQ(sites.size(), 2u);
  expectSite(sites[0], 105, "C", {"G", "T"}, {{0, 4}, {}, {1, 2}});
  expectSite(sites[1], 105, "CA", {"TG", "T"}, {{0}, {2}, {}});
}

struct AlleleRowsTest : testing::Test {
  EventSite site{1000, "AC", {"A", "AG", "T"}, {{0, 2}, {1, 4}, {3}, {}}};
  std::vector<ReadClip> reads;
  std::vector<double> values;  // under 5 haplotypes
  AlleleRows rows;

  void add(uint32_t start, uint32_t end, std::vector<double> row, int32_t sample = 0) {
    ReadClip clip;
    clip.refStart = start, clip.refEnd = end, clip.sample = sample;
    reads.push_back(clip);
    values.insert(values.end(), row.begin(), row.end());
  }
  std::vector<double> row(size_t read) const {
    const double* const first = rows.values.data() + read * rows.alleles;
    return {first, first + rows.alleles};
  }
};

TEST_F(AlleleRowsTest, TheBestCarrierSpeaks) {
  add(900, 1050, {-5, -2, -4, -9, -3});
  add(900, 1050, {-1, -8, -7, -6, -8});
  add(900, 1050, {kNaN, -8, -7, -6, -8});
  alleleLikelihoods(site, reads, values, 5, false, rows);
  EXPECT_THAT(row(0), ElementsAre(-4, -2, -9, -9));
  EXPECT_THAT(row(1), ElementsAre(-1, -8, -6, -8));
  EXPECT_THAT(row(2), testing::Each(testing::IsNan()));
  alleleLikelihoods(site, reads, values, 5, true, rows);
  EXPECT_THAT(row(0), ElementsAre(-4, -2, -9, -9, -4));
  EXPECT_THAT(row(1), ElementsAre(-1, -8, -6, -8, -6));
  EXPECT_THAT(row(2), testing::Each(testing::IsNan()));
}

TEST_F(AlleleRowsTest, ReadsFarFromTheSiteAreOut) {
  const std::vector<std::pair<uint32_t, uint32_t>> spans = {
      {900, 998}, {900, 999}, {1003, 1100}, {1004, 1100}, {1001, 1002}};
  for (const auto& [start, end] : spans) add(start, end, {-1, -1, -1, -1, -1});
  alleleLikelihoods(site, reads, values, 5, true, rows);
  std::vector<bool> out;
  for (size_t r = 0; r < reads.size(); ++r) out.push_back(std::isnan(row(r)[0]));
  EXPECT_THAT(out, ElementsAre(true, false, false, true, false));
}

TEST_F(AlleleRowsTest, TheBestAlternatesStay) {
  add(900, 1050, {-1, -5, -9, -4, -9});
  add(900, 1050, {-1, -5, -9, -5, -9});
  add(900, 1050, {kNaN, 0, 0, -500, 0});
  alleleLikelihoods(site, reads, values, 5, true, rows);
  EventSite all = site;
  limitAlternates(all, rows, 3);
  expectSite(all, 1000, "AC", site.alts, site.carriers);
  EventSite one = site;
  limitAlternates(one, rows, 1);
  expectSite(one, 1000, "AC", {"AG"}, {{0, 2}, {3}});
  limitAlternates(site, rows, 2);
  expectSite(site, 1000, "AC", {"A", "AG"}, {{0, 2}, {1, 4}, {3}});
}

// The formula of the mixture, read by read; impossible reads leave all numbers finite.
TEST_F(AlleleRowsTest, GenotypesAreMixturesOfAlleles) {
  std::mt19937 random{3};
  std::uniform_real_distribution<double> log10(-12, -1);
  for (int r = 0; r < 40; ++r)
    add(900, 1050, {log10(random), log10(random), log10(random)}, r % 4 == 3 ? -1 : 2 * (r & 1));
  values[0] = kNaN;
  for (const uint32_t ploidy : {1u, 2u, 4u}) {
    std::vector<GenotypeLikelihoods> samples(3, {7, {1, 2}});
    genotypeLikelihoods(reads, values.data(), 3, ploidy, samples);
    EXPECT_THAT(samples[1].gl, IsEmpty());
    for (const int32_t sample : {0, 2}) {
      std::vector<double> want;
      for (GenotypeIndex genotype(ploidy, 3); !genotype.exhausted(); genotype.next()) {
        want.push_back(0);
        for (size_t r = 1; r < reads.size(); ++r) {
          double sum = 0;
          for (size_t a = 0; a < 3; ++a) sum += genotype.counts[a] * std::pow(10, values[r * 3 + a]);
          if (reads[r].sample == sample) want.back() += std::log10(sum / ploidy);
        }
      }
      const double best = *std::max_element(want.begin(), want.end());
      const GenotypeLikelihoods& got = samples[size_t(sample)];
      EXPECT_EQ(got.ploidy, ploidy);
      ASSERT_EQ(got.gl.size(), want.size());
      for (size_t g = 0; g < want.size(); ++g) EXPECT_NEAR(got.gl[g], want[g] - best, 0.0511);
    }
    std::vector<double> impossible(values.size(), -INFINITY);
    makeRowsFinite(impossible);
    genotypeLikelihoods(reads, impossible.data(), 3, ploidy, samples);
    EXPECT_THAT(samples[0].gl, testing::Each(0));
  }
}

}  // namespace
