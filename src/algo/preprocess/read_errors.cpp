#include "algo/preprocess/read_errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

// Bases that the model sees at a time; longer alignments are cut.
constexpr size_t kMaxPiece = 2048;
constexpr uint8_t kNoQuality = 0xff;

bool isBase(char c) {
  return (c == 'A') | (c == 'C') | (c == 'G') | (c == 'T');
}

// The highest probability of misalignment whose phred quality, rounded, is not below q.
const std::array<float, 256>& certainty() {
  static const std::array<float, 256> table = [] {
    std::array<float, 256> made;
    for (size_t q = 0; q < made.size(); q++) made[q] = float(std::pow(10.0, -0.1 * (double(q) - 0.5)));
    return made;
  }();
  return table;
}

}  // namespace

std::pair<uint32_t, uint32_t> templateBounds(const Read& read) {
  int64_t start = read.start, end = read.end;
  constexpr uint16_t kPairing = FLAG_PAIRED | FLAG_UNMAPPED | FLAG_MATE_UNMAPPED;
  const bool opposite = !(read.flag & FLAG_REVERSE) != !(read.flag & FLAG_MATE_REVERSE);
  if (read.tlen != 0 && (read.flag & kPairing) == FLAG_PAIRED && opposite) {
    const int64_t insert = read.tlen, mate = read.mate_start;
    if (read.isReverse()) {
      if (end > mate + 1) start = std::max(start, mate);
    } else if (start <= insert + mate) {
      end = std::min(end, start + std::abs(insert) + 1);
    }
  }
  return {uint32_t(start), uint32_t(std::max(start, end))};
}

bool ReadErrors::compute(Read& read, std::pair<uint32_t, uint32_t> bounds, const MaskedReference& reference) {
  any_ = false;
  if (read.length <= 0 || read.n_cigar == 0) return false;
  if (read.length == 1) {
    fputs("Warning: query length is 1. Skip this read\n", stderr);
    return false;
  }
  skipped_.assign(size_t(read.length), 1);
  events_.assign(size_t(read.length), 0);
  indels_.clear();
  if (!walk(read, bounds, reference)) return false;
  if (!indels_.empty()) placeIndels(read.length);
  if (any_) judge(read, reference);
  return true;
}

// Marks what takes part, and the mismatches.
bool ReadErrors::walk(Read& read, std::pair<uint32_t, uint32_t> bounds, const MaskedReference& reference) {
  const char* bases = read.getBases();
  // A gap belongs to the part of the read within the bounds when the bases on either side do; where the base before
  // it is masked, it is a known one.
  auto isWithin = [&](int64_t start, int64_t end) { return start > bounds.first && end < bounds.second; };
  auto isMasked = [&](int64_t pos) {
    return pos < reference.start || pos >= reference.end || reference.masked[pos - reference.start];
  };
  int64_t offset = 0, pos = read.start;
  for (uint32_t i = 0; i < read.n_cigar; i++) {
    const uint32_t word = read.cigarWord(i);
    const int64_t length = cigarLength(word);
    switch (cigarOp(word)) {
      case CIGAR_M:
      case CIGAR_EQ:
      case CIGAR_X:
        compareBlock(bases, offset, pos, length, bounds, reference);
        break;
      case CIGAR_I:
        if (!isWithin(pos, pos)) break;
        indels_.push_back({read.isReverse() ? offset + length : offset - 1, kInsertion, isMasked(pos - 1)});
        if (isMasked(pos - 1)) break;
        for (int64_t b = offset; b < std::min<int64_t>(offset + length, read.length); b++)
          skipped_[size_t(b)] = !isBase(bases[b]);
        break;
      case CIGAR_D:
        if (isWithin(pos, pos + length))
          indels_.push_back({read.isReverse() ? offset : offset - 1, kDeletion, isMasked(pos - 1)});
        break;
      case CIGAR_N:
      case CIGAR_S:
      case CIGAR_H:
      case CIGAR_P:
        break;
      default:
        fprintf(stderr, "Error: unrecognized CIGAR operator0 %u\n", cigarOp(word));
        return false;
    }
    if (consumesRead(word)) offset += length;
    if (consumesReference(word)) pos += length;
  }
  return true;
}

void ReadErrors::compareBlock(const char* bases, int64_t offset, int64_t pos, int64_t length,
                              std::pair<uint32_t, uint32_t> bounds, const MaskedReference& reference) {
  const int64_t from = std::max({pos, int64_t(bounds.first), int64_t(reference.start)});
  const int64_t to = std::min({pos + length, int64_t(bounds.second), int64_t(reference.end),
                               pos + int64_t(skipped_.size()) - offset});
  if (from >= to) return;
  const char* own = bases + offset + (from - pos);
  const char* other = reference.bases + (from - reference.start);
  const uint8_t* masked = reference.masked + (from - reference.start);
  uint8_t* skipped = skipped_.data() + offset + (from - pos);
  uint8_t* events = events_.data() + offset + (from - pos);
  uint8_t any = 0;
  for (int64_t i = 0; i < to - from; i++) {
    const uint8_t skip = uint8_t(masked[i] != 0) | uint8_t(!isBase(own[i]));
    const uint8_t differs = uint8_t(own[i] != other[i]) & uint8_t(skip ^ 1);
    skipped[i] = skip;
    events[i] = differs;
    any |= differs;
  }
  static_assert(1 << kMismatch == 1);
  any_ |= any != 0;
}

void ReadErrors::placeIndels(int32_t length) {
  for (const Indel& indel : indels_)
    if (indel.masked && indel.base >= 0 && indel.base < length) {
      skipped_[size_t(indel.base)] = 1;
      events_[size_t(indel.base)] = 0;
    }
  for (const Indel& indel : indels_) {
    if (indel.base < 0 || indel.base >= length || skipped_[size_t(indel.base)]) continue;
    events_[size_t(indel.base)] |= uint8_t(1 << indel.event);
    any_ = true;
  }
}

// Splits the alignment into pieces for the model.
void ReadErrors::judge(Read& read, const MaskedReference& reference) {
  const auto length = size_t(read.length);
  for (auto& errors : errors_) errors.assign(length, 0);
  if (read.quals[0] == kNoQuality) {  // there is no own quality that an alignment could be below
    for (size_t i = 0; i < length; i++)
      for (int event = 0; event < kRecalEvents; event++) errors_[event][i] = events_[i] >> event & 1;
    return;
  }
  positions_.resize(length);
  inserted_.resize(length);
  wrong_.resize(length);

  size_t offset = 0, start = 0;
  int64_t pos = int64_t(read.start) - reference.start, low = 0, high = 0;
  auto close = [&](size_t next) {
    if (offset > start) judgePiece(read, start, offset, reference);
    start = next;
  };
  auto add = [&](int64_t position, bool inserted) {
    const int64_t diagonal = position - int64_t(offset);
    if (offset > start &&
        (std::max(high, diagonal) - std::min(low, diagonal) > kMaxDiagonals || offset - start == kMaxPiece))
      close(offset);
    if (offset == start) low = high = diagonal;
    low = std::min(low, diagonal);
    high = std::max(high, diagonal);
    positions_[offset] = int32_t(position);
    inserted_[offset] = inserted;
  };
  for (uint32_t i = 0; i < read.n_cigar; i++) {
    const uint32_t word = read.cigarWord(i);
    const size_t count = std::min<size_t>(cigarLength(word), consumesRead(word) ? length - offset : SIZE_MAX);
    switch (cigarOp(word)) {
      case CIGAR_I:
        for (size_t b = 0; b < count; b++, offset++) add(pos - 1, true);
        break;
      case CIGAR_M:
      case CIGAR_EQ:
      case CIGAR_X:
        for (size_t b = 0; b < count; b++, offset++) add(pos++, false);
        break;
      case CIGAR_S:
        close(offset + count);
        offset += count;
        break;
      case CIGAR_N:
        close(offset);
        pos += int64_t(count);
        break;
      case CIGAR_D:
        pos += int64_t(count);
        break;
    }
  }
  close(offset);
}

// Runs the model over a piece that has an event, and finds the runs of bases that are surely or not surely aligned.
void ReadErrors::judgePiece(Read& read, size_t start, size_t end, const MaskedReference& reference) {
  if (std::all_of(events_.begin() + int64_t(start), events_.begin() + int64_t(end),
                  [](uint8_t e) { return e == 0; }))
    return;
  const BaseAlignment::Piece piece{read.getBases() + start,
                                   read.quals + start,
                                   positions_.data() + start,
                                   inserted_.data() + start,
                                   int(end - start),
                                   reference.bases,
                                   int(reference.end - reference.start)};
  model_.compute(piece, wrong_.data() + start);
  const std::array<float, 256>& certain = certainty();
  for (size_t i = start; i < end;) {
    size_t next = i;
    while (next < end && wrong_[next] > certain[read.quals[next]]) next++;
    if (next > i) {
      share(i, next);
      i = next;
    } else {
      if (events_[i]) share(i, i + 1);
      i++;
    }
  }
}

// The events of a run count in equal parts at those of its bases that take part.
void ReadErrors::share(size_t start, size_t end) {
  int counts[kRecalEvents] = {}, bases = 0;
  for (size_t i = start; i < end; i++) {
    bases += !skipped_[i];
    for (int event = 0; event < kRecalEvents; event++) counts[event] += events_[i] >> event & 1;
  }
  for (int event = 0; event < kRecalEvents; event++) {
    if (counts[event] == 0) continue;
    const double part = double(counts[event]) / bases;
    for (size_t i = start; i < end; i++)
      if (!skipped_[i]) errors_[event][i] = part;
  }
}
