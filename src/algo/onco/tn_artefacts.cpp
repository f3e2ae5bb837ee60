#include "algo/onco/tn_artefacts.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "algo/onco/tn_annotations.h"
#include "base/log_math.h"

namespace {

constexpr double kArtefactShare = 0.98;  // of its reads that lie its way: some of the others are wrong bases
constexpr int32_t kOuterPart = 10;       // one in so many bases, at either end
constexpr size_t kLowPart = 10;          // one in so many qualities of the reference's bases is low
constexpr double kLowShare = 0.75;       // of a fault's bases that are low
constexpr double kExceptions = 0.1;      // faults with qualities like the reference's, variants with low ones
constexpr double kClearMargin = 1.0;     // ten times likelier: bases without a quality are not

// How many reads lie one way and how many the other.
struct Split {
  int32_t one = 0, other = 0;
  void add(bool is_one) { ++(is_one ? one : other); }
  Split turned() const { return {other, one}; }
};

// Of the reference's reads and the alternate's.
struct Splits {
  Split refs, alts;
  Splits turned() const { return {refs.turned(), alts.turned()}; }
};

// A read of the tumor that clearly has the reference or the alternate.
struct ClearRead {
  const LocusRead* seen;
  bool isAlt;
};

std::vector<ClearRead> clearReads(const LocusReads& reads, int32_t allele) {
  std::vector<ClearRead> clear;
  for (size_t i = 0; i < reads.reads().size(); ++i) {
    const LocusRead& read = reads.reads()[i];
    if (read.sample != kTumor || (read.status & kReadContaminant)) continue;
    if (read.allele != 0 && read.allele != allele) continue;
    const double* const row = reads.row(i);
    const int32_t other = read.allele == 0 ? allele : 0;
    if (row[read.allele] - row[other] >= kClearMargin) clear.push_back({&read, read.allele != 0});
  }
  return clear;
}

template <class Which, class Way>
Splits splitBy(const std::vector<ClearRead>& reads, Which which, Way way) {
  Splits splits;
  for (const auto& [seen, is_alt] : reads)
    if (which(*seen)) (is_alt ? splits.alts : splits.refs).add(way(*seen));
  return splits;
}

// That the alternate's reads lie one way for a fault against that they do so as often as the reference's.
double artefactLod(const Splits& splits, double faultShare = kArtefactShare) {
  const auto& [refs, alts] = splits;
  const double share = (refs.one + 1.0) / (refs.one + refs.other + 2.0);
  return alts.one * std::log10(faultShare / share) + alts.other * std::log10((1 - faultShare) / (1 - share));
}

// Both mates.
double strandLod(const std::vector<ClearRead>& reads) {
  const Splits splits = splitBy(
      reads, [](const LocusRead&) { return true; },
      [](const LocusRead& seen) { return seen.read->isReverse(); });
  return std::max(artefactLod(splits), artefactLod(splits.turned())) - kLog10Of2;
}

bool hasBase(const LocusRead& seen) {
  return seen.offset >= 0;
}

double lowQualityLod(const std::vector<ClearRead>& reads) {
  std::vector<uint8_t> ref_quals;
  for (const auto& [seen, is_alt] : reads)
    if (!is_alt && hasBase(*seen)) ref_quals.push_back(seen->qual);
  if (ref_quals.empty()) return 0;
  const auto lowest_fine = ref_quals.begin() + ptrdiff_t(ref_quals.size() / kLowPart);
  std::nth_element(ref_quals.begin(), lowest_fine, ref_quals.end());
  const Splits splits =
      splitBy(reads, hasBase, [limit = *lowest_fine](const LocusRead& seen) { return seen.qual < limit; });
  const double odds = artefactLod(splits, kLowShare);
  const double rule = std::log10(1 - kExceptions), exception = std::log10(kExceptions);
  return log10SumFast(rule + odds, exception) - log10SumFast(exception + odds, rule);
}

double readEndLod(const std::vector<ClearRead>& reads) {
  return artefactLod(splitBy(
      reads, [](const LocusRead& seen) { return seen.counts() && hasBase(seen); },
      [](const LocusRead& seen) {
        const int32_t length = seen.read->length;
        return std::min(seen.offset, length - 1 - seen.offset) < length / kOuterPart;
      }));
}

double orientationLod(const std::vector<ClearRead>& reads, Orientation ofFault) {
  return artefactLod(splitBy(
      reads,
      [](const LocusRead& seen) { return seen.counts() && orientationOf(*seen.read) != Orientation::kNone; },
      [ofFault](const LocusRead& seen) { return orientationOf(*seen.read) == ofFault; }));
}

}  // namespace

ArtefactLods calcArtefacts(const LocusReads& reads, int32_t allele, char ref, char alt) {
  const std::vector<ClearRead> clear = clearReads(reads, allele);
  ArtefactLods lods;
  lods.strand = strandLod(clear);
  if (ref != 'N') lods.strand += lowQualityLod(clear);
  lods.readEnd = readEndLod(clear);
  if (ref == 'G' && alt == 'T') lods.oxidation = orientationLod(clear, Orientation::kF1R2);
  if (ref == 'C' && alt == 'A') lods.oxidation = orientationLod(clear, Orientation::kF2R1);
  return lods;
}

void addArtefactFilters(const ArtefactLods& lods, VariantContext& record) {
  if (lods.strand >= kArtefactLod) record.addFilter("strand_artefact");
  if (lods.readEnd >= kArtefactLod) record.addFilter("read_end_artefact");
  if (lods.oxidation >= kOxidationLod) record.addFilter("oxidation_artefact");
}
