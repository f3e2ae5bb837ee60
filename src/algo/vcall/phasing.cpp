#include "algo/vcall/phasing.h"

#include <algorithm>
#include <cstdint>
#include <map>

#include "base/text.h"

namespace {

using HaplotypeSet = std::vector<bool>;

// What the genotype of a record says of the haplotypes.
struct Phase {
  RegionRecord* record = nullptr;
  size_t alternate = 0;  // in the record
  bool homozygous = false;
  HaplotypeSet carriers;
};

// As it is printed.
std::string textOf(const Allele& allele, const VariantContext& record) {
  std::string text(allele.bases, size_t(allele.length));
  if (allele.refSuffix > 0 && allele.refSuffix < record.refLength)
    text.append(record.ref + record.refLength - allele.refSuffix, size_t(allele.refSuffix));
  return text;
}

// The haplotypes that carry the alternate: that of the site which differs from it by the bases that all alleles of the
// record have lost at their end.
HaplotypeSet carriersOf(const Allele& allele, const RegionRecord& record, size_t haplotypes) {
  HaplotypeSet carriers(haplotypes);
  const EventSite& site = *record.site;
  const std::string lost = site.ref.substr(std::min(site.ref.size(), size_t(record.record.refLength)));
  const auto alt = std::find(site.alts.begin(), site.alts.end(), textOf(allele, record.record) + lost);
  if (alt == site.alts.end()) return carriers;
  for (size_t h : site.carriers[size_t(alt - site.alts.begin()) + 1])
    if (h < haplotypes) carriers[h] = true;
  return carriers;
}

// False for a genotype that has no phase.
bool readPhase(RegionRecord& record, size_t haplotypes, const std::string& sample, Phase& phase) {
  const std::vector<std::string>& genotype = record.record.getGenotype(sample, "GT");
  if (genotype.empty()) return false;
  const std::vector<std::string> alleles = split(genotype[0], '/');
  if (alleles.size() != 2) return false;
  int64_t numbers[2];
  for (size_t i = 0; i < 2; ++i)
    if (!parseInteger(alleles[i], 0, INT32_MAX, numbers[i])) return false;
  const auto [low, high] = std::minmax(numbers[0], numbers[1]);
  if (high == 0 || (low != 0 && low != high) || size_t(high) > record.record.alleles.size()) return false;
  const Allele& allele = record.record.alleles[size_t(high) - 1];
  if (allele.length <= 0 || allele.isSymbolic()) return false;
  phase = {&record, size_t(high) - 1, low == high, carriersOf(allele, record, haplotypes)};
  return std::find(phase.carriers.begin(), phase.carriers.end(), true) != phase.carriers.end();
}

HaplotypeSet without(const HaplotypeSet& all, const HaplotypeSet& some) {
  HaplotypeSet rest(all);
  for (size_t h = 0; h < all.size(); ++h)
    if (some[h]) rest[h] = false;
  return rest;
}

void writeGroup(const std::vector<Phase*>& group, const std::string& sample) {
  if (group.size() < 2) return;
  const VariantContext& first = group[0]->record->record;
  const std::string id = format("%u_", first.start + 1) + std::string(first.ref, size_t(first.refLength)) +
                         "_" + textOf(first.alleles[group[0]->alternate], first);
  const HaplotypeSet* side = nullptr;  // of the first heterozygous one
  for (const Phase* phase : group) {
    if (!phase->homozygous && !side) side = &phase->carriers;
    const char* const text = phase->homozygous ? "1|1" : phase->carriers == *side ? "0|1" : "1|0";
    VariantContext& record = phase->record->record;
    record.eraseGenotype(sample, "PGT");
    record.eraseGenotype(sample, "PID");
    record.addGenotype(sample, "PGT", "%s", text);
    record.addGenotype(sample, "PID", "%s", id.c_str());
  }
}

}  // namespace

void phaseRecords(std::vector<RegionRecord>& records, size_t haplotypes, const std::string& sample) {
  std::vector<Phase> phases;
  HaplotypeSet called(haplotypes);
  for (RegionRecord& record : records) {
    Phase phase;
    if (!readPhase(record, haplotypes, sample, phase)) continue;
    for (size_t h = 0; h < haplotypes; ++h)
      if (phase.carriers[h]) called[h] = true;
    phases.push_back(std::move(phase));
  }

  std::map<HaplotypeSet, std::vector<Phase*>> groups;  // by the greater one of the two sides
  std::vector<Phase*> homozygous;                      // before the first heterozygous one
  std::vector<Phase*>* last = nullptr;
  for (Phase& phase : phases) {
    if (phase.homozygous) {
      if (phase.carriers == called) (last ? *last : homozygous).push_back(&phase);
      continue;
    }
    std::vector<Phase*>& group = groups[std::max(phase.carriers, without(called, phase.carriers))];
    if (!last) group.swap(homozygous);
    group.push_back(&phase);
    last = &group;
  }
  writeGroup(homozygous, sample);
  for (const auto& [side, group] : groups) writeGroup(group, sample);
}
