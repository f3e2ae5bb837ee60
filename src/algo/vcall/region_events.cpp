#include "algo/vcall/region_events.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <string_view>
#include <utility>

#include "algo/vcall/model/genotype_from_rows.h"
#include "base/bases.h"

namespace {

using Haplotypes = std::vector<std::unique_ptr<Haplotype>>;

bool isUsable(const HaplotypeEvent& event) {
  return allBases(event.ref) && allBases(event.alt);
}

// The events of one position, in the order of the haplotypes; null for a haplotype without one.
EventSite mergeEvents(uint32_t position, const std::vector<const HaplotypeEvent*>& events) {
  EventSite site;
  site.position = position;
  for (const HaplotypeEvent* event : events)
    if (event && isUsable(*event) && event->ref.size() > site.ref.size()) site.ref = event->ref;
  site.carriers.resize(1);
  for (size_t h = 0; h < events.size(); ++h) {
    if (!events[h]) {
      site.carriers[0].push_back(h);
      continue;
    }
    if (!isUsable(*events[h])) continue;
    const std::string alt = events[h]->alt + site.ref.substr(events[h]->ref.size());
    const auto at = size_t(std::find(site.alts.begin(), site.alts.end(), alt) - site.alts.begin());
    if (at == site.alts.size()) {
      site.alts.push_back(alt);
      site.carriers.emplace_back();
    }
    site.carriers[at + 1].push_back(h);
  }
  return site;
}

std::vector<EventSite> sitesOfEvents(const Haplotypes& haplotypes, uint32_t start, uint32_t end) {
  std::map<uint32_t, std::vector<const HaplotypeEvent*>> positions;
  for (size_t h = 0; h < haplotypes.size(); ++h) {
    const EventMap& events = haplotypes[h]->eventMap;
    for (auto event = events.lower_bound(start); event != events.end() && event->first < end; ++event) {
      auto& here = positions[event->first];
      here.resize(haplotypes.size());
      here[h] = &event->second;
    }
  }
  std::vector<EventSite> sites;
  for (const auto& [position, events] : positions) {
    EventSite site = mergeEvents(position, events);
    if (!site.alts.empty()) sites.push_back(std::move(site));
  }
  return sites;
}

// What the haplotype has in place of `ref` at `position`. False when an event leads out of there. Of a deletion that
// begins before, as if it were not there.
bool spellOver(const Haplotype& haplotype, uint32_t position, std::string_view ref, std::string& spelled) {
  spelled.clear();
  size_t done = 0;  // of `ref`
  const auto& events = haplotype.eventMap;
  const auto end = events.lower_bound(position + static_cast<uint32_t>(ref.size()));
  for (auto at = events.lower_bound(position); at != end; ++at) {
    const HaplotypeEvent& event = at->second;
    const size_t offset = event.position - position;
    if (offset < done || event.ref.size() > ref.size() - offset) return false;
    spelled.append(ref, done, offset - done).append(event.alt);
    done = offset + event.ref.size();
  }
  spelled.append(ref, done);
  return true;
}

EventSite siteOfRecord(uint32_t position, const GivenAlleles::Record& record, const Haplotypes& haplotypes) {
  EventSite site{position, record.ref, record.alts, {}};
  site.carriers.resize(record.alts.size() + 1);
  std::string spelled;
  for (size_t h = 0; h < haplotypes.size(); ++h) {
    if (!spellOver(*haplotypes[h], position, record.ref, spelled)) continue;
    if (spelled == record.ref) {
      site.carriers[0].push_back(h);
      continue;
    }
    const auto alt = std::find(record.alts.begin(), record.alts.end(), spelled);
    if (alt != record.alts.end()) site.carriers[size_t(alt - record.alts.begin()) + 1].push_back(h);
  }
  return site;
}

std::vector<EventSite> sitesOfRecords(const Haplotypes& haplotypes, const ReferenceWindow& reference,
                                      uint32_t start, uint32_t end, const GivenAlleles& given) {
  std::vector<EventSite> sites;
  for (const auto* records : {&given.snps, &given.others}) {
    for (auto at = records->lower_bound(start); at != records->end() && at->first < end; ++at) {
      if (!reference.contains(at->first)) continue;
      for (const GivenAlleles::Record& record : at->second)
        if (reference.bases.compare(at->first - reference.start, record.ref.size(), record.ref) == 0)
          sites.push_back(siteOfRecord(at->first, record, haplotypes));
    }
  }
  std::stable_sort(sites.begin(), sites.end(),
                   [](const EventSite& a, const EventSite& b) { return a.position < b.position; });
  return sites;
}

bool reaches(const ReadClip& read, const EventSite& site) {
  return uint64_t{read.refEnd} + kSiteMargin > site.position &&
         read.refStart < uint64_t{site.end()} + kSiteMargin;
}

double secondBest(const double* first, size_t count) {
  double best = -std::numeric_limits<double>::infinity(), second = best;
  for (size_t i = 0; i < count; ++i) {
    if (first[i] > best)
      second = std::exchange(best, first[i]);
    else
      second = std::max(second, first[i]);
  }
  return second;
}

}  // namespace

bool EventSite::isSNP() const {
  return ref.size() == 1 &&
         std::all_of(alts.begin(), alts.end(), [](const std::string& alt) { return alt.size() == 1; });
}

std::vector<EventSite> collectEvents(const Haplotypes& haplotypes, const ReferenceWindow& reference,
                                     uint32_t start, uint32_t end, const GivenAlleles* given) {
  return given ? sitesOfRecords(haplotypes, reference, start, end, *given)
               : sitesOfEvents(haplotypes, start, end);
}

void alleleLikelihoods(const EventSite& site, const std::vector<ReadClip>& reads,
                       const std::vector<double>& haplotypeRows, size_t haplotypes, bool nonRef,
                       AlleleRows& rows) {
  const size_t known = site.carriers.size();
  rows.alleles = known + (nonRef ? 1 : 0);
  rows.values.resize(reads.size() * rows.alleles);
  for (size_t r = 0; r < reads.size(); ++r) {
    const double* const row = haplotypeRows.data() + r * haplotypes;
    double* const out = rows.values.data() + r * rows.alleles;
    if (std::isnan(row[0]) || !reaches(reads[r], site)) {
      std::fill(out, out + rows.alleles, std::numeric_limits<double>::quiet_NaN());
      continue;
    }
    for (size_t a = 0; a < known; ++a) {
      const std::vector<size_t>& carriers = site.carriers[a];
      out[a] = carriers.empty() ? *std::min_element(row, row + haplotypes) : row[carriers[0]];
      for (size_t h : carriers) out[a] = std::max(out[a], row[h]);
    }
    if (nonRef) out[known] = std::max(secondBest(out, known), kImpossibleRead);
  }
}

void limitAlternates(EventSite& site, const AlleleRows& rows, size_t limit) {
  const size_t alts = site.alts.size();
  if (alts <= limit) return;
  std::vector<double> sums(alts);
  for (size_t at = 0; at < rows.values.size(); at += rows.alleles) {
    if (std::isnan(rows.values[at])) continue;
    for (size_t a = 0; a < alts; ++a) sums[a] += rows.values[at + a + 1];
  }
  std::vector<size_t> order(alts);
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return sums[a] > sums[b]; });
  order.resize(limit);
  std::sort(order.begin(), order.end());
  EventSite kept{site.position, site.ref, {}, {std::move(site.carriers[0])}};
  for (size_t a : order) {
    kept.alts.push_back(std::move(site.alts[a]));
    kept.carriers.push_back(std::move(site.carriers[a + 1]));
  }
  site = std::move(kept);
}
