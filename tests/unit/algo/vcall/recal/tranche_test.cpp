#include "algo/vcall/recal/tranche.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <unistd.h>

#include "variant_data.h"

namespace {

using testing::ElementsAre;

VariantSet randomData(size_t count, double truth_share) {
  std::mt19937 draw(5);
  const auto chance = [&](double p) { return std::uniform_real_distribution<>()(draw) < p; };
  VariantSet data(count);
  for (VariantDatum& datum : data.data) {
    datum.isTruth = chance(truth_share);
    datum.isKnown = chance(0.4);
    datum.isBiallelicSNP = chance(0.8);
    datum.isTransition = datum.isBiallelicSNP && chance(0.6);
    datum.isAggregate = chance(0.1);
    datum.lod =
        std::round(std::normal_distribution<>(datum.isTruth ? 3 : 0, 3)(draw) * 10) / 10;  // with ties
  }
  return data;
}

// A cut at `target` stands at the variant behind the last truth site that may be lost, in ascending order.
TEST(Tranche, AgreesWithAPlainRecount) {
  VariantSet data = randomData(5000, 0.2);
  std::vector<const VariantDatum*> order;
  for (const VariantDatum& datum : data.data)
    if (!datum.isAggregate) order.push_back(&datum);
  std::stable_sort(order.begin(), order.end(), [](auto* a, auto* b) { return a->lod < b->lod; });
  const auto total = std::count_if(order.begin(), order.end(), [](auto* d) { return d->isTruth; });

  const std::vector<double> targets = {100, 99.9, 99, 90, 50.5};
  const std::vector<Tranche> tranches = createTranches(data.all(), targets, kBothModel);
  ASSERT_EQ(tranches.size(), targets.size());
  for (size_t i = 0; i < targets.size(); ++i) {
    const auto lost = std::ceil(double(total) * (100 - targets[i]) / 100 - 1e-9);
    size_t at = 0;
    for (double passed = 0; passed < lost; ++at) passed += order[at]->isTruth;
    const double cut = order[at]->lod;
    const auto above = [&](auto counts) {
      return std::count_if(order.begin(), order.end(), [&](auto* d) { return d->lod >= cut && counts(*d); });
    };
    using D = const VariantDatum&;
    const Tranche& tranche = tranches[i];
    EXPECT_EQ(tranche.minVQSLod, cut) << targets[i];
    EXPECT_EQ(tranche.numKnown, above([](D d) { return d.isKnown; }));
    EXPECT_EQ(tranche.numNovel, above([](D d) { return !d.isKnown; }));
    EXPECT_EQ(tranche.accessibleTruthSites, total);
    EXPECT_EQ(tranche.callsAtTruthSites, above([](D d) { return d.isTruth; }));
    const auto ti = above([](D d) { return d.isKnown && d.isBiallelicSNP && d.isTransition; });
    const auto tv = above([](D d) { return d.isKnown && d.isBiallelicSNP && !d.isTransition; });
    EXPECT_DOUBLE_EQ(tranche.knownTiTv, double(ti) / double(tv));
    const auto novel_ti = above([](D d) { return !d.isKnown && d.isTransition; });
    const auto novel_tv = above([](D d) { return !d.isKnown && !d.isTransition; });  // indels, too
    EXPECT_DOUBLE_EQ(tranche.novelTiTv, double(novel_ti) / double(novel_tv));
  }
}

TEST(Tranche, NeedsTruthAndTargetsInPercent) {
  EXPECT_TRUE(createTranches(randomData(50, 0).all(), kDefaultTargets, kSNPModel).empty());
  EXPECT_TRUE(createTranches({}, kDefaultTargets, kSNPModel).empty());
  for (double target : {-0.1, 100.1, std::nan("")})
    EXPECT_THROW(createTranches({}, {target}, kSNPModel), std::invalid_argument);
}

TEST(Tranche, TargetsAreToldApartByWhatTheFileHolds) {
  const std::vector<Tranche> tranches =
      createTranches(randomData(500, 0.5).all(), {99.124, 90, 99.12, 90}, kSNPModel);
  ASSERT_EQ(tranches.size(), 2u);
  EXPECT_EQ(tranches[0].targetTruthSensitivity, 99.124);
  RecalFilter filter;
  filter.choose({Tranche{"a", 99.12, 0, 0, 0, 0, 0, kSNPModel, 0, 0}}, 99.124);
  EXPECT_EQ(filter.tranches.size(), 1u);
}

TEST(Tranche, FileHoldsThemAscendingAndGivesThemDescending) {
  Tranche low{"", 90, 2.5, 2, 1.25, 10, 20, kIndelModel, 8, 7},
      high{"", 100, -3, 0, 0, 11, 22, kIndelModel, 0, 0};
  const std::string path = testing::TempDir() + "tranches" + std::to_string(getpid());
  writeTranches("Algo", path, {high, low});
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  EXPECT_EQ(text.str(),
            "# Variant quality score tranches file\n# Version number 5\n"
            "targetTruthSensitivity,numKnown,numNovel,knownTiTv,novelTiTv,minVQSLod,filterName,model,"
            "accessibleTruthSites,callsAtTruthSites,truthSensitivity\n"
            "90.00,10,20,2.0000,1.2500,2.5000,VQSRTrancheINDEL0.00to90.00,INDEL,8,7,0.8750\n"
            "100.00,11,22,0.0000,0.0000,-3.0000,VQSRTrancheINDEL90.00to100.00,INDEL,0,0,0.0000\n");
  const std::vector<Tranche> read = readTranches(path);
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].name + " " + read[1].name, "VQSRTrancheINDEL90.00to100.00 VQSRTrancheINDEL0.00to90.00");
  EXPECT_EQ(read[1].minVQSLod, 2.5);
  unlink(path.c_str());
}

TEST(RecalFilter, NamesTheTrancheOnEitherSideOfACut) {
  RecalFilter filter;
  filter.cutoff = -1;
  EXPECT_EQ(filter.filterFor(-1.0), "PASS");
  EXPECT_EQ(filter.filterFor(-1.0001), "LOW_VQSLOD");
  const auto tranche = [](const char* name, double target, double lod, uint32_t model = kSNPModel) {
    return Tranche{name, target, lod, 0, 0, 0, 0, model, 0, 0};
  };
  filter.choose({tranche("c", 100, -5), tranche("i", 99.9, 9, kIndelModel), tranche("b", 99.9, 0),
                 tranche("a", 99, 2), tranche("no", 90, 4)},
                99);
  std::string names;
  for (double lod : {-5.0001, -5.0, -0.0001, 0.0, 1.9999, 2.0}) names += filter.filterFor(lod) + " ";
  EXPECT_EQ(names, "c+ c c b b PASS ");
}

TEST(RecalFilter, JoinsTheFiltersOfARecord) {
  const auto joined = [](std::vector<std::string> filters, const char* added) {
    addFilter(filters, added);
    return filters;
  };
  for (const char* none : {"", ".", "PASS", "pass"}) {
    EXPECT_THAT(joined({none}, "low"), ElementsAre("low"));
    EXPECT_THAT(joined({none}, "PASS"), ElementsAre("PASS"));
  }
  EXPECT_THAT(joined({}, "low"), ElementsAre("low"));
  EXPECT_THAT(joined({"q10", "s50"}, "low"), ElementsAre("q10", "s50", "low"));
  EXPECT_THAT(joined({"q10", "low"}, "low"), ElementsAre("q10", "low"));
  EXPECT_THAT(joined({"q10"}, "PASS"), ElementsAre("q10"));
  EXPECT_THAT(joined({"PASS", "q10"}, "PASS"), ElementsAre("q10")) << "a filter does not get lost";
  EXPECT_THAT(joined({"PASS", "q10"}, "low"), ElementsAre("q10", "low"));
}

}  // namespace
