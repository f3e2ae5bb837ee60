#include "algo/vcall/crossovers.h"

#include <algorithm>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "readdata/bam/bam_record.h"

namespace {

using Haplotypes = std::vector<std::unique_ptr<Haplotype>>;
using Combination = std::vector<int>;  // per stretch, the allele

constexpr int kAnchor = 10;    // bases that agree with the reference, to lay a read from
constexpr size_t kPlaces = 8;  // in a read where a stretch may begin, those that cost least
constexpr int64_t kWorst = std::numeric_limits<int64_t>::max();
constexpr int64_t kCostUnit = 1024;  // so that what is not preferred costs less than anything else

struct Stretch {
  uint32_t start, shared, end;  // the bases from `shared` on are those of the reference in all haplotypes
  std::vector<std::string> alleles;   // of [start, end)
  std::vector<std::string> reversed;  // the same from their ends
  std::vector<size_t> carriers;       // a haplotype of each allele
};

class Panel {
 public:
  Panel(const Haplotypes& haplotypes, const ReferenceWindow& reference, ActiveRegion interval)
      : haplotypes_(haplotypes), reference_(reference) {
    findStretches(interval);
    combinations.resize(haplotypes.size(), Combination(stretches.size()));
    borders_.resize(haplotypes.size());
    for (size_t h = 0; h < haplotypes.size(); ++h) spell(h);
    for (Stretch& stretch : stretches)
      for (const std::string& allele : stretch.alleles)
        stretch.reversed.emplace_back(allele.rbegin(), allele.rend());
  }

  bool canCross() const {
    return std::count_if(stretches.begin(), stretches.end(),
                         [](const Stretch& stretch) { return stretch.alleles.size() > 1; }) > 1;
  }

  std::unique_ptr<Haplotype> make(const Combination& alleles, size_t like) const {
    auto made = std::make_unique<Haplotype>();
    const Haplotype& base = *haplotypes_[like];
    for (size_t s = 0; s < stretches.size(); ++s) {
      const auto allele = size_t(alleles[s]);
      const size_t donor = combinations[like][s] == alleles[s] ? like : stretches[s].carriers[allele];
      made->bases += stretches[s].alleles[allele];
      appendCigar(donor, s, made->cigar);
    }
    made->isRef = false;
    made->locus = base.locus;
    made->score = base.score;
    made->alignmentStart = base.alignmentStart;
    made->kmerSize = base.kmerSize;
    made->eventMap.build(made->bases, made->cigar, reference_.bases, reference_.start,
                         uint32_t(made->alignmentStart));
    return made;
  }

  std::vector<Stretch> stretches;
  std::vector<Combination> combinations;  // by haplotype

 private:
  // Stretches begin where events do. Those of neighbours without a base between are one.
  void findStretches(ActiveRegion interval) {
    std::vector<std::pair<uint32_t, uint32_t>> spans;
    for (const auto& haplotype : haplotypes_)
      for (const auto& [position, event] : haplotype->eventMap)
        spans.emplace_back(position, position + uint32_t(event.ref.size()));
    std::sort(spans.begin(), spans.end());
    stretches.push_back({interval.start, interval.start, interval.end, {}, {}, {}});
    for (const auto& [start, end] : spans) {
      if (start > stretches.back().shared) {
        stretches.back().end = start;
        stretches.push_back({start, end, interval.end, {}, {}, {}});
      }
      stretches.back().shared = std::max(stretches.back().shared, end);
    }
  }

  // No indel lies at a border: there are matched bases on both sides of it.
  void spell(size_t h) {
    const Haplotype& haplotype = *haplotypes_[h];
    std::vector<size_t>& borders = borders_[h];  // offsets in the haplotype
    size_t s = 0, in_read = 0;
    uint32_t position = reference_.start + uint32_t(haplotype.alignmentStart);
    for (const uint32_t word : haplotype.cigar) {
      const uint32_t length = cigarLength(word), of_ref = consumesReference(word) ? length : 0;
      const bool matched = of_ref != 0 && consumesRead(word);
      for (; s < stretches.size() && matched && stretches[s].start < position + of_ref; ++s)
        borders.push_back(in_read + (stretches[s].start - position));
      position += of_ref;
      in_read += consumesRead(word) ? length : 0;
    }
    borders.push_back(haplotype.bases.size());
    for (s = 0; s + 1 < borders.size(); ++s) {
      std::vector<std::string>& alleles = stretches[s].alleles;
      const std::string_view bases =
          std::string_view(haplotype.bases).substr(borders[s], borders[s + 1] - borders[s]);
      const auto at = std::find(alleles.begin(), alleles.end(), bases);
      combinations[h][s] = int(at - alleles.begin());
      if (at != alleles.end()) continue;
      alleles.emplace_back(bases);
      stretches[s].carriers.push_back(h);
    }
  }

  void appendCigar(size_t h, size_t s, Cigar& cigar) const {
    uint32_t position = reference_.start + uint32_t(haplotypes_[h]->alignmentStart);
    for (const uint32_t word : haplotypes_[h]->cigar) {
      uint32_t length = cigarLength(word);
      const uint32_t from = position, to = position + (consumesReference(word) ? length : 0);
      position = to;
      if (consumesReference(word))
        length = std::min(to, stretches[s].end) -
                 std::min(std::max(from, stretches[s].start), std::min(to, stretches[s].end));
      else if (from <= stretches[s].start || from >= stretches[s].end)
        continue;
      if (length == 0) continue;
      if (!cigar.empty() && cigarOp(cigar.back()) == cigarOp(word))
        cigar.back() += length << 4;
      else
        cigar.push_back(length << 4 | cigarOp(word));
    }
  }

  const Haplotypes& haplotypes_;
  const ReferenceWindow& reference_;
  std::vector<std::vector<size_t>> borders_;
};

// A read from its anchor in one of the two directions, and the stretches in the order in which it meets them.
struct Way {
  std::string bases;
  std::vector<int64_t> costs;  // of a mismatch
  std::vector<size_t> stretches;
  size_t skipped = 0;  // bases of the first stretch behind the anchor
  bool reversed = false;

  int64_t mismatches(size_t offset, std::string_view allele) const {
    int64_t cost = 0;
    for (size_t i = offset, end = std::min(bases.size(), offset + allele.size()); i < end; ++i)
      cost += bases[i] == allele[i - offset] ? 0 : costs[i];
    return cost;
  }
  std::string_view allele(const Panel& panel, size_t step, int number) const {
    const Stretch& stretch = panel.stretches[stretches[step]];
    const std::string& bases = (reversed ? stretch.reversed : stretch.alleles)[size_t(number)];
    return std::string_view(bases).substr(step == 0 ? skipped : 0);
  }
};

struct Anchor {
  size_t stretch = 0;
  int32_t offset = 0;  // in the clip
  uint32_t position = 0;
  int32_t length = 0;
};

// The longest run of bases that agree with what all haplotypes share.
Anchor findAnchor(const Panel& panel, const ReadClip& clip, const ReferenceWindow& reference) {
  Anchor best;
  const Read& read = *clip.read;
  const auto& stretches = panel.stretches;
  uint32_t position = read.start;
  int32_t offset = 0;
  size_t s = 0;
  for (uint32_t i = 0; i < read.n_cigar; ++i) {
    const uint32_t word = read.cigarWord(i), length = cigarLength(word);
    if (consumesRead(word) && consumesReference(word)) {
      int32_t run = 0;
      for (uint32_t j = 0; j < length; ++j) {
        const uint32_t at = position + j;
        const int32_t in_read = offset + int32_t(j);
        const bool inside = in_read >= clip.readStart && in_read < clip.readEnd &&
                            at >= stretches.front().start && at < stretches.back().end;
        if (inside)
          while (at >= stretches[s].end) ++s, run = 0;
        const bool agrees = inside && at >= stretches[s].shared && read.bases[in_read] == reference.at(at);
        run = agrees ? run + 1 : 0;
        if (run > best.length) best = {s, in_read - run + 1 - clip.readStart, at - uint32_t(run) + 1, run};
      }
    }
    position += consumesReference(word) ? length : 0;
    offset += consumesRead(word) ? int32_t(length) : 0;
  }
  return best;
}

// What `combination` costs.
int64_t costOf(const Panel& panel, const Way& way, const Combination& combination) {
  int64_t cost = 0;
  size_t offset = 0;
  for (size_t step = 0; step < way.stretches.size() && offset < way.bases.size(); ++step) {
    const std::string_view allele = way.allele(panel, step, combination[way.stretches[step]]);
    cost += way.mismatches(offset, allele);
    offset += allele.size();
  }
  return cost;
}

// Puts the alleles that cost least into `combination`, which stays where it costs no more. Returns the cost.
int64_t cheapest(const Panel& panel, const Way& way, Combination& combination) {
  struct Place {
    size_t offset;
    int64_t cost;
    size_t from;
    int allele;
  };
  std::vector<std::vector<Place>> levels = {{{0, 0, 0, -1}}};
  Place best{0, kWorst, 0, -1};
  size_t best_level = 0;
  const auto finish = [&](const Place& place) {
    if (place.cost < best.cost) best = place, best_level = levels.size() - 1;
  };
  for (size_t step = 0; !levels.back().empty(); ++step) {
    std::vector<Place> next;
    if (step == way.stretches.size()) {
      for (const Place& place : levels.back()) finish(place);
      break;
    }
    const size_t s = way.stretches[step];
    for (size_t p = 0; p < levels.back().size(); ++p) {
      const Place& place = levels.back()[p];
      if (place.offset >= way.bases.size()) {
        finish(place);
        continue;
      }
      for (int a = 0; a < int(panel.stretches[s].alleles.size()); ++a) {
        const std::string_view allele = way.allele(panel, step, a);
        const int64_t cost = place.cost + way.mismatches(place.offset, allele) + (a != combination[s]);
        const size_t offset = place.offset + allele.size();
        const auto same =
            std::find_if(next.begin(), next.end(), [&](const Place& n) { return n.offset == offset; });
        if (same == next.end())
          next.push_back({offset, cost, p, a});
        else if (cost < same->cost)
          *same = {offset, cost, p, a};
      }
    }
    std::stable_sort(next.begin(), next.end(),
                     [](const Place& a, const Place& b) { return a.cost < b.cost; });
    next.resize(std::min(next.size(), kPlaces));
    levels.push_back(std::move(next));
  }
  Place place = best;
  for (size_t level = best_level; level > 0; --level) {
    combination[way.stretches[level - 1]] = place.allele;
    place = levels[level - 1][place.from];
  }
  return best.cost;
}

// From behind the anchor on, and from its first base back.
std::pair<Way, Way> waysOf(const Panel& panel, const ReadClip& clip, const Anchor& anchor, int minBaseQual) {
  const auto bases = std::string_view(clip.read->bases + clip.readStart, size_t(clip.length()));
  std::vector<int64_t> costs;
  for (size_t i = 0; i < bases.size(); ++i) {
    const int quality = clip.read->quals[size_t(clip.readStart) + i];
    costs.push_back(quality < minBaseQual || bases[i] == 'N' ? 0 : quality * kCostUnit);
  }
  const Stretch& stretch = panel.stretches[anchor.stretch];
  const size_t left = size_t(anchor.offset), tail = stretch.end - anchor.position;
  std::pair<Way, Way> ways;
  auto& [forward, back] = ways;
  back.bases.assign(bases.rend() - ptrdiff_t(left), bases.rend());
  back.costs.assign(costs.rend() - ptrdiff_t(left), costs.rend());
  back.reversed = true;
  back.skipped = tail;
  for (size_t s = anchor.stretch + 1; s-- > 0;) back.stretches.push_back(s);
  if (left + tail < bases.size()) {
    forward.bases = bases.substr(left + tail);
    forward.costs.assign(costs.begin() + ptrdiff_t(left + tail), costs.end());
    for (size_t s = anchor.stretch + 1; s < panel.stretches.size(); ++s) forward.stretches.push_back(s);
  }
  return ways;
}

}  // namespace

void addCrossovers(Haplotypes& haplotypes, const std::vector<ReadClip>& reads,
                   const ReferenceWindow& reference, ActiveRegion interval, int minBaseQual, size_t limit) {
  const Panel panel(haplotypes, reference, interval);
  if (!panel.canCross()) return;
  struct Support {
    size_t like;  // the haplotype
    int reads;
  };
  std::map<Combination, Support> found;
  const size_t each = reads.size() / kCrossoverReads + 1;
  for (size_t r = 0; r < reads.size(); r += each) {
    const Anchor anchor = findAnchor(panel, reads[r], reference);
    if (anchor.length < kAnchor) continue;
    const auto [forward, back] = waysOf(panel, reads[r], anchor, minBaseQual);
    size_t like = 0;
    int64_t least = kWorst;
    for (size_t h = 0; h < haplotypes.size() && least > 0; ++h) {
      const int64_t cost =
          costOf(panel, forward, panel.combinations[h]) + costOf(panel, back, panel.combinations[h]);
      if (cost < least || (cost == least && haplotypes[h]->score > haplotypes[like]->score))
        least = cost, like = h;
    }
    if (least < kCrossoverGain * kCostUnit) continue;
    Combination combination = panel.combinations[like];
    const int64_t cost = cheapest(panel, forward, combination) + cheapest(panel, back, combination);
    if (least - cost < (kCrossoverGain - 1) * kCostUnit) continue;
    ++found.try_emplace(std::move(combination), Support{like, 0}).first->second.reads;
  }
  std::vector<std::pair<const Combination, Support>*> order;
  for (auto& entry : found) order.push_back(&entry);
  std::stable_sort(order.begin(), order.end(),
                   [](const auto* a, const auto* b) { return a->second.reads > b->second.reads; });
  for (const auto* entry : order)
    if (haplotypes.size() < limit) haplotypes.push_back(panel.make(entry->first, entry->second.like));
}
