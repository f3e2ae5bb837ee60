#include "tumor.h"

#include <algorithm>
#include <cassert>
#include <tuple>

#include "rng.h"

namespace {

constexpr uint64_t kSomaticStream = 6, kSomaticDrawStream = 7, kArtefactStream = 8, kListStream = 9;
constexpr uint32_t kMillion = 1'000'000;

bool before(const Site& a, const Site& b) {
  return std::tie(a.contig, a.start) < std::tie(b.contig, b.start);
}

void appendChosen(const std::vector<Site>& from, uint32_t one_in, Rng& rng, std::vector<Site>& to) {
  for (const Site& site : from)
    if (rng.oneIn(one_in)) to.push_back(site);
}

// The haplotypes of the sites of both lists; those of `more` are nobody's yet.
Variants withSites(const Variants& germline, const std::vector<Site>& more) {
  Variants all;
  for (const Sample& sample : germline.samples) {
    all.samples.push_back({sample.name, {}});
    all.samples.back().haplotypes.resize(sample.haplotypes.size());
  }
  for (size_t i = 0, next = 0; i < germline.sites.size() || next < more.size();) {
    bool is_new = i == germline.sites.size() || (next < more.size() && before(more[next], germline.sites[i]));
    all.sites.push_back(is_new ? more[next] : germline.sites[i]);
    for (size_t s = 0; s < all.samples.size(); ++s)
      for (size_t h = 0; h < all.samples[s].haplotypes.size(); ++h)
        all.samples[s].haplotypes[h].alleles.push_back(is_new ? 0
                                                              : germline.samples[s].haplotypes[h].alleles[i]);
    ++(is_new ? next : i);
  }
  return all;
}

// The haplotypes of a tumor with the normal's ones and `somatic` sites, side by side: the first of a side has
// none of the somatic sites, the next the largest fraction's, the next the two largest fractions', and so on.
Sample makeTumor(const SimulateOptions& options, const std::vector<Site>& sites,
                 const std::vector<SomaticSite>& somatic, const Sample& normal, Rng& rng) {
  std::vector<uint32_t> fractions = options.fractions;
  std::sort(fractions.rbegin(), fractions.rend());
  auto sides = static_cast<uint32_t>(normal.haplotypes.size());
  std::vector<uint32_t> side_of;
  for (size_t i = 0; i < somatic.size(); ++i) side_of.push_back(rng.below(sides));
  Sample tumor{options.tumor, {}};
  for (uint32_t side = 0; side < sides; ++side)
    for (size_t step = 0; step <= fractions.size(); ++step) {
      uint32_t above = step == 0 ? kMillion : sides * fractions[step - 1];
      uint32_t below = step == fractions.size() ? 0 : sides * fractions[step];
      WeightedHaplotype haplotype = normal.haplotypes[side];
      haplotype.weight = above - below;
      for (size_t i = 0; i < somatic.size(); ++i) {
        if (side_of[i] != side || step == 0 || somatic[i].fraction < fractions[step - 1]) continue;
        auto site = std::lower_bound(sites.begin(), sites.end(), somatic[i].site, before);
        haplotype.alleles[static_cast<size_t>(site - sites.begin())] = 1;
      }
      if (haplotype.weight > 0) tumor.haplotypes.push_back(std::move(haplotype));
    }
  return tumor;
}

// A sample of which `share` millionths are another one's fragments.
Sample mixed(const Sample& own, const Sample& other, uint32_t share) {
  Sample mix{own.name, {}};
  auto add = [&](const Sample& from, uint32_t part) {
    uint64_t whole = 0;
    for (const WeightedHaplotype& haplotype : from.haplotypes) whole += haplotype.weight;
    assert(whole > 0);
    for (const WeightedHaplotype& haplotype : from.haplotypes) {
      mix.haplotypes.push_back(haplotype);
      mix.haplotypes.back().weight = static_cast<uint32_t>(uint64_t(part) * 100 * haplotype.weight / whole);
    }
  };
  add(own, kMillion - share);
  if (share > 0) add(other, share);
  return mix;
}

std::vector<Artefact> drawArtefacts(const SimulateOptions& options, const Genome& genome) {
  std::vector<Artefact> artefacts;
  auto draw = [&](ArtefactKind kind, Chance rate, double low, double high) {
    Rng rng(options.seed, kArtefactStream, static_cast<uint64_t>(kind));
    for (uint32_t c = 0; c < genome.contigs.size() && rate > 0; ++c) {
      const GenomeContig& contig = genome.contigs[c];
      for (uint32_t at = 0; at < contig.length(); ++at) {
        char base = contig.bases[at];
        bool oxidized = kind == ArtefactKind::kOxidation;
        if (base == 'N' || (oxidized && base != 'G' && base != 'C') || !rng.happens(rate)) continue;
        Artefact artefact;
        artefact.kind = kind;
        char alt = "ACGT"[rng.below(3)];
        if (alt == base) alt = 'T';
        if (oxidized) alt = base == 'G' ? 'T' : 'A';
        artefact.site = {c, at, std::string(1, base), {std::string(1, alt)}};
        artefact.reversed = rng.below(2);
        Chance lowest = chanceOf(low), range = chanceOf(high) - lowest;
        artefact.chance = lowest + (range * rng.below(1000)) / 1000;
        artefact.in_normal = rng.oneIn(3);
        artefact.in_panel = rng.oneIn(2);
        artefacts.push_back(std::move(artefact));
      }
    }
  };
  draw(ArtefactKind::kStrand, options.strand_artefact, 0.05, 0.3);
  draw(ArtefactKind::kReadEnd, options.end_artefact, 0.3, 0.9);
  draw(ArtefactKind::kOxidation, options.oxidation, 0.05, 0.2);
  std::sort(artefacts.begin(), artefacts.end(),
            [](const Artefact& a, const Artefact& b) { return before(a.site, b.site); });
  // Where two fall on one base, the first stays.
  artefacts.erase(std::unique(artefacts.begin(), artefacts.end(),
                              [](const Artefact& a, const Artefact& b) {
                                return !before(a.site, b.site) && !before(b.site, a.site);
                              }),
                  artefacts.end());
  return artefacts;
}

// Leaves the first sample and its sites; what only others carry joins the decoys when it is known.
void keepFirstSample(Variants& variants) {
  Variants own = std::move(variants);
  variants = Variants();
  variants.samples.push_back({own.samples[0].name, {}});
  variants.samples[0].haplotypes.resize(own.samples[0].haplotypes.size());
  for (size_t i = 0; i < own.sites.size(); ++i) {
    const std::vector<WeightedHaplotype>& haplotypes = own.samples[0].haplotypes;
    if (std::any_of(haplotypes.begin(), haplotypes.end(),
                    [&](const WeightedHaplotype& haplotype) { return haplotype.alleles[i] != 0; })) {
      for (size_t h = 0; h < haplotypes.size(); ++h)
        variants.samples[0].haplotypes[h].alleles.push_back(haplotypes[h].alleles[i]);
      variants.sites.push_back(std::move(own.sites[i]));
      variants.site_known.push_back(own.site_known[i]);
    } else if (own.site_known[i]) {
      own.decoys.push_back(std::move(own.sites[i]));
    }
  }
  std::sort(own.decoys.begin(), own.decoys.end(), before);
  variants.decoys = std::move(own.decoys);
  countKinds(variants);
}

}  // namespace

std::vector<Artefact> TumorPair::artefactsOf(bool tumor) const {
  std::vector<Artefact> chosen;
  for (const Artefact& artefact : artefacts)
    if (tumor || artefact.in_normal) chosen.push_back(artefact);
  return chosen;
}

TumorPair makeTumorPair(const SimulateOptions& options, const Genome& genome, Variants& germline) {
  TumorPair pair;
  std::vector<Site> somatic =
      drawSparseSites(genome, options.seed, kSomaticStream, options.somatic_snv, options.somatic_indel);
  dropClashes(germline.sites, somatic);
  Rng rng(options.seed, kSomaticDrawStream);
  for (const Site& site : somatic)
    pair.somatic.push_back(
        {site, options.fractions[rng.below(static_cast<uint32_t>(options.fractions.size()))]});
  pair.carried = withSites(germline, somatic);
  std::vector<Sample>& samples = pair.carried.samples;
  Sample normal = samples[0], other = samples[1];
  Sample tumor = makeTumor(options, pair.carried.sites, pair.somatic, normal, rng);
  samples = {mixed(normal, tumor, options.normal_contamination),
             mixed(tumor, other, options.tumor_contamination)};

  pair.artefacts = drawArtefacts(options, genome);
  std::vector<Site> places;
  for (const Artefact& artefact : pair.artefacts) places.push_back(artefact.site);
  dropClashes(pair.carried.sites, places);
  std::erase_if(pair.artefacts, [&](const Artefact& artefact) {
    return !std::binary_search(places.begin(), places.end(), artefact.site, before);
  });

  Rng list_rng(options.seed, kListStream);
  appendChosen(somatic, 2, list_rng, pair.cosmic);
  appendChosen(germline.sites, 50, list_rng, pair.cosmic);
  for (const Artefact& artefact : pair.artefacts)
    if (artefact.in_panel) pair.panel.push_back(artefact.site);
  appendChosen(germline.sites, 3, list_rng, pair.panel);
  std::sort(pair.cosmic.begin(), pair.cosmic.end(), before);
  std::sort(pair.panel.begin(), pair.panel.end(), before);
  keepFirstSample(germline);
  return pair;
}
