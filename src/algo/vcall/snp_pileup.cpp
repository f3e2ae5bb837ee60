#include "algo/vcall/snp_pileup.h"

#include <algorithm>
#include <emmintrin.h>

namespace {

constexpr uint32_t kDiploidStride = 10;

// Calls visit(position, offset, count) for each stretch of aligned bases inside [start, end).
template <typename Visit>
void walkAligned(const Read& read, uint32_t start, uint32_t end, Visit visit) {
  int64_t place = read.start, offset = 0;
  for (uint32_t i = 0; i < read.n_cigar && place < end; ++i) {
    const uint32_t word = read.cigarWord(i);
    const int64_t length = cigarLength(word);
    if (consumesRead(word) && consumesReference(word)) {
      const int64_t from = std::max<int64_t>(place, start), to = std::min<int64_t>(place + length, end);
      if (from < to) visit(uint32_t(from), int32_t(offset + (from - place)), uint32_t(to - from));
    }
    if (consumesReference(word)) place += length;
    if (consumesRead(word)) offset += length;
  }
}

void addRow(double* sums, const double* row, uint32_t stride) {
  for (uint32_t i = 0; i < stride; i += 2)
    _mm_store_pd(sums + i, _mm_add_pd(_mm_load_pd(sums + i), _mm_load_pd(row + i)));
}

// A fixed stride unrolls.
void addDiploidRow(double* sums, const double* row) {
  addRow(sums, row, kDiploidStride);
}

bool mayHaveMate(const Read& read) {
  constexpr uint16_t kOneOfPair = FLAG_FIRST | FLAG_SECOND;
  constexpr uint16_t kPairBits = FLAG_PAIRED | FLAG_MATE_UNMAPPED | FLAG_SUPPLEMENTARY;
  return (read.flag & kPairBits) == FLAG_PAIRED && (read.flag & kOneOfPair) != 0 &&
         (read.flag & kOneOfPair) != kOneOfPair && read.mate_ref_id == read.ref_id;
}

}  // namespace

SNPPileup::SNPPileup(const SNPLookupTable& table, size_t samples, bool pairs)
    : table_(table), samples_(samples), pairs_(pairs) {}

void SNPPileup::reset(uint32_t start, uint32_t end) {
  start_ = start;
  end_ = end;
  const size_t values = samples_ * size() * table_.stride();
  if (sums_.size() < values) sums_.resize(values);
  std::fill_n(sums_.begin(), values, 0.0);
  good_.assign(size() + 1, 0);
  bad_.assign(size() + 1, 0);
}

void SNPPileup::findOverlaps(const std::vector<Read*>& reads) {
  if (!pairs_) return;
  mates_.assign(reads.size(), -1);
  names_.reset(reads.size());
  for (size_t i = 0; i < reads.size(); ++i) {
    const Read& read = *reads[i];
    if (!mayHaveMate(read)) continue;
    // Names are unique in a read group only.
    const uint32_t hash = NameTable::hashOf(read.name) ^ uint32_t(read.read_group + 1) * 0x9E3779B9u;
    const int32_t found = names_.takeOrPut(read.name, hash, int32_t(i));
    if (found < 0) continue;
    const Read& mate = *reads[size_t(found)];
    if (mate.read_group != read.read_group || !((mate.flag ^ read.flag) & FLAG_FIRST)) continue;
    mates_[i] = found;
    mates_[size_t(found)] = int32_t(i);
  }
}

// What of a read counts in the region; empty, with start == end, when nothing does.
SNPPileup::Span SNPPileup::spanOf(const Read& read) const {
  const ReadWindow window = adapterFreeWindow(read);
  const uint32_t start = std::max(window.start, start_), end = std::min(window.end, end_);
  return {std::min(start, end), end};
}

void SNPPileup::addReads(const std::vector<Read*>& reads, std::span<const int32_t> sampleOf) {
  for (size_t i = 0; i < reads.size(); ++i) {
    Read& read = *reads[i];
    if (read.length == 0) continue;
    const Span span = spanOf(read);
    count(read, span);
    double* const sums = this->sums(size_t(sampleOf[size_t(read.read_group)]));
    Read* const mate = pairs_ && mates_[i] >= 0 ? reads[size_t(mates_[i])] : nullptr;
    Span overlap{span.end, span.end};
    if (mate && mate->length > 0) {
      const Span other = spanOf(*mate);
      const uint32_t start = std::max(span.start, other.start), end = std::min(span.end, other.end);
      if (start < end) overlap = {start, end};
    }
    addSingle(read, {span.start, overlap.start}, sums);
    if (overlap.start < overlap.end && size_t(mates_[i]) < i) addPair(*mate, read, overlap, sums);
    addSingle(read, {overlap.end, span.end}, sums);
  }
  for (size_t i = 1; i < good_.size(); ++i) {
    good_[i] += good_[i - 1];
    bad_[i] += bad_[i - 1];
  }
}

void SNPPileup::count(const Read& read, Span span) {
  int64_t place = read.start;
  for (uint32_t i = 0; i < read.n_cigar && place < span.end; ++i) {
    const uint32_t word = read.cigarWord(i);
    if (!consumesReference(word)) continue;
    const int64_t from = std::max<int64_t>(place, span.start);
    place += cigarLength(word);
    const int64_t to = std::min<int64_t>(place, span.end);
    if (from >= to || cigarOp(word) == CIGAR_N) continue;
    std::vector<uint32_t>& counter = consumesRead(word) ? good_ : bad_;
    ++counter[size_t(from - start_)];
    --counter[size_t(to - start_)];
  }
}

void SNPPileup::addSingle(Read& read, Span span, double* sums) {
  if (span.start >= span.end || read.mapq < table_.minQual()) return;
  walkAligned(read, span.start, span.end, [&](uint32_t position, int32_t offset, uint32_t count) {
    addBases(read, position, offset, count, sums);
  });
}

void SNPPileup::addBases(Read& read, uint32_t position, int32_t offset, uint32_t count, double* sums) {
  const char* const bases = read.getBases() + offset;
  const uint8_t* const quals = read.getQuals() + offset;
  const uint8_t cap = read.mapq;
  const uint32_t stride = table_.stride();
  double* cell = sums + size_t(position - start_) * stride;
  if (stride == kDiploidStride) {
    for (uint32_t i = 0; i < count; ++i, cell += kDiploidStride)
      if (const double* row = table_.row(std::min(quals[i], cap), baseIndex(bases[i])))
        addDiploidRow(cell, row);
  } else {
    for (uint32_t i = 0; i < count; ++i, cell += stride)
      if (const double* row = table_.row(std::min(quals[i], cap), baseIndex(bases[i])))
        addRow(cell, row, stride);
  }
}

const double* SNPPileup::rowOf(const Read& read, int32_t offset) const {
  return table_.row(std::min(read.quals[offset], read.mapq), baseIndex(read.bases[offset]));
}

// Where one of them has no base that is a letter, the other counts alone.
void SNPPileup::addPair(Read& earlier, Read& later, Span overlap, double* sums) {
  const uint32_t size = overlap.end - overlap.start;
  if (offsets_.size() < 2 * size_t(size)) offsets_.resize(2 * size_t(size));
  std::fill_n(offsets_.begin(), 2 * size_t(size), -1);
  int32_t* const offsets[2] = {offsets_.data(), offsets_.data() + size};
  Read* const reads[2] = {&earlier, &later};
  for (int r = 0; r < 2; ++r) {
    reads[r]->getBases();
    walkAligned(*reads[r], overlap.start, overlap.end,
                [&](uint32_t position, int32_t offset, uint32_t count) {
                  for (uint32_t i = 0; i < count; ++i)
                    offsets[r][position - overlap.start + i] = offset + int32_t(i);
                });
  }
  double* cell = sums + size_t(overlap.start - start_) * kDiploidStride;
  for (uint32_t i = 0; i < size; ++i, cell += kDiploidStride) {
    uint8_t base[2], qual[2];
    for (int r = 0; r < 2; ++r) {
      const int32_t offset = offsets[r][i];
      base[r] = offset < 0 ? kNoBase : baseIndex(reads[r]->bases[offset]);
      qual[r] = offset < 0 ? 0 : table_.pairQuality(std::min(reads[r]->quals[offset], reads[r]->mapq));
    }
    const double* row = nullptr;
    if (base[0] != kNoBase && base[1] != kNoBase)
      row = table_.pairRow(qual[0], qual[1], base[0], base[1]);
    else
      for (int r = 0; r < 2; ++r)
        if (base[r] != kNoBase) row = rowOf(*reads[r], offsets[r][i]);
    if (row) addDiploidRow(cell, row);
  }
}
