#include "algo/onco/tn_filters.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

AlleleEvidence evidence(int ref, int alt, int altQualSum = 0) {
  return {ref, alt, 0, altQualSum};
}
TandemRepeat repeat(int ref, int alt) {
  return {true, "AC", {ref, alt}};
}

TNThresholds thresholds(bool contraction = true) {
  TNThresholds t;
  t.filterStrContraction = contraction;
  return t;
}

std::string filtersOf(const TNCall& call, const TNThresholds& t = thresholds()) {
  VariantContext record;
  const char* const seen = addFilters(call, t, record) ? " seen" : "";
  return record.filter + seen;
}

TEST(TNFilters, OnEitherSide) {
  const char* const kInNormal = "alt_allele_in_normal seen";
  const struct {
    const char* filter;
    std::function<void(TNCall&, bool)> set;  // fails, or only just does not
    const char* otherwise = "";
  } cases[] = {
      {"germline_risk", [](TNCall& c, bool bad) { c.lod.normal = bad ? 2.1999 : 2.2; }},
      {"germline_risk", [](TNCall& c, bool bad) { c.isKnown = true, c.lod.normal = bad ? 5.4999 : 5.5; }},
      {"germline_risk", [](TNCall& c, bool bad) { c.isKnown = true, c.isCosmic = !bad, c.lod.normal = 2.2; }},
      {"triallelic_site", [](TNCall& c, bool bad) { c.numPass = bad ? 2 : 1; }},
      {"t_lod_fstar", [](TNCall& c, bool bad) { c.lod.tumor = bad ? 6.2999 : 6.3; }},
      {"low_t_alt_frac", [](TNCall& c, bool bad) { c.tumor = evidence(bad ? 199 : 198, 2); }},
      {"panel_of_normals", [](TNCall& c, bool bad) { c.inPanel = bad; }},
      // By count: 2 reads; by fraction: 1 of 33; and in both cases by quality.
      {kInNormal, [](TNCall& c, bool bad) { c.normal = evidence(99, bad ? 2 : 1, 21); }},
      {kInNormal, [](TNCall& c, bool bad) { c.normal = evidence(bad ? 32 : 33, 1, 21); }},
      {kInNormal, [](TNCall& c, bool bad) { c.normal = evidence(9, 2, bad ? 21 : 20); }, " seen"},
      {"str_contraction", [](TNCall& c, bool bad) { c.repeat = repeat(3, bad ? 2 : 1); }},
      {"str_contraction", [](TNCall& c, bool bad) { c.repeat = repeat(bad ? 4 : 2, 3); }},
  };
  for (const auto& c : cases)
    for (const bool fails : {false, true}) {
      TNCall call;
      call.hasNormal = true, call.numPass = 1, call.lod = {50, 20, 0.3}, call.tumor = evidence(70, 30);
      c.set(call, fails);
      EXPECT_EQ(filtersOf(call), fails ? c.filter : c.otherwise);
    }
}

TEST(TNFilters, AllInOrder) {
  TNCall call;
  call.hasNormal = call.inPanel = true;
  call.normal = evidence(0, 5, 100);
  call.repeat = repeat(4, 3);
  EXPECT_EQ(filtersOf(call),
            "germline_risk;triallelic_site;t_lod_fstar;low_t_alt_frac;panel_of_normals;"
            "alt_allele_in_normal;str_contraction seen");
  call.hasNormal = false;
  EXPECT_EQ(filtersOf(call, thresholds(false)),
            "triallelic_site;t_lod_fstar;low_t_alt_frac;panel_of_normals");
}

using Filters = std::vector<std::string>;

void checkRegion(const std::vector<uint32_t>& positions, const Filters& own,
                 const std::vector<bool>& altInNormal, const Filters& expected, const std::string& longest,
                 const std::string& shortest) {
  std::vector<VariantContext> records(own.size());
  std::vector<VariantContext*> pointers;
  for (size_t i = 0; i < own.size(); ++i) {
    records[i].start = positions[i];
    records[i].filter = own[i];
    pointers.push_back(&records[i]);
  }
  addRegionFilters(pointers, altInNormal);
  const VariantAttr info = {
      {"ECNT", {std::to_string(own.size())}}, {"MAX_ED", {longest}}, {"MIN_ED", {shortest}}};
  for (size_t i = 0; i < own.size(); ++i) {
    EXPECT_EQ(records[i].filter, expected[i]);
    EXPECT_EQ(records[i].info, info);
  }
}

TEST(TNFilters, Regions) {
  const std::string alt = "alt_allele_in_normal", multi = "multi_event_" + alt, many = ";clustered_events";
  checkRegion({100}, {""}, {true}, {"PASS"}, ".", ".");
  checkRegion({100, 112}, {"", "x"}, {false, false}, {"PASS", "x"}, "12", "12");
  checkRegion({100, 101}, {"x", alt}, {true, true}, {"x;" + multi, alt}, "1", "1");
  checkRegion({100, 110, 140}, {"", alt, ""}, {true, true, false},
              {multi + many, alt + many, "homologous_mapping_event" + many}, "30", "10");
}

}  // namespace
