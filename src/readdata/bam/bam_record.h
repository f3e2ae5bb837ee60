// bam_record.h - one alignment record in the layout of BAM files, and the routines on it.
// Source   the alignment record and its optional fields follow the SAM format document.
// Coords   zero-based; ends are exclusive.
// Owns     `data` is malloc'ed memory of the record; a record moves, and is copied only by copy_record().
// Errors   none of these throws but what grows data (std::bad_alloc). check() must have accepted a record
//          from a file before any other routine looks at it; aux data is bounded by each routine itself.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// CIGAR words: length << 4 | op.
using Cigar = std::vector<uint32_t>;

enum CigarOp : uint32_t {
  CIGAR_M,
  CIGAR_I,
  CIGAR_D,
  CIGAR_N,
  CIGAR_S,
  CIGAR_H,
  CIGAR_P,
  CIGAR_EQ,
  CIGAR_X,
  CIGAR_B
};
inline constexpr char kCigarOps[] = "MIDNSHP=XB";
inline constexpr char kBaseCodes[] = "=ACMGRSVTWYHKDBN";
inline uint32_t cigarOp(uint32_t word) {
  return word & 15;
}
inline uint32_t cigarLength(uint32_t word) {
  return word >> 4;
}
// Two bits per op: bit 0 it consumes read bases, bit 1 it consumes reference.
inline uint32_t cigarClass(uint32_t word) {
  return 0x3C1A7 >> (cigarOp(word) * 2) & 3;
}
inline bool consumesRead(uint32_t word) {
  return cigarClass(word) & 1;
}
inline bool consumesReference(uint32_t word) {
  return cigarClass(word) & 2;
}

enum SamFlag : uint16_t {
  FLAG_PAIRED = 0x1,
  FLAG_PROPER_PAIR = 0x2,
  FLAG_UNMAPPED = 0x4,
  FLAG_MATE_UNMAPPED = 0x8,
  FLAG_REVERSE = 0x10,
  FLAG_MATE_REVERSE = 0x20,
  FLAG_FIRST = 0x40,
  FLAG_SECOND = 0x80,
  FLAG_SECONDARY = 0x100,
  FLAG_QC_FAIL = 0x200,
  FLAG_DUPLICATE = 0x400,
  FLAG_SUPPLEMENTARY = 0x800,
};

struct bam_record {
  // The fixed block, byte for byte as in the file behind the block size.
  int32_t ref_id = -1;      // contig number, -1 none
  int32_t pos = -1;         // start, -1 none
  uint8_t l_read_name = 0;  // with the terminating zero
  uint8_t mapq = 0;
  uint16_t bin = 0;
  uint16_t n_cigar = 0;
  uint16_t flag = 0;
  int32_t l_seq = 0;
  int32_t next_ref_id = -1;
  int32_t next_pos = -1;
  int32_t tlen = 0;
  // Not in the file.
  int32_t l_aux = 0;          // bytes of aux data
  int32_t data_len = 0;       // used bytes of data
  int32_t data_capacity = 0;  // allocated bytes
  uint8_t* data = nullptr;    // name, CIGAR words, packed bases, qualities, aux

  static constexpr size_t kFixedSize = 32;

  bam_record() = default;
  ~bam_record();
  bam_record(bam_record&& other) noexcept { swap(other); }
  bam_record& operator=(bam_record&& other) noexcept {
    swap(other);
    return *this;
  }
  bam_record(const bam_record&) = delete;
  bam_record& operator=(const bam_record&) = delete;
  void swap(bam_record& other) noexcept;

  char* name() const { return reinterpret_cast<char*>(data); }
  // Not aligned: the name before it has any length. Compilers load words from it with memcpy semantics.
  uint8_t* cigarBytes() const { return data + l_read_name; }
  uint32_t cigarWord(uint32_t i) const;
  uint8_t* packedBases() const { return data + l_read_name + 4 * size_t(n_cigar); }
  uint8_t* quals() const { return packedBases() + (size_t(l_seq) + 1) / 2; }
  uint8_t* aux() const { return quals() + l_seq; }
  uint8_t* auxEnd() const { return data + data_len; }
  uint8_t* fixedBlock() { return reinterpret_cast<uint8_t*>(&ref_id); }
  const uint8_t* fixedBlock() const { return reinterpret_cast<const uint8_t*>(&ref_id); }
  // Makes room for `capacity` bytes, rounded up to a power of two, and keeps the contents. Moves `data`.
  // Never makes it smaller.
  void growData(size_t capacity);
};

// What is wrong with a record as it came from a file ("name length 0", ...), or null when the parts fit in
// `data_len`, the name ends in zero, the CIGAR has known operators only and as many read bases as the
// sequence (when both are there), and the alignment lies within 31 bits. Sets l_aux. `data_len` bytes must
// have been read.
const char* check(bam_record& record);

void copy_record(bam_record& to, const bam_record& from);

// Exclusive end on the reference: `pos` without CIGAR or with one that consumes no reference. A `B` steps
// back, but never makes the end less than `pos`.
int64_t alignment_end(const bam_record& record);
// BAI bin of [start, end), of one base when that is empty. 4680 for a start of -1; 0 beyond 2^29.
uint16_t bin_of(uint32_t start, uint32_t end);
std::string cigarString(const uint8_t* words, uint32_t count);  // "%u%c" per word, words as in a record
// From the aligned 5-prime end of `a` to that of `b`, 0 unless both are mapped to the same contig.
int64_t compare_pair(const bam_record& a, const bam_record& b);

// Bases. Letters are in the order of the read, `length` of them.
void decodeBases(const uint8_t* packed, size_t length, char* letters);
void bam_seq_encode(const char* letters, size_t length, uint8_t* packed);  // an unknown letter becomes N

// Aux data. A pointer is to the type byte; null stands for an absent tag, which every reader answers with 0
// or "", as it does a value of another type. aux_find() returns only values that lie within the record.
uint8_t* aux_find(const bam_record& record, const char* two_letter_tag);
// The same by a walk over all of the aux data. How many tags of that name there are, of which `found` is the
// first; -1 when the aux data cannot be walked to its end, byte for byte.
int aux_find_checked(const bam_record& record, const char* two_letter_tag, uint8_t*& found);
// Bytes behind the type byte, -1 when it has an unknown type or does not end before `end`.
int64_t aux_size(const uint8_t* type, const uint8_t* end);
int64_t aux_int(const uint8_t* type);                // c, C, s, S, i, I
float aux_float(const uint8_t* type);                // f, d
double aux_double(const uint8_t* type);              // d, f
char aux_char(const uint8_t* type);                  // A
const char* aux_text(const uint8_t* type);           // Z, H
void aux_delete(bam_record& record, uint8_t* type);  // null does nothing
// Adds a tag at the end; `bytes` is the value without its type, with the zero of a text. Moves `data`, and
// leaves room for l_seq letters behind it. `bytes` must not lie in `data`.
void aux_append(bam_record& record, const char* tag, char type, size_t length, const void* bytes);
// Removes every tag of that name, up to what cannot be walked, which stays as it is.
void aux_delete_all(bam_record& record, const char* two_letter_tag);
void strip_pg(bam_record& record);  // removes every tag PG

// Removes `B` operators. Reference positions covered before and after a `B` become one: equal bases keep the
// higher quality, of two that differ the better one stays with the difference of the two as its quality, and
// a base on one side stays beside a gap on the other. 0, or -1 when the read had to be marked unmapped
// because a `B` steps back behind its start (or it has thousands of operators): then only the flag changes.
int normalise_cigar(bam_record& record);

// Field by field, aux tags unordered and their integers by value. Empty when equal, else what differs first,
// with both values. A tag that cannot be walked is told as "corrupt aux data for tag ...".
std::string compare_records(const bam_record& a, const bam_record& b);
