#include "algo/assembler/haplotype.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "base/text.h"

// `ref` and `alt` are the bases behind the one at `position`: that one follows from what is there.
void EventMap::addIndel(uint32_t position, std::string_view ref, std::string_view alt) {
  HaplotypeEvent& event = at(position);
  event.ref += ref;
  event.alt += alt;
  if (event.ref.size() == event.alt.size())
    event.type = HaplotypeEvent::kReplacement;
  else
    event.type = event.ref.size() < event.alt.size() ? HaplotypeEvent::kInsertion : HaplotypeEvent::kDeletion;
}

void EventMap::build(std::string_view bases, const Cigar& cigar, std::string_view reference,
                     uint32_t referenceStart, uint32_t offset) {
  clear();
  size_t in_ref = offset, in_read = 0;
  bool anchored = offset != 0;  // the haplotype keeps a base of the reference in front
  for (const uint32_t word : cigar) {
    const size_t length = cigarLength(word);
    const size_t of_ref = consumesReference(word) ? length : 0, of_read = consumesRead(word) ? length : 0;
    if (in_ref > reference.size() || of_ref > reference.size() - in_ref || of_read > bases.size() - in_read)
      throw std::runtime_error("cigar of a haplotype leads out of its bases or of the reference");
    if (of_ref != 0 && of_read != 0) {
      anchored = true;
      for (size_t i = 0; i < length; ++i) {
        const char ref = reference[in_ref + i], alt = bases[in_read + i];
        if (ref == alt) continue;
        const auto position = referenceStart + static_cast<uint32_t>(in_ref + i);
        emplace_hint(end(), position, HaplotypeEvent{position, {ref}, {alt}, HaplotypeEvent::kSNP});
      }
    } else if (length != 0 && anchored && (cigarOp(word) == CIGAR_I || cigarOp(word) == CIGAR_D)) {
      // An indel next to the last one is anchored with it.
      const bool joins =
          !empty() && rbegin()->second.position - referenceStart + rbegin()->second.ref.size() == in_ref;
      const auto position = joins ? rbegin()->first : referenceStart + static_cast<uint32_t>(in_ref - 1);
      const char before = reference[in_ref - 1];
      try_emplace(position, HaplotypeEvent{position, {before}, {before}, HaplotypeEvent::kSNP});
      addIndel(position, reference.substr(in_ref, of_ref), bases.substr(in_read, of_read));
    }
    in_ref += of_ref;
    in_read += of_read;
  }
}

std::string Haplotype::text() const {
  std::string cigar_text;
  for (const uint32_t word : cigar) cigar_text += format("%u%c", cigarLength(word), kCigarOps[cigarOp(word)]);
  const std::string place =
      locus.contig == nullptr ? "unmapped" : format("%s:%u-%u", locus.contig, locus.start + 1, locus.end);
  std::string text =
      format("bases=%s,len=%zu,GenomeLoc=%s,isRef=%c,score=%ld*.001,cigar=%s", bases.c_str(), bases.size(),
             place.c_str(), isRef ? 'T' : 'F', std::lround(score * 1000), cigar_text.c_str());
  if (eventMap.empty()) return text;
  text += ",events=EventMap{";
  for (const auto& [position, event] : eventMap) text += event.ref + "/" + event.alt + ",";
  return text + "}";
}

void chooseAlignments(const std::vector<std::unique_ptr<Haplotype>>& haplotypes) {
  using Event = std::tuple<uint32_t, std::string_view, std::string_view>;
  const auto key = [](const HaplotypeEvent& event) { return Event{event.position, event.ref, event.alt}; };
  std::set<Event> certain;
  for (const auto& haplotype : haplotypes)
    if (!haplotype->other)
      for (const auto& [position, event] : haplotype->eventMap) certain.insert(key(event));
  const auto cost = [&](const EventMap& events, const Cigar& cigar) {
    const auto own = std::count_if(events.begin(), events.end(),
                                   [&](const auto& entry) { return !certain.contains(key(entry.second)); });
    const auto gaps = std::count_if(cigar.begin(), cigar.end(), [](uint32_t word) {
      return cigarOp(word) == CIGAR_I || cigarOp(word) == CIGAR_D;
    });
    return std::tuple(own, events.size(), gaps);
  };
  for (const auto& haplotype : haplotypes) {
    if (!haplotype->other) continue;
    if (cost(haplotype->other->eventMap, haplotype->other->cigar) <
        cost(haplotype->eventMap, haplotype->cigar)) {
      haplotype->cigar = std::move(haplotype->other->cigar);
      haplotype->eventMap = std::move(haplotype->other->eventMap);
    }
    haplotype->other.reset();
  }
}
