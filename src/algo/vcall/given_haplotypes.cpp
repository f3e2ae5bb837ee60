#include "algo/vcall/given_haplotypes.h"

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "readdata/bam/bam_record.h"

namespace {

struct GivenAllele {
  uint32_t start, end;  // the bases that differ
  std::string alt;
  bool operator==(const GivenAllele&) const = default;
};

GivenAllele differing(uint32_t position, std::string_view ref, std::string_view alt) {
  while (!ref.empty() && !alt.empty() && ref.back() == alt.back()) {
    ref.remove_suffix(1);
    alt.remove_suffix(1);
  }
  uint32_t shared = 0;
  while (shared < ref.size() && shared < alt.size() && ref[shared] == alt[shared]) ++shared;
  return {position + shared, position + uint32_t(ref.size()), std::string(alt.substr(shared))};
}

void collect(const std::map<uint32_t, std::vector<GivenAlleles::Record>>& records, ActiveRegion active,
             const ReferenceWindow& window, std::vector<GivenAllele>& alleles) {
  for (auto at = records.lower_bound(active.start); at != records.end() && at->first < active.end; ++at) {
    for (const GivenAlleles::Record& record : at->second) {
      if (at->first < window.start || at->first >= window.end() ||
          window.end() - at->first < record.ref.size() ||
          window.bases.compare(at->first - window.start, record.ref.size(), record.ref) != 0)
        continue;
      for (const std::string& alt : record.alts) {
        if (alt.empty() || alt == record.ref || alt.find_first_not_of("ACGT") != std::string::npos) continue;
        alleles.push_back(differing(at->first, record.ref, alt));
      }
    }
  }
}

void append(Cigar& cigar, size_t length, CigarOp op) {
  if (length == 0) return;
  if (!cigar.empty() && cigarOp(cigar.back()) == op)
    cigar.back() += uint32_t(length) << 4;
  else
    cigar.push_back(uint32_t(length) << 4 | op);
}

using Combination = std::vector<const GivenAllele*>;

// Those of the alleles, which are in order, that the haplotype has.
Combination sharedWith(const Haplotype& haplotype, const std::vector<GivenAllele>& alleles) {
  std::vector<GivenAllele> events;
  for (const auto& [position, event] : haplotype.eventMap)
    events.push_back(differing(event.position, event.ref, event.alt));
  Combination shared;
  for (const GivenAllele& allele : alleles)
    if (std::find(events.begin(), events.end(), allele) != events.end() &&
        (shared.empty() || shared.back()->end < allele.start))
      shared.push_back(&allele);
  return shared;
}

// The alleles put into the reference, in order; they do not touch.
std::unique_ptr<Haplotype> spell(const Combination& alleles, const ReferenceWindow& window,
                                 const Haplotype& reference) {
  auto made = std::make_unique<Haplotype>();
  made->locus = reference.locus;
  uint32_t at = window.start;
  const auto keep = [&](uint32_t end) {
    made->bases.append(window.from(at), end - at);
    append(made->cigar, end - at, CIGAR_M);
    at = end;
  };
  for (const GivenAllele* allele : alleles) {
    keep(allele->start);
    const size_t of_ref = allele->end - allele->start, both = std::min(of_ref, allele->alt.size());
    made->bases += allele->alt;
    append(made->cigar, both, CIGAR_M);
    append(made->cigar, allele->alt.size() - both, CIGAR_I);
    append(made->cigar, of_ref - both, CIGAR_D);
    at = allele->end;
  }
  keep(window.end());
  made->eventMap.build(made->bases, made->cigar, window.bases, window.start, 0);
  return made;
}

}  // namespace

std::vector<std::unique_ptr<Haplotype>> givenHaplotypes(
    const GivenAlleles& given, ActiveRegion active, const ReferenceWindow& window, const Haplotype& reference,
    const std::vector<std::unique_ptr<Haplotype>>& assembled, size_t limit) {
  std::vector<GivenAllele> alleles;
  collect(given.snps, active, window, alleles);
  collect(given.others, active, window, alleles);
  std::stable_sort(alleles.begin(), alleles.end(),
                   [](const GivenAllele& a, const GivenAllele& b) { return a.start < b.start; });

  // Each alone first, so that the limit never takes one. Of many there are too many combinations: those of the reads come
  // before the others, which are in order of what they end with.
  std::vector<Combination> made;
  for (const GivenAllele& allele : alleles)
    if (made.size() + 1 < limit) made.push_back({&allele});
  std::set<Combination> known;
  for (const auto& haplotype : assembled) {
    Combination shared = sharedWith(*haplotype, alleles);
    if (shared.size() > 1 && made.size() + 1 < limit && known.insert(shared).second)
      made.push_back(std::move(shared));
  }
  for (const GivenAllele& allele : alleles) {
    // The newest are nearest.
    for (size_t i = made.size(); i-- > 0 && made.size() + 1 < limit;) {
      if (made[i].back()->end >= allele.start || made[i].back()->start >= allele.start) continue;
      Combination longer = made[i];
      longer.push_back(&allele);
      if (!known.contains(longer)) made.push_back(std::move(longer));
    }
  }

  std::vector<std::unique_ptr<Haplotype>> haplotypes;
  haplotypes.push_back(std::make_unique<Haplotype>(reference));
  for (const Combination& combination : made) haplotypes.push_back(spell(combination, window, reference));
  return haplotypes;
}
