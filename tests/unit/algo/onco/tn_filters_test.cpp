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

TNThresholds thresholds(bool strContraction = true) {
  TNThresholds t;
  t.minTumorAlleleFrac = 0.02;
  t.filterStrContraction = strContraction;
  return t;
}

std::string filtersOf(const TNCall& call, const TNThresholds& t = thresholds()) {
  VariantContext record;
  const bool alt_in_normal = addFilters(call, t, record);
  return record.filter + (alt_in_normal ? " seen" : "");
}

TEST(TNFilters, OnEitherSide) {
  const struct {
    const char* filter;
    std::function<void(TNCall&, bool)> set;  // so that the filter fails, or only just does not
    const char* otherwise = "";
  } cases[] = {
      {"germline_risk", [](TNCall& c, bool fails) { c.lod.normal = fails ? 2.1999 : 2.2; }},
      {"germline_risk", [](TNCall& c, bool fails) { c.isKnown = true, c.lod.normal = fails ? 5.4999 : 5.5; }},
      {"germline_risk",
       [](TNCall& c, bool fails) { c.isKnown = true, c.isCosmic = !fails, c.lod.normal = 2.2; }},
      {"triallelic_site", [](TNCall& c, bool fails) { c.numPass = fails ? 2 : 1; }},
      {"t_lod_fstar", [](TNCall& c, bool fails) { c.lod.tumor = fails ? 6.2999 : 6.3; }},
      {"low_t_alt_frac", [](TNCall& c, bool fails) { c.tumor = evidence(fails ? 99 : 98, 2); }},
      {"panel_of_normals", [](TNCall& c, bool fails) { c.inPanel = fails; }},
      // By count: 2 reads; by fraction: 1 of 33; and in both cases by quality.
      {"alt_allele_in_normal seen",
       [](TNCall& c, bool fails) { c.normal = evidence(99, fails ? 2 : 1, 21); }},
      {"alt_allele_in_normal seen",
       [](TNCall& c, bool fails) { c.normal = evidence(fails ? 32 : 33, 1, 21); }},
      {"alt_allele_in_normal seen", [](TNCall& c, bool fails) { c.normal = evidence(9, 2, fails ? 21 : 20); },
       " seen"},
      {"str_contraction", [](TNCall& c, bool fails) { c.repeat = repeat(3, fails ? 2 : 1); }},
      {"str_contraction", [](TNCall& c, bool fails) { c.repeat = repeat(fails ? 4 : 2, 3); }},
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

struct Event {
  uint32_t position;
  const char* filter;
  bool altInNormal;
  const char* expected;
};

void checkRegion(const std::vector<Event>& events, const char* longest, const char* shortest) {
  std::vector<VariantContext> records(events.size());
  std::vector<VariantContext*> pointers;
  std::vector<bool> alt_in_normal;
  for (size_t i = 0; i < events.size(); ++i) {
    records[i].start = events[i].position;
    records[i].filter = events[i].filter;
    pointers.push_back(&records[i]);
    alt_in_normal.push_back(events[i].altInNormal);
  }
  addRegionFilters(pointers, alt_in_normal);
  for (size_t i = 0; i < events.size(); ++i) {
    EXPECT_EQ(records[i].filter, events[i].expected);
    const VariantAttr info = {
        {"ECNT", {std::to_string(events.size())}}, {"MAX_ED", {longest}}, {"MIN_ED", {shortest}}};
    EXPECT_EQ(records[i].info, info);
  }
}

TEST(TNFilters, Regions) {
  const char* const kAlt = "alt_allele_in_normal";
  checkRegion({}, "", "");
  checkRegion({{100, "", true, "PASS"}}, ".", ".");
  checkRegion({{100, "", false, "PASS"}, {112, "t_lod_fstar", false, "t_lod_fstar"}}, "12", "12");
  checkRegion({{100, "", true, "multi_event_alt_allele_in_normal"}, {101, kAlt, true, kAlt}}, "1", "1");
  checkRegion({{100, "", true, "multi_event_alt_allele_in_normal;clustered_events"},
               {110, kAlt, true, "alt_allele_in_normal;clustered_events"},
               {140, "", false, "homologous_mapping_event;clustered_events"}},
              "30", "10");
}

}  // namespace
