// The fields:
//   BaseQRankSum      phred of the base at the position
//   MQRankSum         mapping quality
//   ClippingRankSum   clipped bases of the read, soft and hard
//   ReadPosRankSum    distance from the nearer end of the aligned bases: soft clips do not count
//   ReadPosEndDist    distance from the nearer end of the read: soft clips count
#include "algo/vcall/annotate/rank_sum_fields.h"

#include <algorithm>
#include <limits>

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

}  // namespace

int32_t readEndDistance(const SiteRead& read) {
  return endDistance(read.offset, read.read->length);
}

const std::array<RankSumField, 5> kRankSumFields = {{
    {AnnotationField::BaseQRankSum, "BaseQRankSum", baseQuality},
    {AnnotationField::MQRankSum, "MQRankSum", mappingQuality},
    {AnnotationField::ClippingRankSum, "ClippingRankSum", clippedBases},
    {AnnotationField::ReadPosRankSum, "ReadPosRankSum", alignedPosition},
    {AnnotationField::ReadPosEndDist, "ReadPosEndDist", readEndDistance},
}};

bool isComparable(const SiteRead& read) {
  return read.offset >= 0 && hasMappingQuality(read) && read.qual >= kMinBaseQuality;
}

double neighbourQuality(const std::vector<const SiteRead*>& reads) {
  int64_t sum = 0, bases = 0;
  for (const SiteRead* read : reads) {
    const int32_t first = std::max(read->offset - kNeighbours, 0);
    const int32_t last = std::min(read->offset + kNeighbours, read->read->length - 1);
    for (int32_t i = first; i <= last; ++i)
      if (i != read->offset) sum += qualityAt(*read->read, i), ++bases;
  }
  if (bases == 0) return std::numeric_limits<double>::quiet_NaN();
  return static_cast<double>(sum) / static_cast<double>(bases);
}
