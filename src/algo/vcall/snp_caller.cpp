#include "algo/vcall/snp_caller.h"

#include <algorithm>
#include <cmath>

#include "algo/vcall/model/genotype_index.h"

namespace {

constexpr char kBases[] = "ACGT";
constexpr double kMaxDeletionFraction = 0.05;
// What is less likely is impossible; keeps phred values in the range of int.
constexpr double kLeastLog10 = -1e8;

Allele alleleOf(uint8_t base) {
  Allele allele;
  allele.bases = kBases + base;
  allele.length = 1;
  return allele;
}

}  // namespace

bool BaseList::has(uint8_t base) const {
  return std::find(bases, bases + count, base) != bases + count;
}

void BaseList::add(uint8_t base) {
  if (!has(base)) bases[count++] = base;
}

bool SNPCaller::isCovered(const SNPPileup& pileup, uint32_t position) {
  const uint32_t good = pileup.good(position), bad = pileup.bad(position);
  return good > 0 && kMaxDeletionFraction * (double(good) + bad) >= bad;
}

bool SNPCaller::findBest(const double* likelihoods, uint8_t ref, Best& best) const {
  const uint32_t genotypes = table_.genotypes(), homozygous = table_.homozygous(ref);
  best = {homozygous, likelihoods[homozygous]};
  bool data = false;
  for (uint32_t g = 0; g < genotypes; ++g) {
    data = data || likelihoods[g] != 0;
    if (likelihoods[g] > best.likelihood) best = {g, likelihoods[g]};
  }
  return data && std::isfinite(best.likelihood);
}

BaseList SNPCaller::alternates(const SNPPileup& pileup, uint32_t position, uint8_t ref) const {
  BaseList alts;
  Best best;
  for (size_t s = 0; s < samples_; ++s) {
    if (!findBest(pileup.likelihoods(s, position), ref, best)) continue;
    const unsigned others = table_.allelesOf(best.genotype) & ~(1u << ref);
    for (uint8_t base = 0; base < 4; ++base)
      if (others >> base & 1) alts.add(base);
  }
  return alts;
}

uint8_t SNPCaller::bestOther(const SNPPileup& pileup, uint32_t position, uint8_t ref) const {
  double sums[4] = {};
  for (size_t s = 0; s < samples_; ++s)
    for (uint8_t base = 0; base < 4; ++base)
      sums[base] += pileup.likelihoods(s, position)[table_.homozygous(base)];
  uint8_t found = ref == 0 ? 1 : 0;
  for (uint8_t base = 0; base < 4; ++base)
    if (base != ref && sums[base] > sums[found]) found = base;
  return found;
}

const std::vector<uint32_t>& SNPCaller::genotypesOver(uint8_t ref, const BaseList& alts) {
  uint32_t key = ref;
  for (uint8_t i = 0; i < alts.count; ++i) key = key << 3 | 4u | alts.bases[i];
  std::vector<uint32_t>& found = genotypes_[key];
  if (!found.empty()) return found;
  GenotypeIndex all(table_.ploidy(), 4);
  for (GenotypeIndex own(table_.ploidy(), 1 + size_t(alts.count)); !own.exhausted(); own.next()) {
    std::fill(all.counts.begin(), all.counts.end(), 0);
    all.set(ref, own.counts[0]);
    for (uint8_t i = 0; i < alts.count; ++i) all.set(alts.bases[i], own.counts[i + 1u]);
    all.recalc();
    found.push_back(uint32_t(all.index));
  }
  return found;
}

void SNPCaller::prepare(const SNPPileup& pileup, uint32_t position, uint8_t ref, const BaseList& alts,
                        bool given, Site& site) {
  site.position = position;
  site.ref = alleleOf(ref);
  site.ref.isRef = true;
  site.alts.clear();
  for (uint8_t i = 0; i < alts.count; ++i) site.alts.push_back(alleleOf(alts.bases[i]));
  site.isSNP = true;
  site.rows = nullptr;

  const std::vector<uint32_t>& genotypes = genotypesOver(ref, alts);
  site.likelihoods.resize(samples_);
  for (size_t s = 0; s < samples_; ++s) {
    GenotypeLikelihoods& own = site.likelihoods[s];
    own.ploidy = table_.ploidy();
    own.gl.clear();
    const double* const likelihoods = pileup.likelihoods(s, position);
    Best best;
    if (!findBest(likelihoods, ref, best)) continue;
    double top = best.likelihood;
    if (given) {
      top = likelihoods[genotypes[0]];
      for (uint32_t g : genotypes) top = std::max(top, likelihoods[g]);
      if (!std::isfinite(top)) continue;
    }
    for (uint32_t g : genotypes)
      own.gl.push_back(std::round((std::max(likelihoods[g] - top, kLeastLog10)) * -10) * -0.1);
  }
}
