#include "algo/vcall/region_trimmer.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace {

void append(Cigar& cigar, uint32_t length, CigarOp op) {
  if (length == 0) return;
  if (!cigar.empty() && cigarOp(cigar.back()) == op)
    cigar.back() += length << 4;
  else
    cigar.push_back(length << 4 | op);
}

bool better(const Haplotype& a, const Haplotype& b) {
  if (a.isRef != b.isRef) return a.isRef;
  return std::tuple(-a.score, a.eventMap.size(), a.cigar) < std::tuple(-b.score, b.eventMap.size(), b.cigar);
}

}  // namespace

bool RegionTrimmer::variantInterval(const Haplotypes& haplotypes, ActiveRegion active, ActiveRegion window,
                                    bool given, uint32_t snpPadding, ActiveRegion& trimmed) {
  bool found = false, only_snps = true;
  int64_t start = INT64_MAX, end = 0;
  for (const auto& haplotype : haplotypes) {
    const EventMap& events = haplotype->eventMap;
    for (auto at = events.lower_bound(active.start); at != events.end() && at->first < active.end; ++at) {
      const HaplotypeEvent& event = at->second;
      found = true;
      only_snps &= event.type == HaplotypeEvent::kSNP;
      start = std::min<int64_t>(start, event.position);
      end = std::max<int64_t>(end, event.position + int64_t(event.ref.size()));
    }
  }
  if (!found) return false;
  const int64_t padding = only_snps ? snpPadding : kIndelPadding;
  const int64_t extension = given ? kExtensionOfGiven : kExtension;
  int64_t from = std::max(start - padding, active.start - extension);
  int64_t to = std::min(end + padding, active.end + extension);
  from = std::min<int64_t>(from, start - kSNPPadding);
  to = std::max<int64_t>(to, end + kSNPPadding);
  trimmed.start = uint32_t(std::max<int64_t>(from, window.start));
  trimmed.end = uint32_t(std::min<int64_t>(to, window.end));
  return true;
}

std::unique_ptr<Haplotype> RegionTrimmer::cut(const Haplotype& haplotype, const ReferenceWindow& reference,
                                              uint32_t from, uint32_t to) {
  auto made = std::make_unique<Haplotype>();
  const uint32_t first = from - reference.start, last = to - reference.start;  // offsets in the reference
  const bool at_end = last == reference.bases.size();
  auto in_ref = uint32_t(haplotype.alignmentStart), in_read = 0U;
  for (const uint32_t word : haplotype.cigar) {
    const uint32_t length = cigarLength(word);
    const uint32_t of_ref = consumesReference(word) ? length : 0, of_read = consumesRead(word) ? length : 0;
    const uint32_t begin = std::clamp(in_ref, first, last), end = std::clamp(in_ref + of_ref, first, last);
    const bool inside = in_ref > first && (in_ref + of_ref < last || (at_end && in_ref + of_ref == last));
    if (of_ref != 0 && of_read != 0) {
      if (begin < end) made->bases.append(haplotype.bases, in_read + (begin - in_ref), end - begin);
      append(made->cigar, end - begin, CIGAR_M);
    } else if (of_read != 0 && inside) {
      made->bases.append(haplotype.bases, in_read, of_read);
      append(made->cigar, of_read, CIGAR_I);
    } else if (of_ref != 0 && inside) {
      append(made->cigar, of_ref, CIGAR_D);
    } else if (of_ref != 0) {
      made->bases.append(reference.bases, begin, end - begin);
      append(made->cigar, end - begin, CIGAR_M);
    }
    in_ref += of_ref;
    in_read += of_read;
  }
  made->isRef = reference.bases.compare(first, last - first, made->bases) == 0;
  made->locus = {haplotype.locus.contig, from, to};
  made->score = haplotype.score;
  made->alignmentStart = int32_t(first);
  made->kmerSize = haplotype.kmerSize;
  if (made->isRef) made->cigar = {(last - first) << 4 | CIGAR_M};
  made->eventMap.build(made->bases, made->cigar, reference.bases, reference.start, first);
  return made;
}

void RegionTrimmer::cutAll(Haplotypes& haplotypes, const ReferenceWindow& reference, ActiveRegion interval) {
  for (auto& haplotype : haplotypes) haplotype = cut(*haplotype, reference, interval.start, interval.end);
  sortUnique(haplotypes, haplotypes.size());
}

void RegionTrimmer::sortUnique(Haplotypes& haplotypes, size_t limit) {
  std::stable_sort(haplotypes.begin(), haplotypes.end(), [](const auto& a, const auto& b) {
    const int order = a->bases.compare(b->bases);
    return order != 0 ? order < 0 : better(*a, *b);
  });
  const auto same = [](const auto& a, const auto& b) { return a->bases == b->bases; };
  haplotypes.erase(std::unique(haplotypes.begin(), haplotypes.end(), same), haplotypes.end());
  if (haplotypes.size() > limit) {
    std::stable_sort(haplotypes.begin(), haplotypes.end(), [](const auto& a, const auto& b) {
      return a->isRef != b->isRef ? a->isRef : a->score > b->score;
    });
    haplotypes.resize(limit);
  }
  std::sort(haplotypes.begin(), haplotypes.end(), [](const auto& a, const auto& b) {
    return a->isRef != b->isRef ? a->isRef : a->bases < b->bases;
  });
}
