#include "algo/vcall/phasing.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "algo/vcall/model/genotype_assignment.h"
#include "base/text.h"

namespace {

using HaplotypeSet = std::vector<bool>;

constexpr int kPartners = 4;             // records before, that reads are asked about
constexpr uint32_t kMinReads = 2;        // of each of the two chromosomes: one may be an error
constexpr uint32_t kReadsPerStray = 10;  // that agree, for one that does not

// What the genotype of a record says of the haplotypes.
struct Phase {
  RegionRecord* record = nullptr;
  size_t alternate = 0;  // in the record
  bool homozygous = false;
  HaplotypeSet carriers;
  size_t group = 0;
  bool opposite = false;  // of the group's first
};

enum class Relation { kUnknown, kSame, kOpposite };

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
  phase = {&record, size_t(high) - 1, low == high, carriersOf(allele, record, haplotypes), 0, false};
  return std::find(phase.carriers.begin(), phase.carriers.end(), true) != phase.carriers.end();
}

HaplotypeSet without(const HaplotypeSet& all, const HaplotypeSet& some) {
  HaplotypeSet rest(all);
  for (size_t h = 0; h < all.size(); ++h)
    if (some[h]) rest[h] = false;
  return rest;
}

Relation relateByHaplotypes(const Phase& a, const Phase& b, const HaplotypeSet& called) {
  if (a.carriers == b.carriers) return Relation::kSame;
  return a.carriers == without(called, b.carriers) ? Relation::kOpposite : Relation::kUnknown;
}

// Counts the reads that reach both records by what they have of them: neither alternate, the first, the second, both.
Relation relateByReads(const Phase& a, const Phase& b, std::span<const ReadClip> reads,
                       std::span<const double> rows) {
  const size_t haplotypes = a.carriers.size();
  const uint32_t start = a.record->record.start, end = b.record->record.end;
  uint32_t counts[4] = {};
  for (size_t r = 0; r < reads.size(); ++r) {
    const double* const row = rows.data() + r * haplotypes;
    if (reads[r].refStart > start || reads[r].refEnd < end || std::isnan(row[0])) continue;
    double best[4];
    std::fill(best, best + 4, -std::numeric_limits<double>::infinity());
    for (size_t h = 0; h < haplotypes; ++h) {
      double& value = best[size_t(a.carriers[h]) + 2 * size_t(b.carriers[h])];
      value = std::max(value, row[h]);
    }
    double* const first = std::max_element(best, best + 4);
    const double value = std::exchange(*first, -std::numeric_limits<double>::infinity());
    if (value - *std::max_element(best, best + 4) > kInformativeMargin) ++counts[first - best];
  }
  const auto agree = [](uint32_t one, uint32_t other, uint32_t stray) {
    return std::min(one, other) >= kMinReads && one + other >= kReadsPerStray * stray;
  };
  if (agree(counts[0], counts[3], counts[1] + counts[2])) return Relation::kSame;
  return agree(counts[1], counts[2], counts[0] + counts[3]) ? Relation::kOpposite : Relation::kUnknown;
}

void writeGroup(const std::vector<Phase*>& group, const std::string& sample) {
  if (group.size() < 2) return;
  const VariantContext& first = group[0]->record->record;
  const std::string id = format("%u_", first.start + 1) + std::string(first.ref, size_t(first.refLength)) +
                         "_" + textOf(first.alleles[group[0]->alternate], first);
  for (const Phase* phase : group) {
    const char* const text = phase->homozygous ? "1|1" : phase->opposite ? "1|0" : "0|1";
    VariantContext& record = phase->record->record;
    record.eraseGenotype(sample, "PGT");
    record.eraseGenotype(sample, "PID");
    record.addGenotype(sample, "PGT", "%s", text);
    record.addGenotype(sample, "PID", "%s", id.c_str());
  }
}

// Gives the heterozygous records groups; returns how many.
size_t findGroups(std::vector<Phase>& phases, const HaplotypeSet& called, std::span<const ReadClip> reads,
                  std::span<const double> rows) {
  std::vector<const Phase*> before;
  size_t groups = 0;
  for (Phase& phase : phases) {
    if (phase.homozygous) continue;
    Relation relation = Relation::kUnknown;
    const auto tryPartner = [&](const Phase& partner, Relation found) {
      relation = found;
      if (found == Relation::kUnknown) return false;
      phase.group = partner.group;
      phase.opposite = partner.opposite != (found == Relation::kOpposite);
      return true;
    };
    for (auto partner = before.rbegin(); partner != before.rend(); ++partner)
      if (tryPartner(**partner, relateByHaplotypes(**partner, phase, called))) break;
    auto partner = before.rbegin();
    for (int i = 0; i < kPartners && relation == Relation::kUnknown && partner != before.rend();
         ++i, ++partner)
      tryPartner(**partner, relateByReads(**partner, phase, reads, rows));
    if (relation == Relation::kUnknown) phase.group = groups++;
    before.push_back(&phase);
  }
  return groups;
}

}  // namespace

void phaseRecords(std::vector<RegionRecord>& records, size_t haplotypes, const std::string& sample,
                  std::span<const ReadClip> reads, std::span<const double> rows, bool twoChromosomes) {
  std::vector<Phase> phases;
  HaplotypeSet called(haplotypes, !twoChromosomes);
  for (RegionRecord& record : records) {
    Phase phase;
    if (!readPhase(record, haplotypes, sample, phase)) continue;
    for (size_t h = 0; h < haplotypes; ++h)
      if (phase.carriers[h]) called[h] = true;
    phases.push_back(std::move(phase));
  }

  std::vector<std::vector<Phase*>> groups(findGroups(phases, called, reads, rows));
  std::vector<Phase*> homozygous;  // before the first heterozygous one
  std::vector<Phase*>* last = nullptr;
  for (Phase& phase : phases) {
    if (phase.homozygous) {
      if (phase.carriers == called) (last ? *last : homozygous).push_back(&phase);
      continue;
    }
    std::vector<Phase*>& group = groups[phase.group];
    if (!last) group.swap(homozygous);
    group.push_back(&phase);
    last = &group;
  }
  writeGroup(homozygous, sample);
  for (const std::vector<Phase*>& group : groups) writeGroup(group, sample);
}
