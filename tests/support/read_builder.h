// read_builder.h - alignment records for tests, written in one line:
//   bam_record r = readBuilder("r1").at(0, 100).cigar("40M10S").qual(30).mate(0, 300).tag("RG", "a");
// Coords   zero-based. Without seq() the letters repeat "ACGT" over as many bases as the CIGAR consumes.
// Without at() the read is unmapped and has no place.
#pragma once

#include <cctype>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "readdata/bam/bam_record.h"

inline Cigar parseCigar(const std::string& text) {
  Cigar words;
  uint32_t length = 0;
  for (char c : text) {
    if (isdigit(static_cast<unsigned char>(c))) {
      length = length * 10 + uint32_t(c - '0');
      continue;
    }
    const char* op = strchr(kCigarOps, c);
    if (!op) throw std::invalid_argument("Bad CIGAR " + text);
    words.push_back(length << 4 | uint32_t(op - kCigarOps));
    length = 0;
  }
  return words;
}

class ReadBuilder {
 public:
  explicit ReadBuilder(std::string name) : name_(std::move(name)) {}

  ReadBuilder& at(int32_t contig, int32_t start) {
    fixed_.ref_id = contig;
    fixed_.pos = start;
    flag_off_ |= FLAG_UNMAPPED;
    return *this;
  }
  ReadBuilder& unmapped() {  // keeps its place, as a read beside its mapped mate does
    flag_on_ |= FLAG_UNMAPPED;
    return *this;
  }
  ReadBuilder& cigar(const std::string& text) { return cigar(parseCigar(text)); }
  ReadBuilder& cigar(Cigar words) {
    words_ = std::move(words);
    return *this;
  }
  ReadBuilder& seq(std::string letters) {
    letters_ = std::move(letters);
    has_letters_ = true;
    return *this;
  }
  ReadBuilder& qual(int phred) {
    uniform_qual_ = uint8_t(phred);
    quals_.clear();
    return *this;
  }
  ReadBuilder& quals(std::vector<uint8_t> phred) {
    quals_ = std::move(phred);
    return *this;
  }
  ReadBuilder& mapq(int phred) {
    fixed_.mapq = uint8_t(phred);
    return *this;
  }
  ReadBuilder& flag(int bits) {  // sets these bits beside those that other calls set
    flag_on_ |= uint16_t(bits);
    return *this;
  }
  ReadBuilder& reverse() { return flag(FLAG_REVERSE); }
  // A mapped mate on the other strand; a read is the first of its pair unless flag() says FLAG_SECOND.
  ReadBuilder& mate(int32_t contig, int32_t start, int32_t tlen = 0) {
    fixed_.next_ref_id = contig;
    fixed_.next_pos = start;
    fixed_.tlen = tlen;
    paired_ = true;
    return *this;
  }
  ReadBuilder& mateUnmapped() {
    paired_ = true;
    return flag(FLAG_MATE_UNMAPPED);
  }

  ReadBuilder& tag(const char* name, const std::string& text) { return tag(name, 'Z', text + '\0'); }
  ReadBuilder& tag(const char* name, const char* text) { return tag(name, std::string(text)); }
  ReadBuilder& tag(const char* name, int32_t value) { return tagValue(name, 'i', value); }
  ReadBuilder& tag(const char* name, char value) { return tagValue(name, 'A', value); }
  ReadBuilder& tag(const char* name, float value) { return tagValue(name, 'f', value); }
  ReadBuilder& tag(const char* name, double value) { return tagValue(name, 'd', value); }
  // Any type, with the bytes that follow the type.
  ReadBuilder& tag(const char* name, char type, const std::string& bytes) {
    aux_ += std::string(name, 2) + type + bytes;
    return *this;
  }
  ReadBuilder& auxBytes(const std::string& bytes) {  // as they are, for aux data that is broken
    aux_ += bytes;
    return *this;
  }

  bam_record build() const {
    bam_record r;
    r.ref_id = fixed_.ref_id, r.pos = fixed_.pos, r.mapq = fixed_.mapq;
    r.next_ref_id = fixed_.next_ref_id, r.next_pos = fixed_.next_pos, r.tlen = fixed_.tlen;
    std::string letters = letters_;
    if (!has_letters_)
      for (uint32_t i = 0, n = readLength(); i < n; ++i) letters += "ACGT"[i & 3];
    if (!quals_.empty() && quals_.size() != letters.size()) throw std::invalid_argument("Lengths differ");

    r.l_read_name = uint8_t(name_.size() + 1);
    r.n_cigar = uint16_t(words_.size());
    r.l_seq = int32_t(letters.size());
    r.flag = uint16_t((FLAG_UNMAPPED & ~flag_off_) | flag_on_);
    if (paired_) {
      r.flag |= FLAG_PAIRED | (flag_on_ & FLAG_SECOND ? 0 : FLAG_FIRST);
      if (!(r.flag & (FLAG_REVERSE | FLAG_MATE_UNMAPPED))) r.flag |= FLAG_MATE_REVERSE;
    }
    std::string bytes = name_ + '\0';
    bytes.append(reinterpret_cast<const char*>(words_.data()), words_.size() * 4);
    for (size_t i = 0; i < letters.size(); i += 2)
      bytes += char(code(letters[i]) << 4 | (i + 1 < letters.size() ? code(letters[i + 1]) : 0));
    for (size_t i = 0; i < letters.size(); ++i) bytes += char(quals_.empty() ? uniform_qual_ : quals_[i]);
    bytes += aux_;
    r.growData(bytes.size());
    memcpy(r.data, bytes.data(), bytes.size());
    r.data_len = int32_t(bytes.size());
    r.l_aux = int32_t(aux_.size());
    int64_t end = r.pos;
    for (uint32_t word : words_)
      if (consumesReference(word)) end += cigarLength(word);
    r.bin = bin_of(uint32_t(r.pos), uint32_t(end));
    return r;
  }
  operator bam_record() const { return build(); }

 private:
  struct Fixed {
    int32_t ref_id = -1, pos = -1, next_ref_id = -1, next_pos = -1, tlen = 0;
    uint8_t mapq = 60;
  };

  template <typename T>
  ReadBuilder& tagValue(const char* name, char type, T value) {
    return tag(name, type, std::string(reinterpret_cast<const char*>(&value), sizeof value));
  }
  uint32_t readLength() const {
    uint32_t length = 0;
    for (uint32_t word : words_)
      if (consumesRead(word)) length += cigarLength(word);
    return length;
  }
  static int code(char letter) {
    const char* found = letter ? strchr(kBaseCodes, letter) : nullptr;
    if (!found) throw std::invalid_argument("Bad base");
    return int(found - kBaseCodes);
  }

  std::string name_, letters_, aux_;
  Cigar words_;
  Fixed fixed_;
  std::vector<uint8_t> quals_;
  uint8_t uniform_qual_ = 30;
  uint16_t flag_on_ = 0, flag_off_ = 0;
  bool has_letters_ = false, paired_ = false;
};

inline ReadBuilder readBuilder(std::string name) {
  return ReadBuilder(std::move(name));
}
