// rank_sum.cpp - do the reads of the alternates differ from those of the reference?
//
//   BaseQRankSum      phred of the base at the position
//   MQRankSum         mapping quality
//   ClippingRankSum   clipped bases of the read, soft and hard
//   ReadPosRankSum    distance from the nearer end of the aligned bases: soft clips do not count
//   ReadPosEndDist    distance from the nearer end of the read: soft clips count
//   NBQ               mean phred of the neighbours in all these reads, up to five on either side
//
// Source   of the five: Altshuler et al., Nature 407 (2000), 513, the neighbourhood quality standard.
#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "algo/vcall/annotate/annotators.h"
#include "algo/vcall/annotate/rank_sum_test.h"
#include "algo/vcall/annotate/site_evidence.h"
#include "readdata/bam/bam_record.h"

namespace {

constexpr int32_t kNeighbours = 5;

struct Clips {
  int32_t softFront = 0, softBack = 0;
  int32_t all = 0;  // hard clips too
};

Clips clipsOf(const Read& read) {
  Clips clips;
  bool aligned = false;
  for (uint32_t i = 0; i < read.n_cigar; ++i) {
    const uint32_t word = read.cigarWord(i), op = cigarOp(word);
    if (op != CIGAR_S && op != CIGAR_H) {
      aligned = true;
      continue;
    }
    const int32_t length = static_cast<int32_t>(cigarLength(word));
    clips.all += length;
    if (op == CIGAR_S) (aligned ? clips.softBack : clips.softFront) += length;
  }
  return clips;
}

int32_t endDistance(int32_t offset, int32_t length) {
  return std::max(0, std::min(offset, length - 1 - offset));
}

int32_t baseQuality(const SiteRead& read) {
  return read.qual;
}
int32_t mappingQuality(const SiteRead& read) {
  return read.read->mapq;
}
int32_t clippedBases(const SiteRead& read) {
  return clipsOf(*read.read).all;
}
int32_t alignedPosition(const SiteRead& read) {
  const Clips clips = clipsOf(*read.read);
  return endDistance(read.offset - clips.softFront, read.read->length - clips.softFront - clips.softBack);
}
int32_t readPosition(const SiteRead& read) {
  return endDistance(read.offset, read.read->length);
}

struct Field {
  AnnotationField field;
  const char* name;
  int32_t (*value)(const SiteRead&);
};
constexpr std::array<Field, 5> kFields = {{
    {AnnotationField::BaseQRankSum, "BaseQRankSum", baseQuality},
    {AnnotationField::MQRankSum, "MQRankSum", mappingQuality},
    {AnnotationField::ClippingRankSum, "ClippingRankSum", clippedBases},
    {AnnotationField::ReadPosRankSum, "ReadPosRankSum", alignedPosition},
    {AnnotationField::ReadPosEndDist, "ReadPosEndDist", readPosition},
}};

void addNeighbourQuality(VariantContext& record, const std::vector<const SiteRead*>& reads) {
  int64_t sum = 0, bases = 0;
  for (const SiteRead* read : reads) {
    const uint8_t* quals = read->read->getQuals();
    const int32_t first = std::max(read->offset - kNeighbours, 0);
    const int32_t last = std::min(read->offset + kNeighbours, read->read->length - 1);
    for (int32_t i = first; i <= last; ++i)
      if (i != read->offset) sum += quals[i], ++bases;
  }
  if (bases > 0) record.addInfo("NBQ", "%.3f", static_cast<double>(sum) / static_cast<double>(bases));
}

}  // namespace

void RankSumAnnotator::annotate(VariantContext& record, const SiteContext& context,
                                const AnnotationSet& wanted) const {
  if (countKept(*context.site) == 0) return;
  std::vector<const SiteRead*> reads;  // those of the reference first
  const auto file = [&](auto&& supports) {
    for (const SiteRead& read : context.reads)
      if (read.offset >= 0 && hasMappingQuality(read) && read.qual >= kMinBaseQuality && supports(read))
        reads.push_back(&read);
  };
  file(supportsReference);
  const size_t references = reads.size();
  file([&](const SiteRead& read) { return supportsAlternate(read, *context.site); });

  if (wanted.has(AnnotationField::NBQ)) addNeighbourQuality(record, reads);
  if (references == 0 || references == reads.size()) return;
  std::vector<int32_t> reference(references), alternate(reads.size() - references);
  for (const Field& field : kFields) {
    if (!wanted.has(field.field)) continue;
    for (size_t i = 0; i < reads.size(); ++i)
      (i < references ? reference[i] : alternate[i - references]) = field.value(*reads[i]);
    record.addInfo(field.name, "%.3f", rankSumZ(alternate, reference));
  }
}
