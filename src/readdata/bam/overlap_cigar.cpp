// overlap_cigar.cpp - removal of the `B` operators with which some instruments write bases that were read
// twice.
#include <algorithm>
#include <cstring>
#include <vector>

#include "readdata/bam/bam_record.h"

namespace {

// More operators than any instrument makes: the work grows with their square.
constexpr uint32_t kMaxWords = 4096;

struct Run {
  uint32_t op;
  int64_t length;
  int64_t source;  // first base, of ops that consume the read
};

// The read as it was built so far, and a place in it, which lies before runs_[index_] plus offset_: behind a
// reference position, before insertions that follow that position. At the end new runs are appended; before
// that, what comes is merged with what is there.
class OverlapMerger {
 public:
  OverlapMerger(std::vector<uint8_t>& codes, std::vector<uint8_t>& quals) : codes_(codes), quals_(quals) {}

  // False when the step leads behind the start.
  bool stepBack(int64_t length) {
    if (length == 0) return true;
    while (length > 0) {
      if (offset_ == 0) {
        if (index_ == 0) return false;
        --index_;
        offset_ = runs_[index_].length;
      }
      if (consumesReference(runs_[index_].op)) {
        int64_t part = std::min(length, offset_);
        offset_ -= part;
        length -= part;
      } else {
        offset_ = 0;
      }
    }
    while (offset_ == 0 && index_ > 0 && !consumesReference(runs_[index_ - 1].op)) --index_;
    return true;
  }

  void add(uint32_t op, int64_t length, int64_t source) {
    if (length == 0) return;
    switch (op) {
      case CIGAR_M:
      case CIGAR_EQ:
      case CIGAR_X:
      case CIGAR_D:
      case CIGAR_N:
        return addReference(op, length, source);
      case CIGAR_S:
        if (!insideReference()) addInserted(op, length, source);
        return;
      case CIGAR_I:
        return addInserted(op, length, source);
      case CIGAR_P:
        if (index_ == runs_.size()) append(op, length, source);
        return;
      default: {  // hard clips lie at the very ends
        const bool at_end = index_ == runs_.size();
        runs_.push_back({op, length, source});
        if (at_end) index_ = runs_.size();
      }
    }
  }

  const std::vector<Run>& runs() const { return runs_; }

 private:
  void append(uint32_t op, int64_t length, int64_t source) {
    runs_.push_back({op, length, source});
    index_ = runs_.size();
    offset_ = 0;
  }

  void advance(int64_t length) {
    offset_ += length;
    if (offset_ == runs_[index_].length) ++index_, offset_ = 0;
  }

  // A base or gap of the reference follows somewhere, so that this place has been covered before.
  bool insideReference() const {
    return std::any_of(runs_.begin() + index_, runs_.end(),
                       [](const Run& run) { return consumesReference(run.op); });
  }

  void addReference(uint32_t op, int64_t length, int64_t source) {
    while (length > 0) {
      while (index_ < runs_.size() && !consumesReference(runs_[index_].op)) ++index_, offset_ = 0;
      if (index_ == runs_.size()) return append(op, length, source);
      const Run& run = runs_[index_];
      int64_t part = std::min(length, run.length - offset_);
      if (consumesRead(op)) {
        if (consumesRead(run.op))
          mergeBases(run.source + offset_, source, part);
        else
          fillGap(op, part, source);
        source += part;
      }
      advance(part);
      length -= part;
    }
  }

  void addInserted(uint32_t op, int64_t length, int64_t source) {
    while (length > 0 && index_ < runs_.size() && !consumesReference(runs_[index_].op)) {
      const Run& run = runs_[index_];
      if (!consumesRead(run.op)) {
        ++index_;
        continue;
      }
      int64_t part = std::min(length, run.length - offset_);
      mergeBases(run.source + offset_, source, part);
      advance(part);
      source += part;
      length -= part;
    }
    if (length == 0) return;
    splitHere();
    runs_.insert(runs_.begin() + index_, {op, length, source});
    ++index_;
  }

  void splitHere() {
    if (offset_ == 0) return;
    Run rest = runs_[index_];
    rest.length -= offset_;
    rest.source += offset_;
    runs_[index_].length = offset_;
    runs_.insert(runs_.begin() + ++index_, rest);
    offset_ = 0;
  }

  // Turns `length` positions from here on, all of one gap, into bases.
  void fillGap(uint32_t op, int64_t length, int64_t source) {
    splitHere();
    if (runs_[index_].length > length) {
      Run rest = runs_[index_];
      rest.length -= length;
      runs_.insert(runs_.begin() + index_ + 1, rest);
    }
    runs_[index_] = {op, length, source};
  }

  void mergeBases(int64_t to, int64_t from, int64_t length) {
    if (codes_.empty()) return;  // a read without sequence has a CIGAR alone
    const bool has_quals = quals_[0] != 0xff;
    for (; length > 0; --length, ++to, ++from) {
      uint8_t &base = codes_[to], &qual = quals_[to];
      if (base == codes_[from]) {
        qual = std::max(qual, quals_[from]);
      } else if (has_quals) {
        if (quals_[from] > qual) base = codes_[from];
        qual = uint8_t(std::max(qual, quals_[from]) - std::min(qual, quals_[from]));
      }
    }
  }

  std::vector<uint8_t>&codes_, &quals_;
  std::vector<Run> runs_;
  size_t index_ = 0;
  int64_t offset_ = 0;
};

Cigar compactWords(const std::vector<Run>& runs) {
  Cigar words;
  for (const Run& run : runs) {
    if (!words.empty() && cigarOp(words.back()) == run.op && cigarLength(words.back()) + run.length < 1 << 28)
      words.back() += uint32_t(run.length << 4);
    else
      words.push_back(uint32_t(run.length << 4 | run.op));
  }
  return words;
}

// Writes name, CIGAR, bases, qualities and aux data anew.
void rewrite(bam_record& record, const Cigar& words, const std::vector<uint8_t>& codes,
             const std::vector<uint8_t>& quals) {
  const size_t name = record.l_read_name, packed = (codes.size() + 1) / 2, aux = size_t(record.l_aux);
  const size_t head = name + 4 * words.size() + packed + quals.size();
  record.growData(std::max<size_t>(record.data_len, head + aux + codes.size()));
  memmove(record.data + head, record.auxEnd() - aux, aux);
  uint8_t* at = record.data + name;
  if (!words.empty()) memcpy(at, words.data(), 4 * words.size());
  at += 4 * words.size();
  for (size_t i = 0; i < packed; ++i)
    *at++ = uint8_t(codes[2 * i] << 4 | (2 * i + 1 < codes.size() ? codes[2 * i + 1] : 0));
  if (!quals.empty()) memcpy(at, quals.data(), quals.size());
  record.n_cigar = uint16_t(words.size());
  record.l_seq = int32_t(codes.size());
  record.data_len = int32_t(head + aux);
}

int markUnmapped(bam_record& record) {
  record.flag |= FLAG_UNMAPPED;
  return -1;
}

}  // namespace

int normalise_cigar(bam_record& record) {
  uint32_t i = 0;
  while (i < record.n_cigar && cigarOp(record.cigarWord(i)) != CIGAR_B) ++i;
  if (i == record.n_cigar) return 0;
  if (record.n_cigar > kMaxWords) return markUnmapped(record);

  std::vector<uint8_t> codes(size_t(record.l_seq)), quals(record.quals(), record.quals() + record.l_seq);
  const uint8_t* packed = record.packedBases();
  for (size_t base = 0; base < codes.size(); ++base)
    codes[base] = base & 1 ? packed[base / 2] & 15 : packed[base / 2] >> 4;

  OverlapMerger merger(codes, quals);
  int64_t source = 0;
  for (i = 0; i < record.n_cigar; ++i) {
    uint32_t word = record.cigarWord(i);
    if (cigarOp(word) == CIGAR_B) {
      if (i == 0 || !merger.stepBack(cigarLength(word))) return markUnmapped(record);
      continue;
    }
    merger.add(cigarOp(word), cigarLength(word), source);
    if (consumesRead(word)) source += cigarLength(word);
  }

  std::vector<uint8_t> new_codes, new_quals;
  if (!codes.empty())
    for (const Run& run : merger.runs())
      if (consumesRead(run.op)) {
        new_codes.insert(new_codes.end(), codes.begin() + run.source,
                         codes.begin() + run.source + run.length);
        new_quals.insert(new_quals.end(), quals.begin() + run.source,
                         quals.begin() + run.source + run.length);
      }
  rewrite(record, compactWords(merger.runs()), new_codes, new_quals);
  record.bin = bin_of(uint32_t(record.pos), uint32_t(alignment_end(record)));
  return 0;
}
