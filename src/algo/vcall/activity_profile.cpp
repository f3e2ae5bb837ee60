#include "algo/vcall/activity_profile.h"

#include <algorithm>
#include <cmath>
#include <emmintrin.h>

#include "algo/vcall/read_window.h"
#include "base/bases.h"
#include "base/equal_prefix.h"

namespace {

constexpr uint32_t kStandardQuality = 30;  // also of a deletion
constexpr int32_t kDepthLimit = 40;
constexpr uint32_t kQualities = 256;
constexpr uint32_t kDiploidStride = 4;

// Of an observation for the reference or against it, log10(P | n of ploidy copies differ). The worst base is a guess.
double likelihood(uint32_t quality, bool matches, uint32_t n, uint32_t ploidy) {
  const double error = std::min(std::pow(10.0, -double(quality) / 10), 0.75);
  const double expected = 1 - error, other = error / 3;
  const double same = matches ? expected : other, different = matches ? other : expected;
  return std::log10((ploidy - n) * same + n * different) - std::log10(double(ploidy));
}

void addRow(double* sums, const double* row, uint32_t stride) {
  for (uint32_t i = 0; i < stride; i += 2)
    _mm_storeu_pd(sums + i, _mm_add_pd(_mm_loadu_pd(sums + i), _mm_loadu_pd(row + i)));
}

}  // namespace

struct ActivityProfile::Span {
  uint32_t start, end;
};

ActivityProfile::ActivityProfile(size_t samples, uint32_t ploidy, uint32_t minBaseQual, uint32_t minMapQual,
                                 bool confidence)
    : samples_(samples),
      ploidy_(ploidy),
      wide_ploidy_(std::max(ploidy, 2u)),
      min_base_qual_(minBaseQual),
      min_map_qual_(minMapQual),
      keeps_confidence_(confidence),
      stride_((wide_ploidy_ + 3) & ~1u) {
  fillTables();
}

// Rows of a quality that does not count are 0.
void ActivityProfile::fillTables() {
  match_.assign(size_t(kQualities) * stride_, 0.0);
  differ_.assign(size_t(kQualities) * stride_, 0.0);
  for (uint32_t quality = 0; quality < kQualities; ++quality) {
    if (quality < min_base_qual_) continue;
    double* const match = match_.data() + quality * stride_;
    double* const differ = differ_.data() + quality * stride_;
    for (uint32_t n = 0; n <= wide_ploidy_; ++n) {
      match[n] = likelihood(quality, true, n, wide_ploidy_);
      differ[n] = likelihood(quality, false, n, wide_ploidy_);
    }
    match[wide_ploidy_ + 1] = differ[wide_ploidy_ + 1] = 1;
  }
  regain_ = match_;
  for (size_t i = 0; i < regain_.size(); ++i) regain_[i] -= differ_[i];
  for (uint32_t n = 0; n <= wide_ploidy_; ++n)
    standard_.push_back(likelihood(kStandardQuality, true, n, wide_ploidy_));
  haploid_standard_ = {standard_.front(), standard_.back()};
}

void ActivityProfile::reset(const ReferenceWindow& reference, uint32_t start, uint32_t end) {
  start_ = start;
  end_ = end;
  const auto empty = [](auto& values, size_t count) {
    values.clear();
    values.resize(count);
  };
  empty(rows_, samples_ * size() * stride_);
  empty(depth_, samples_ * size());
  empty(deleted_, samples_ * (size() + 1));
  empty(marks_, size());
  empty(clips_, size());
  if (keeps_confidence_) {
    empty(regained_, rows_.size());
    empty(confidence_, samples_ * size() * (ploidy_ + 1));
  }
  reference_.resize(size());
  for (uint32_t position = start; position < end; ++position) {
    const char base = reference.contains(position) ? reference.at(position) : 'N';
    reference_[position - start] = isBase(base) ? base : '\0';
  }
}

void ActivityProfile::build(const std::vector<Read*>& reads, std::span<const int32_t> sampleOf,
                            const ReferenceWindow& reference, uint32_t start, uint32_t end) {
  reset(reference, start, end);
  for (Read* read : reads)
    if (read->mapq >= min_map_qual_ && read->length > 0)
      addRead(*read, size_t(sampleOf[size_t(read->read_group)]));
  for (size_t sample = 0; sample < samples_; ++sample) finishSample(sample);
}

// A base that is usable stays so.
uint8_t ActivityProfile::capOf(const Read& read) const {
  return uint8_t(std::max<uint32_t>(read.mapq, min_base_qual_));
}

void ActivityProfile::addRead(Read& read, size_t sample) {
  const ReadWindow free = adapterFreeWindow(read);
  const Span window{free.start, free.end};
  if (std::max(window.start, start_) >= std::min(window.end, end_)) return;
  read.getBases();
  double* const sums = rows_.data() + sample * size() * stride_;
  int32_t* const deleted = deleted_.data() + sample * (size() + 1);

  const ClippedAdapter adapter = clippedAdapter(read);
  const uint32_t words = read.n_cigar;
  bool edge = false, first = true;
  uint32_t clipped = 0;  // usable bases of the clip before the first aligned base
  uint32_t place = read.start;
  int32_t offset = 0;
  for (uint32_t i = 0; i < words && place < end_; ++i) {
    const uint32_t word = read.cigarWord(i), length = cigarLength(word);
    if (isAligned(word)) {
      if (first && clipped > 0 && window.start <= read.start) addClip(place, clipped);
      edge = edge || (first && clipped > 0);
      bool right_edge = false;
      uint32_t clipped_behind = 0, next = i + 1;
      for (int32_t behind = offset + int32_t(length); next < words; ++next) {
        const uint32_t other = read.cigarWord(next);
        if (isAligned(other)) break;
        right_edge = right_edge || isIndel(other);
        if (cigarOp(other) == CIGAR_S && !adapter.right)
          clipped_behind += usableBases(read, behind, behind + int32_t(cigarLength(other)));
        if (consumesRead(other)) behind += int32_t(cigarLength(other));
      }
      if (next == words && clipped_behind > 0) {
        right_edge = true;
        if (length > 0 && window.end >= read.end) addClip(place + length - 1, clipped_behind);
      }
      addBases(read, window, place, offset, length, edge, right_edge, sums);
      edge = first = false;
    } else if (cigarOp(word) == CIGAR_D) {
      addDeletion(window, place, int64_t(place) + length, deleted);
      edge = true;
    } else if (cigarOp(word) == CIGAR_I) {
      edge = true;
    } else if (cigarOp(word) == CIGAR_S && first && !adapter.left) {
      clipped += usableBases(read, offset, offset + int32_t(length));
    }
    if (consumesReference(word)) place += length;
    if (consumesRead(word)) offset += int32_t(length);
  }
}

// An edge counts when what makes it one lies in the window.
void ActivityProfile::addBases(const Read& read, Span window, uint32_t place, int32_t offset, uint32_t count,
                               bool left_edge, bool right_edge, double* sums) {
  const uint32_t place_end = place + count;
  left_edge = left_edge && (place > window.start || window.start <= read.start);
  right_edge = right_edge && (place_end < window.end || window.end >= read.end);
  uint32_t from = std::max({place, window.start, start_}), to = std::min({place_end, window.end, end_});
  if (from >= to) return;
  if (left_edge && from == place) addEdge(read, from++, offset, sums);
  if (right_edge && to == place_end && from < to) {
    --to;
    addEdge(read, to, offset + int32_t(to - place), sums);
  }

  const uint8_t cap = capOf(read);
  const char* const bases = read.bases + offset - place;
  const uint8_t* const quals = read.quals + offset - place;
  while (from < to) {
    const uint32_t equal = equalPrefix(bases + from, reference_.data() + (from - start_), to - from);
    addMatches(sums + size_t(from - start_) * stride_, quals + from, equal, cap);
    from += equal;
    if (from == to) break;
    addEdge(read, from, offset + int32_t(from - place), sums);
    ++from;
  }
}

void ActivityProfile::addMatches(double* cell, const uint8_t* quals, uint32_t count, uint8_t cap) const {
  const double* const rows = match_.data();
  if (stride_ == kDiploidStride) {  // a fixed stride unrolls
    for (uint32_t i = 0; i < count; ++i, cell += kDiploidStride)
      addRow(cell, rows + size_t(std::min(quals[i], cap)) * kDiploidStride, kDiploidStride);
  } else {
    for (uint32_t i = 0; i < count; ++i, cell += stride_)
      addRow(cell, rows + size_t(std::min(quals[i], cap)) * stride_, stride_);
  }
}

// A base against the reference. One that matches is an edge of its alignment.
void ActivityProfile::addEdge(const Read& read, uint32_t position, int32_t offset, double* sums) {
  const size_t index = position - start_;
  const uint8_t quality = read.quals[offset];
  if (quality < min_base_qual_ || !isBase(read.bases[offset]) || !reference_[index]) return;
  double* const cell = sums + index * stride_;
  const size_t row = size_t(std::min(quality, capOf(read))) * stride_;
  addRow(cell, differ_.data() + row, stride_);
  marks_[index] = 1;
  if (keeps_confidence_ && read.bases[offset] == reference_[index])
    addRow(regained_.data() + (cell - rows_.data()), regain_.data() + row, stride_);
}

void ActivityProfile::addDeletion(Span window, int64_t start, int64_t end, int32_t* deleted) {
  const int64_t from = std::max<int64_t>({start, window.start, start_});
  const int64_t to = std::min<int64_t>({end, window.end, end_});
  if (from >= to) return;
  ++deleted[from - start_];
  --deleted[to - start_];
}

uint32_t ActivityProfile::usableBases(const Read& read, int32_t from, int32_t to) const {
  return uint32_t(std::count_if(read.quals + from, read.quals + to,
                                [this](uint8_t quality) { return quality >= min_base_qual_; }));
}

void ActivityProfile::addClip(uint32_t position, uint32_t bases) {
  if (position < start_ || position >= end_) return;
  Clip& clip = clips_[position - start_];
  ++clip.reads;
  clip.bases += bases;
}

// From sums to likelihoods and depth, closing up what a row of sums has behind the likelihoods.
void ActivityProfile::finishSample(size_t sample) {
  const uint32_t values = wide_ploidy_ + 1;
  std::vector<double> deletion(values);
  for (uint32_t n = 0; n < values; ++n) deletion[n] = likelihood(kStandardQuality, false, n, wide_ploidy_);
  const double* sums = rows_.data() + sample * size() * stride_;
  double* row = rows_.data() + sample * size() * values;
  const int32_t* change = deleted_.data() + sample * (size() + 1);
  int32_t* depth = depth_.data() + sample * size();
  int32_t deleted = 0;
  for (size_t i = 0; i < size(); ++i, sums += stride_, row += values) {
    deleted += change[i];
    depth[i] = int32_t(sums[values]);
    std::copy_n(sums, values, row);
    if (deleted > 0 && reference_[i]) {
      depth[i] += deleted;
      marks_[i] = 1;
      for (uint32_t n = 0; n < values; ++n) row[n] += deleted * deletion[n];
    }
    if (keeps_confidence_) {
      const size_t at = sample * size() + i;
      takeConfidence(row, regained_.data() + at * stride_, depth[i], confidence_.data() + at * (ploidy_ + 1));
    }
    limit(row, wide_ploidy_, standard_.data(), depth[i]);
  }
}

void ActivityProfile::takeConfidence(const double* row, const double* regained, int32_t depth,
                                     double* confidence) const {
  const uint32_t step = wide_ploidy_ / ploidy_;  // of one copy: none of two, or both
  for (uint32_t n = 0; n <= ploidy_; ++n) confidence[n] = row[n * step] + regained[n * step];
  limit(confidence, ploidy_, ploidy_ == 1 ? haploid_standard_.data() : standard_.data(), depth);
}

void ActivityProfile::limit(double* row, uint32_t ploidy, const double* standard, int32_t depth) const {
  const double reads = std::min(depth, kDepthLimit);
  const auto lead = [ploidy](const double* values) {
    return values[0] - *std::max_element(values + 1, values + ploidy + 1);
  };
  if (lead(row) <= lead(standard) * reads) return;
  for (uint32_t n = 0; n <= ploidy; ++n) row[n] = standard[n] * reads;
}

void ActivityProfile::clear(uint32_t start, uint32_t end) {
  start = std::max(start, start_);
  end = std::min(end, end_);
  if (start >= end) return;
  const size_t count = end - start, from = start - start_;
  for (size_t sample = 0; sample < samples_; ++sample) {
    const size_t first = at(sample, start);
    std::fill_n(depth_.begin() + ptrdiff_t(first), count, 0);
    std::fill_n(rows_.begin() + ptrdiff_t(first * (wide_ploidy_ + 1)), count * (wide_ploidy_ + 1), 0.0);
    if (keeps_confidence_)
      std::fill_n(confidence_.begin() + ptrdiff_t(first * (ploidy_ + 1)), count * (ploidy_ + 1), 0.0);
  }
  std::fill_n(marks_.begin() + ptrdiff_t(from), count, 0);
  std::fill_n(clips_.begin() + ptrdiff_t(from), count, Clip{});
}

double ActivityProfile::meanSoftClip(uint32_t position) const {
  const Clip& clip = clips_[position - start_];
  return clip.reads == 0 ? 0 : double(clip.bases) / clip.reads;
}

void ActivityProfile::activityLikelihoods(size_t sample, uint32_t position,
                                          GenotypeLikelihoods& likelihoods) const {
  likelihoods.ploidy = wide_ploidy_;
  likelihoods.gl.clear();
  if (depth(sample, position) == 0) return;
  const uint32_t values = wide_ploidy_ + 1;
  const double* const row = rows_.data() + at(sample, position) * values;
  const double best = *std::max_element(row, row + values);
  for (uint32_t n = 0; n < values; ++n) likelihoods.gl.push_back(std::round((row[n] - best) * -10) * -0.1);
}
