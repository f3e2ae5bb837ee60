#include "algo/onco/tn_filters.h"

#include <algorithm>
#include <cassert>

#include "algo/vcall/debug_positions.h"

namespace {

constexpr char kAltInNormal[] = "alt_allele_in_normal";

bool hasFilter(const VariantContext& record, const std::string& name) {
  return (";" + record.filter + ";").find(";" + name + ";") != std::string::npos;
}

bool isGermline(const TNCall& call, const TNThresholds& thresholds) {
  if (!call.hasNormal) return false;
  const bool is_germline_site = call.isKnown && !call.isCosmic;
  const double threshold = is_germline_site ? thresholds.minDbsnpNormalLod : thresholds.minNormalLod;
  if (call.debug) debugPrint("NORMAL_LOD_THRESHOLD %.6f\n", threshold);
  return call.lod.normal < threshold;
}

}  // namespace

bool addFilters(const TNCall& call, const TNThresholds& thresholds, VariantContext& record) {
  const AlleleEvidence& normal = call.normal;
  const bool alt_in_normal = call.hasNormal && (normal.altCount >= thresholds.maxNormalAltCnt ||
                                                normal.altFraction() >= thresholds.maxNormalAltFrac);
  if (isGermline(call, thresholds)) record.addFilter("germline_risk");
  if (call.numPass != 1) record.addFilter("triallelic_site");
  if (call.lod.tumor < thresholds.minTumorLod) record.addFilter("t_lod_fstar");
  if (call.tumor.altFraction() < thresholds.minTumorAlleleFrac) record.addFilter("low_t_alt_frac");
  if (call.inPanel) record.addFilter("panel_of_normals");
  if (alt_in_normal && normal.altQualSum > thresholds.maxNormalAltQsum) record.addFilter(kAltInNormal);
  if (thresholds.filterStrContraction && call.repeat.isContraction()) record.addFilter("str_contraction");
  return alt_in_normal;
}

void addRegionFilters(const std::vector<VariantContext*>& records, const std::vector<bool>& altInNormal) {
  assert(records.size() == altInNormal.size());
  const size_t events = records.size();
  uint32_t longest = 0, shortest = UINT32_MAX;
  for (size_t i = 1; i < events; ++i) {
    const uint32_t gap = records[i]->start - records[i - 1]->start;
    longest = std::max(longest, gap);
    shortest = std::min(shortest, gap);
  }
  for (size_t i = 0; i < events; ++i) {
    VariantContext& record = *records[i];
    record.addInfo("ECNT", "%zu", events);
    if (events < 2) {
      record.addInfo("MAX_ED", ".");
      record.addInfo("MIN_ED", ".");
    } else {
      record.addInfo("MAX_ED", "%u", longest);
      record.addInfo("MIN_ED", "%u", shortest);
      if (!hasFilter(record, kAltInNormal)) {
        if (altInNormal[i])
          record.addFilter("multi_event_alt_allele_in_normal");
        else if (events != 2)
          record.addFilter("homologous_mapping_event");
      }
      if (events > 2) record.addFilter("clustered_events");
    }
    if (record.filter.empty()) record.addFilter("PASS");
  }
}
