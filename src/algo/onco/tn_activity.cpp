#include "algo/onco/tn_activity.h"

#include <algorithm>
#include <cmath>

#include "algo/vcall/read_window.h"
#include "base/bases.h"
#include "base/equal_prefix.h"

namespace {

// Whether the bases beside that word of the CIGAR are those of a gap.
bool isGap(uint32_t word, bool adapter_side) {
  return isIndel(word) || (cigarOp(word) == CIGAR_S && !adapter_side);
}

}  // namespace

TNActivity::TNActivity(const Limits& limits, const DebugPositions& debug) : limits_(limits), debug_(debug) {
  for (size_t quality = 0; quality < odds_.size(); ++quality) {
    const double error = std::min(std::pow(10.0, -double(quality) / 10), 0.75);
    odds_[quality] = {(1 - error) / (error / 3), std::log10(error / 3)};
  }
}

// ---- counting ----

void TNActivity::build(const std::vector<Read*>& reads, std::span<const int32_t> sampleOf,
                       const ReferenceWindow& reference, uint32_t start, uint32_t end) {
  reference_ = &reference;
  start_ = start;
  end_ = end;
  for (auto& changes : depth_changes_) changes.assign(end - start + 1, 0);
  seen_.clear();
  for (Read* read : reads)
    if (read->mapq >= limits_.minMapQual && read->length > 0 && !(read->flag & FLAG_SUPPLEMENTARY))
      addRead(*read, sampleOf[size_t(read->read_group)]);
  std::sort(seen_.begin(), seen_.end());
}

void TNActivity::addRead(Read& read, int32_t sample) {
  const ReadWindow window = adapterFreeWindow(read);
  const int64_t low = std::max(window.start, start_), high = std::min(window.end, end_);
  if (low >= high) return;
  read.getBases();
  addDepth(sample, low, high);
  const ClippedAdapter adapter = clippedAdapter(read);
  int64_t place = read.start;
  int32_t offset = 0;
  for (uint32_t i = 0; i < read.n_cigar && place < high; ++i) {
    const uint32_t word = read.cigarWord(i);
    const int64_t length = cigarLength(word);
    if (isAligned(word) && length > 0) {
      int64_t from = place, to = place + length;
      const auto inside = [&](int64_t position) { return position >= low && position < high; };
      if (i > 0 && isGap(read.cigarWord(i - 1), adapter.left)) {
        if (inside(from)) observe(read, sample, from, offset, kGap);
        ++from;
      }
      if (from < to && i + 1 < read.n_cigar && isGap(read.cigarWord(i + 1), adapter.right)) {
        --to;
        if (inside(to)) observe(read, sample, to, offset + int32_t(to - place), kGap);
      }
      const int64_t first = std::max(from, low);
      addBlock(read, sample, first, std::min(to, high), offset + int32_t(first - place));
    }
    if (consumesReference(word)) place += length;
    if (consumesRead(word)) offset += int32_t(length);
  }
}

// Aligned bases of [from, to), the first at `offset` of the read.
void TNActivity::addBlock(const Read& read, int32_t sample, int64_t from, int64_t to, int32_t offset) {
  while (from < to) {
    const auto left = uint32_t(to - from);
    const uint32_t equal = equalPrefix(read.bases + offset, reference_->from(uint32_t(from)), left);
    if (equal == left) return;
    from += equal;
    offset += int32_t(equal);
    const uint32_t kind = baseIndex(read.bases[offset]);
    if (kind < 4 && isBase(reference_->at(uint32_t(from)))) observe(read, sample, from, offset, kind);
    ++from;
    ++offset;
  }
}

void TNActivity::observe(const Read& read, int32_t sample, int64_t position, int32_t offset, uint32_t kind) {
  const uint8_t quality = qualityAt(read, offset);
  if (quality < limits_.minBaseQual) return;
  const uint8_t fixed_cap = limits_.mapQualCap[size_t(sample)], cap = fixed_cap ? fixed_cap : read.mapq;
  seen_.push_back(pack(uint32_t(position), sample, kind, std::min(quality, cap)));
}

void TNActivity::addDepth(int32_t sample, int64_t from, int64_t to) {
  ++depth_changes_[size_t(sample)][size_t(from - start_)];
  --depth_changes_[size_t(sample)][size_t(to - start_)];
}

void TNActivity::clear(uint32_t start, uint32_t end) {
  std::erase_if(seen_, [&](Observation seen) { return positionOf(seen) >= start && positionOf(seen) < end; });
}

// ---- deciding ----

void TNActivity::findActive(const char* contig, std::vector<uint32_t>& active) {
  int32_t depth[2] = {0, 0};
  uint32_t counted = start_;  // depth is that of the position before
  for (size_t first = 0, next; first < seen_.size(); first = next) {
    const uint32_t position = positionOf(seen_[first]);
    for (; counted <= position; ++counted)
      for (size_t sample : {0, 1}) depth[sample] += depth_changes_[sample][counted - start_];
    Counts counts[2];
    for (size_t sample : {0, 1}) counts[sample].depth = depth[sample];
    for (next = first; next < seen_.size() && positionOf(seen_[next]) == position;) {
      const uint64_t group = seen_[next] >> 8;
      const size_t begin = next;
      while (next < seen_.size() && seen_[next] >> 8 == group) ++next;
      Counts& own = counts[group >> 8 & 1];
      own.of[group & 0xFF] = {seen_.data() + begin, next - begin};
      own.alts += int32_t(next - begin);
    }
    if (isActive(counts, contig, position)) active.push_back(position);
  }
}

// `alternate`: as a mixture with that fraction of it.
TNActivity::Likelihoods TNActivity::likelihoodsOf(const Counts& counts, uint32_t kind,
                                                  double fraction) const {
  Likelihoods sum;
  const int32_t refs = counts.refs();
  if (refs > 0) sum.alternate = refs * std::log10(1 - fraction);
  for (const Observation seen : counts.of[kind]) {
    const BaseOdds& base = odds_[seen & 0xFF];
    sum.reference += base.reference;
    sum.alternate += base.reference + std::log10(1 - fraction + fraction * base.odds);
  }
  return sum;
}

bool TNActivity::isActive(const Counts* counts, const char* contig, uint32_t position) const {
  const bool tells = !debug_.empty() && debug_.levelIn(contig, position, position + 1) >= kDebugRegions;
  const Counts& tumor = counts[kTumor];
  const int32_t refs = tumor.refs();
  for (uint32_t kind = 0; kind < kKinds; ++kind) {
    const auto alts = tumor.of[kind];
    if (alts.empty()) continue;
    const double fraction = double(alts.size()) / double(int32_t(alts.size()) + refs);
    const Likelihoods found = likelihoodsOf(tumor, kind, fraction);
    if (tells)
      debugPrint("At locus %s:%d tumorf=%.6f tumorLOD=%.6f - %.6f=%.6f\n", contig, int(position + 1),
                 fraction, found.alternate, found.reference, found.lod());
    if (found.lod() < limits_.minTumorLod) continue;
    if (!limits_.checksNormal) {
      if (tells) debugPrint("Locus %s:%d is active without normal.\n", contig, int(position + 1));
      return true;
    }
    if (!passesNormal(counts[kNormal], kind, contig, position)) continue;
    if (tells) debugPrint("Locus %s:%d is active after check normal.\n", contig, int(position + 1));
    return true;
  }
  return false;
}

bool TNActivity::passesNormal(const Counts& normal, uint32_t kind, const char* contig,
                              uint32_t position) const {
  const auto alts = normal.of[kind];
  const int32_t refs = normal.refs();
  // A read of the reference is half as likely with the alternate on one of two chromosomes.
  const Likelihoods found = likelihoodsOf(normal, kind, 0.5);
  const double lod = -found.lod();
  if (!debug_.empty() && debug_.levelIn(contig, position, position + 1) >= kDebugRegions) {
    const double reads = double(alts.size()) + refs;
    debugPrint("normalRefCnt=%d normalAltCnt=%d normalF=%f\n", refs, int(alts.size()),
               reads > 0 ? double(alts.size()) / reads : 0.0);
    debugPrint("At locus %s:%d nonRefInNormal=%d normalLOD=%.6f - %.6f=%.6f\n", contig, int(position + 1),
               int(alts.size()), found.reference, found.alternate, lod);
  }
  return int(alts.size()) <= limits_.maxNormalAlt && lod >= limits_.minNormalLod;
}
