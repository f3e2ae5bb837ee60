#include "algo/onco/tn_artefacts.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kArtefactShare = 0.98;  // of its reads that lie its way: some of the others are wrong bases
constexpr int32_t kOuterPart = 10;       // one in so many bases, at either end
constexpr double kLog10Of2 = 0.3010299956639812;

// How many reads lie one way and how many the other.
struct Split {
  int32_t one = 0, other = 0;
  void add(bool is_one) { ++(is_one ? one : other); }
  Split turned() const { return {other, one}; }
};

// That the alternate's reads lie one way for a fault against that they do so as often as the reference's.
double artefactLod(const Split& alts, const Split& refs) {
  const double share = (refs.one + 1.0) / (refs.one + refs.other + 2.0);
  return alts.one * std::log10(kArtefactShare / share) +
         alts.other * std::log10((1 - kArtefactShare) / (1 - share));
}

double strandLod(const LocusReads& reads, int32_t allele) {
  Split refs, alts;
  for (const LocusRead& read : reads.reads()) {
    if (read.sample != kTumor || (read.status & kReadContaminant)) continue;
    if (read.allele == 0) refs.add(read.read->isReverse());
    if (read.allele == allele) alts.add(read.read->isReverse());
  }
  return std::max(artefactLod(alts, refs), artefactLod(alts.turned(), refs.turned())) - kLog10Of2;
}

double readEndLod(const LocusReads& reads, int32_t allele) {
  Split refs, alts;
  for (const LocusRead& read : reads.reads()) {
    if (read.sample != kTumor || !read.counts() || read.offset < 0) continue;
    const int32_t length = read.read->length;
    const bool is_outer = std::min(read.offset, length - 1 - read.offset) < length / kOuterPart;
    if (read.allele == 0) refs.add(is_outer);
    if (read.allele == allele) alts.add(is_outer);
  }
  return artefactLod(alts, refs);
}

}  // namespace

ArtefactLods calcArtefacts(const LocusReads& reads, int32_t allele, const AlleleEvidence& evidence, char ref,
                           char alt) {
  ArtefactLods lods;
  lods.strand = strandLod(reads, allele);
  lods.readEnd = readEndLod(reads, allele);
  const Split alts{evidence.altF1R2, evidence.altF2R1}, refs{evidence.refF1R2, evidence.refF2R1};
  if (ref == 'G' && alt == 'T') lods.oxidation = artefactLod(alts, refs);
  if (ref == 'C' && alt == 'A') lods.oxidation = artefactLod(alts.turned(), refs.turned());
  return lods;
}

void addArtefactFilters(const ArtefactLods& lods, VariantContext& record) {
  if (lods.strand >= kArtefactLod) record.addFilter("strand_artefact");
  if (lods.readEnd >= kArtefactLod) record.addFilter("read_end_artefact");
  if (lods.oxidation >= kArtefactLod) record.addFilter("oxidation_artefact");
}
