#include "genome.h"

#include <algorithm>

#include "rng.h"

namespace {

constexpr uint64_t kContigStream = 1, kRepeatStream = 2;
constexpr char kBases[] = "ACGT";

char drawBase(Rng& rng, uint32_t gc_permille) {
  bool strong = rng.below(1000) < gc_permille;
  return strong ? (rng.next() >> 63 ? 'G' : 'C') : (rng.next() >> 63 ? 'A' : 'T');
}

void fillBackground(std::string& bases, Rng& rng) {
  size_t done = 0;
  while (done < bases.size()) {
    uint32_t gc = 300 + rng.below(350);
    size_t stop = std::min(bases.size(), done + 1000 + rng.below(4000));
    for (; done < stop; ++done) bases[done] = drawBase(rng, gc);
  }
}

// Places that lie `every` bases apart on average, leaving `room` bases before the contig's end.
template <class Work>
void scatter(uint32_t length, uint32_t every, uint32_t room, Rng& rng, Work work) {
  for (uint32_t at = rng.below(every); at + room < length; at += 1 + every / 2 + rng.below(every)) work(at);
}

void addHomopolymers(Genome& genome, GenomeContig& contig, Rng& rng) {
  scatter(contig.length(), 400, 32, rng, [&](uint32_t at) {
    uint32_t steps = rng.below(4);
    uint32_t run = 5 + steps * rng.below(6);
    std::fill_n(contig.bases.begin() + at, run, rng.below(4) < 3 ? (rng.next() >> 63 ? 'A' : 'T') : 'C');
    ++genome.homopolymers;
  });
}

void addTandemRepeats(Genome& genome, GenomeContig& contig, Rng& rng) {
  scatter(contig.length(), 1500, 128, rng, [&](uint32_t at) {
    char unit[6];
    uint32_t period = 2 + rng.below(5), copies = 4 + rng.below(60 / period);
    for (uint32_t i = 0; i < period; ++i) unit[i] = kBases[rng.below(4)];
    if (std::all_of(unit, unit + period, [&](char c) { return c == unit[0]; }))
      unit[0] = unit[0] == 'A' ? 'C' : 'A';
    for (uint32_t i = 0; i < period * copies; ++i) contig.bases[at + i] = unit[i % period];
    ++genome.tandem_repeats;
  });
}

void maskStretches(GenomeContig& contig, Rng& rng) {
  uint32_t at = rng.below(800);
  while (at < contig.length()) {
    uint32_t end = std::min(contig.length(), at + 100 + rng.below(700));
    contig.masked.push_back({at, end});
    at = end + 500 + rng.below(2000);
  }
}

void addUnknown(GenomeContig& contig) {
  uint32_t length = contig.length();
  uint32_t edge = std::min(10'000u, length / 100);
  uint32_t middle = std::min(5'000u, length / 50), at = length / 5 * 3;
  std::fill_n(contig.bases.begin(), edge, 'N');
  std::fill_n(contig.bases.end() - edge, edge, 'N');
  std::fill_n(contig.bases.begin() + at, middle, 'N');
  contig.known_bases = length - 2 * edge - middle;
}

bool isFree(const GenomeContig& contig, Span span) {
  if (span.end > contig.length()) return false;
  auto first = contig.bases.begin() + span.start, last = contig.bases.begin() + span.end;
  if (std::find(first, last, 'N') != last) return false;
  return std::none_of(contig.repeats.begin(), contig.repeats.end(), [&](const RepeatCopy& copy) {
    return copy.here.start < span.end && span.start < copy.here.end;
  });
}

void addRepeatPairs(Genome& genome, uint64_t seed) {
  Rng rng(seed, kRepeatStream);
  uint64_t wanted = genome.length() / 25'000 + 1;
  for (uint64_t tries = 0; tries < 10 * wanted && genome.repeat_pairs < wanted; ++tries) {
    auto count = static_cast<uint32_t>(genome.contigs.size());
    uint32_t from = rng.below(count), to = rng.below(count);
    GenomeContig &source = genome.contigs[from], &target = genome.contigs[to];
    uint32_t size = std::min(source.length(), target.length()) / 12;
    size = std::min(size, 400 + rng.below(1200));
    uint32_t a = rng.below(source.length() - size), b = rng.below(target.length() - size);
    bool apart = from != to || a + size <= b || b + size <= a;
    if (!apart || !isFree(source, {a, a + size}) || !isFree(target, {b, b + size})) continue;
    uint32_t one_in = 50 + rng.below(400);
    for (uint32_t i = 0; i < size; ++i)
      target.bases[b + i] = rng.oneIn(one_in) ? kBases[rng.below(4)] : source.bases[a + i];
    source.repeats.push_back({{a, a + size}, to, b});
    target.repeats.push_back({{b, b + size}, from, a});
    ++genome.repeat_pairs;
  }
  for (GenomeContig& contig : genome.contigs)
    std::sort(contig.repeats.begin(), contig.repeats.end(),
              [](const RepeatCopy& x, const RepeatCopy& y) { return x.here.start < y.here.start; });
}

}  // namespace

const RepeatCopy* GenomeContig::repeatAround(uint32_t start, uint32_t end) const {
  auto next = std::upper_bound(repeats.begin(), repeats.end(), start,
                               [](uint32_t at, const RepeatCopy& copy) { return at < copy.here.start; });
  if (next == repeats.begin()) return nullptr;
  --next;
  return end <= next->here.end ? &*next : nullptr;
}

uint64_t Genome::length() const {
  uint64_t sum = 0;
  for (const GenomeContig& contig : contigs) sum += contig.length();
  return sum;
}

Genome makeGenome(uint64_t seed, const std::vector<ContigPlan>& plans) {
  Genome genome;
  for (const ContigPlan& plan : plans) {
    Rng rng(seed, kContigStream, genome.contigs.size());
    GenomeContig& contig = genome.contigs.emplace_back();
    contig.name = plan.name;
    contig.bases.resize(plan.length);
    fillBackground(contig.bases, rng);
    addHomopolymers(genome, contig, rng);
    addTandemRepeats(genome, contig, rng);
    addUnknown(contig);
    maskStretches(contig, rng);
  }
  addRepeatPairs(genome, seed);
  return genome;
}
