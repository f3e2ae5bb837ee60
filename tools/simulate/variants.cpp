#include "variants.h"

#include <algorithm>
#include <stdexcept>

#include "rng.h"

namespace {

constexpr uint64_t kSiteStream = 3, kGenotypeStream = 4, kKnownStream = 5;
constexpr char kBases[] = "ACGT";
constexpr uint32_t kMargin = 5;  // bases kept free at contig ends, around N and between sites' alleles

char otherBase(char base, Rng& rng) {
  char drawn = kBases[rng.below(3)];
  return drawn == base ? 'T' : drawn;
}

// How often sites occur. Of a rate of 0 nothing is drawn.
struct SiteRates {
  Chance snp, indel;
  Chance cluster = 0, multi_allelic = 0;
};

// A thing to choose sites on: a contig's bases, and the end of what the sites before occupy.
class SiteMaker {
 public:
  SiteMaker(const Genome& genome, uint32_t contig, const SiteRates& rates, Rng& rng)
      : contig_(contig), bases_(genome.contigs[contig].bases), rates_(rates), rng_(rng) {}

  // Appends a site near `at` unless there is no room for one.
  void addSnp(uint32_t at, std::vector<Site>& sites) {
    if (!fits(at, at + 1)) return;
    Site site{contig_, at, std::string(1, bases_[at]), {}};
    char first = otherBase(bases_[at], rng_);
    site.alts.emplace_back(1, first);
    if (rng_.oneIn(60) || second()) {
      char second = kBases[rng_.below(4)];
      if (second != first && second != bases_[at]) site.alts.emplace_back(1, second);
    }
    take(std::move(site), sites);
  }

  void addIndel(uint32_t at, std::vector<Site>& sites) {
    uint32_t period = tandemPeriod(at);
    uint32_t length = period * (1 + rng_.below(2));
    if (period == 0) length = 1 + (rng_.oneIn(3) ? rng_.below(30) : rng_.below(6));
    bool both = rng_.oneIn(12) || second();  // a deletion and an insertion at one place
    bool insertion = rng_.next() >> 63;
    uint32_t anchor = at;
    std::string inserted;
    if (insertion || both) {
      for (uint32_t i = 0; i < length; ++i)
        inserted += period > 0 && at + 1 + i % period < bases_.size() ? bases_[at + 1 + i % period]
                                                                      : kBases[rng_.below(4)];
      if (inserted.find('N') != std::string::npos) return;
    }
    if (insertion && !both) {
      anchor = shiftLeft(anchor, inserted);
    } else {
      if (!fits(at, at + 1 + length)) return;
      std::string deleted = bases_.substr(at + 1, length);
      anchor = shiftLeft(anchor, deleted);
    }
    uint32_t ref_length = insertion && !both ? 1 : 1 + length;
    if (!fits(anchor, anchor + ref_length)) return;
    Site site{contig_, anchor, bases_.substr(anchor, ref_length), {}};
    if (insertion && !both) {
      site.alts.push_back(site.ref + inserted);
    } else {
      site.alts.push_back(site.ref.substr(0, 1));
      if (both) site.alts.push_back(site.ref + (period > 0 ? site.ref.substr(1) : inserted));
    }
    take(std::move(site), sites);
  }

  // Appends neighbours to the last site: a chain that goes on as long as the dice say so.
  void addCluster(std::vector<Site>& sites) {
    if (rates_.cluster == 0) return;
    for (size_t before = sites.size(); rng_.happens(rates_.cluster); before = sites.size()) {
      uint32_t at = free_from_ + 1 + rng_.below(11);
      if (at >= bases_.size()) return;
      if (rng_.oneIn(3))
        addIndel(at, sites);
      else
        addSnp(at, sites);
      if (sites.size() == before) return;
    }
  }

 private:
  bool second() { return rates_.multi_allelic > 0 && rng_.happens(rates_.multi_allelic); }

  bool fits(uint32_t start, uint32_t end) const {
    if (start < free_from_ + 1 || end + kMargin > bases_.size()) return false;
    for (uint32_t i = start < kMargin ? 0 : start - kMargin; i < end + kMargin; ++i)
      if (bases_[i] == 'N') return false;
    return true;
  }

  void take(Site site, std::vector<Site>& sites) {
    free_from_ = site.start + static_cast<uint32_t>(site.ref.size());
    sites.push_back(std::move(site));
  }

  // The period of a tandem repeat of three units or more behind `at`, 0 when there is none.
  uint32_t tandemPeriod(uint32_t at) const {
    for (uint32_t period = 1; period <= 6; ++period) {
      uint32_t need = std::max(4u, 3 * period);
      if (at + 1 + need > bases_.size()) return 0;
      uint32_t same = period;
      while (same < need && bases_[at + 1 + same] == bases_[at + 1 + same - period]) ++same;
      if (same == need) return period;
    }
    return 0;
  }

  // Moves the place of an indel of `sequence` behind `anchor` as far left as the same bases allow.
  uint32_t shiftLeft(uint32_t anchor, std::string& sequence) const {
    while (anchor > 0 && bases_[anchor] == sequence.back() && bases_[anchor] != 'N') {
      std::rotate(sequence.begin(), sequence.end() - 1, sequence.end());
      --anchor;
    }
    return anchor;
  }

  uint32_t contig_;
  const std::string& bases_;
  SiteRates rates_;
  Rng& rng_;
  uint32_t free_from_ = kMargin;
};

std::vector<Site> drawSites(const Genome& genome, uint64_t seed, uint64_t stream, const SiteRates& rates) {
  std::vector<Site> sites;
  for (uint32_t c = 0; c < genome.contigs.size(); ++c) {
    Rng rng(seed, stream, c);
    SiteMaker maker(genome, c, rates, rng);
    for (uint32_t at = 0; at < genome.contigs[c].length(); ++at) {
      uint32_t draw = rng.bits32();
      size_t before = sites.size();
      if (draw < rates.snp)
        maker.addSnp(at, sites);
      else if (draw < rates.snp + rates.indel)
        maker.addIndel(at, sites);
      if (sites.size() > before) maker.addCluster(sites);
    }
  }
  return sites;
}

// A child's haplotype from two of one parent's (or twice the same): it follows one and crosses over now and then.
WeightedHaplotype inherit(const WeightedHaplotype& first, const WeightedHaplotype& second,
                          const std::vector<Site>& sites, Rng& rng) {
  const WeightedHaplotype* sides[] = {&first, &second};
  WeightedHaplotype child{std::vector<uint8_t>(sites.size()), 1};
  uint32_t side = rng.below(2);
  for (size_t i = 0; i < sites.size(); ++i) {
    if (i > 0 && sites[i].contig != sites[i - 1].contig) side = rng.below(2);
    if (rng.oneIn(500)) side ^= 1;
    child.alleles[i] = sides[side]->alleles[i];
  }
  return child;
}

WeightedHaplotype founder(const std::vector<Site>& sites, const std::vector<uint32_t>& frequency, Rng& rng) {
  WeightedHaplotype haplotype{std::vector<uint8_t>(sites.size()), 1};
  for (size_t i = 0; i < sites.size(); ++i)
    if (rng.below(1000) < frequency[i])
      haplotype.alleles[i] = static_cast<uint8_t>(1 + rng.below(static_cast<uint32_t>(sites[i].alts.size())));
  return haplotype;
}

// Sees to it that each alt is carried: a list of sites that nobody shows would be no truth. Founders only, so
// it is done before children are made.
void spreadAlts(std::vector<Sample>& samples, size_t founders, const std::vector<Site>& sites, Rng& rng) {
  for (size_t i = 0; i < sites.size(); ++i) {
    std::vector<uint8_t*> slots;
    for (size_t s = 0; s < founders; ++s)
      for (WeightedHaplotype& haplotype : samples[s].haplotypes) slots.push_back(&haplotype.alleles[i]);
    for (size_t alt = 1; alt <= sites[i].alts.size(); ++alt) {
      if (std::any_of(slots.begin(), slots.end(), [&](uint8_t* slot) { return *slot == alt; })) continue;
      // An allele that two slots carry, or the reference, gives way.
      std::vector<uint8_t*> free;
      for (uint8_t* slot : slots)
        if (*slot == 0 ||
            std::count_if(slots.begin(), slots.end(), [&](uint8_t* other) { return *other == *slot; }) > 1)
          free.push_back(slot);
      *free[rng.below(static_cast<uint32_t>(free.size()))] = static_cast<uint8_t>(alt);
    }
  }
}

bool isChild(size_t sample) {
  return sample % 3 == 2;
}

// Half of the haplotypes come from either parent, the odd one from the first.
Sample makeChild(const std::string& name, const Sample& first, const Sample& second,
                 const std::vector<Site>& sites, Rng& rng) {
  size_t ploidy = first.haplotypes.size();
  Sample child{name, {}};
  for (size_t i = 0; i < ploidy; ++i) {
    const Sample& parent = i < (ploidy + 1) / 2 ? first : second;
    size_t side = i < (ploidy + 1) / 2 ? 2 * i : 2 * (i - (ploidy + 1) / 2);
    child.haplotypes.push_back(
        inherit(parent.haplotypes[side], parent.haplotypes[std::min(side + 1, ploidy - 1)], sites, rng));
  }
  return child;
}

void drawGenotypes(const SimulateOptions& options, Variants& variants) {
  Rng rng(options.seed, kGenotypeStream);
  const std::vector<Site>& sites = variants.sites;
  std::vector<uint32_t> frequency(sites.size());  // of all alts together, per mille
  for (uint32_t& f : frequency) f = 100 + rng.below(700);
  for (const std::string& name : options.samples) variants.samples.push_back({name, {}});
  if (!options.tumor.empty()) variants.samples.back().name.clear();  // another individual
  std::vector<Sample> founders;
  for (size_t s = 0; s < variants.samples.size(); ++s) {
    if (isChild(s)) continue;
    Sample& sample = founders.emplace_back(Sample{variants.samples[s].name, {}});
    for (int side = 0; side < options.ploidy; ++side)
      sample.haplotypes.push_back(founder(sites, frequency, rng));
  }
  spreadAlts(founders, founders.size(), sites, rng);
  for (size_t s = 0, next = 0; s < variants.samples.size(); ++s) {
    if (isChild(s)) {
      variants.samples[s] =
          makeChild(variants.samples[s].name, variants.samples[s - 2], variants.samples[s - 1], sites, rng);
    } else {
      variants.samples[s] = std::move(founders[next++]);
    }
  }
}

}  // namespace

void countKinds(Variants& variants) {
  for (const Site& site : variants.sites) {
    if (site.alts.size() > 1) ++variants.multi_allelic;
    if (site.isSnp())
      ++variants.snps;
    else if (site.alts[0].size() > site.ref.size())
      ++variants.insertions;
    else
      ++variants.deletions;
  }
}

void dropClashes(const std::vector<Site>& sites, std::vector<Site>& drawn) {
  auto end = [](const Site& site) { return site.start + static_cast<uint32_t>(site.ref.size()); };
  size_t next = 0;
  std::erase_if(drawn, [&](const Site& one) {
    auto before = [&](const Site& site) {
      return site.contig != one.contig ? site.contig < one.contig : end(site) < one.start;
    };
    while (next < sites.size() && before(sites[next])) ++next;
    return next < sites.size() && sites[next].contig == one.contig && sites[next].start <= end(one);
  });
}

std::vector<Site> drawSparseSites(const Genome& genome, uint64_t seed, uint64_t stream, Chance snp,
                                  Chance indel) {
  std::vector<Site> sites;
  if (snp + indel == 0) return sites;
  auto every = static_cast<uint32_t>(std::min(kCertain / (snp + indel), kCertain - 1));
  for (uint32_t c = 0; c < genome.contigs.size(); ++c) {
    const GenomeContig& contig = genome.contigs[c];
    Rng rng(seed, stream, c);
    SiteMaker maker(genome, c, {snp, indel}, rng);
    for (uint64_t at = rng.below(every); at < contig.length(); at += every / 2 + rng.below(every) + 1) {
      auto place = static_cast<uint32_t>(at);
      bool is_snp = uint64_t(rng.bits32()) * (snp + indel) >> 32 < snp;
      if (contig.repeatAround(place, place + 1) != nullptr) continue;
      if (is_snp)
        maker.addSnp(place, sites);
      else
        maker.addIndel(place, sites);
    }
  }
  for (Site& site : sites) site.alts.resize(1);
  return sites;
}

Variants makeVariants(const SimulateOptions& options, const Genome& genome) {
  Variants variants;
  variants.sites = drawSites(genome, options.seed, kSiteStream,
                             {options.snp, options.indel, options.cluster, options.multi_allelic});
  // A lone haploid sample cannot carry two alternatives.
  if (options.ploidy == 1 && options.samples.size() == 1)
    for (Site& site : variants.sites) site.alts.resize(1);
  drawGenotypes(options, variants);
  countKinds(variants);
  variants.decoys = drawSites(genome, options.seed, kKnownStream, {options.snp / 4, options.indel / 4});
  dropClashes(variants.sites, variants.decoys);
  Rng rng(options.seed, kKnownStream, UINT64_MAX);
  for (size_t i = 0; i < variants.sites.size(); ++i) variants.site_known.push_back(!rng.oneIn(10));
  return variants;
}

AlleleChange trimAllele(const Site& site, size_t alt) {
  AlleleChange change{site.start, site.ref, site.alts[alt]};
  while (!change.ref.empty() && !change.alt.empty() && change.ref.back() == change.alt.back()) {
    change.ref.remove_suffix(1);
    change.alt.remove_suffix(1);
  }
  while (!change.ref.empty() && !change.alt.empty() && change.ref.front() == change.alt.front()) {
    change.ref.remove_prefix(1);
    change.alt.remove_prefix(1);
    ++change.start;
  }
  return change;
}
