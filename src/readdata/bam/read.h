// read.h - an aligned read as algorithms see it.
// Coords   start, end: zero-based half open on the contig; offsets are into the read's own bases.
// Units    quals and mapq are phred, without the text offset; quals of 0xff are absent.
// Owns     Read owns nothing: its pointers lead into a record (BAMRead) or into what its maker keeps
//          (RealignedRead).
// Threads  read-only once visible to engines, but for the first getBases(), getBITag() and getBDTag(): those
//          belong to a single thread.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "readdata/bam/bam_record.h"

// A place: orders by contig, then position.
struct Locus {
  int32_t contig = -1;
  int32_t position = 0;
  auto operator<=>(const Locus&) const = default;
};

class Read {
 public:
  enum FilterClass : uint8_t { kMateElsewhere = 1, kMapq255 = 4, kMapq0 = 8 };

  virtual ~Read() = default;
  virtual const char* getBases() { return bases; }  // letters, `length` of them, no terminating zero
  virtual uint8_t* getQuals() { return quals; }
  // Insertion and deletion qualities as text of at least `length` bytes. A read without them answers a shared
  // text of 'N' (4096 bytes, more for longer reads), which nobody may write to.
  virtual uint8_t* getBITag();
  virtual uint8_t* getBDTag();
  virtual void prepareBaseTags() {}        // makes BI and BD present so that they can be written in place
  virtual void toRecord(bam_record& out);  // a fresh record, without aux data
  // What toRecord() makes, in `scratch` or where it stands already; valid until either changes.
  virtual const bam_record& asRecord(bam_record& scratch) {
    toRecord(scratch);
    return scratch;
  }
  virtual void attach(bam_record& record);  // all fields but read_group; the record must outlive the read

  // Maps the reference interval [from, to) to offsets in the read, half open: false when the read does not
  // touch it, or has no bases or no CIGAR. A border inside a deletion answers the offset at the deletion's
  // start. Insertions count when they lie between two positions of the interval; soft clips never do.
  bool getAlignment(Locus from, Locus to, int& start_offset, int& end_offset) const;
  std::string cigarString() const;

  struct Region {
    uint32_t start, end;               // reference span of the kept bases
    int32_t first_offset, end_offset;  // kept bases of the read, half open
  };
  // Trims low-quality ends (below `min_base_qual`), and unless `keep_adaptor` cuts a read of a
  // forward-reverse pair on one contig where the insert ends. Soft-clipped bases are kept like others: the
  // span is widened by them, as if the read went on along the reference. False when nothing is left, or the
  // read has no alignment.
  bool effectiveRegion(int min_base_qual, bool keep_adaptor, Region& region) const;

  bool isMapped() const { return !(flag & FLAG_UNMAPPED); }
  bool isReverse() const { return flag & FLAG_REVERSE; }

  const char* name = "";
  const char* bases = nullptr;  // null in a BAMRead until getBases()
  uint8_t* quals = nullptr;
  int32_t length = 0;  // bases
  uint8_t mapq = 0;
  uint8_t filter_class = 0;
  uint16_t flag = 0;
  int32_t ref_id = -1;
  uint32_t start = 0, end = 0;  // end is start + 1 without CIGAR
  int32_t mate_ref_id = -1, mate_start = -1;
  int32_t tlen = 0;
  const uint8_t* cigar = nullptr;  // words, unaligned in a BAMRead
  uint32_t n_cigar = 0;
  int32_t read_group = -1;  // index in InputSet::readGroups()

  uint32_t cigarWord(uint32_t i) const;

 protected:
  void setFilterClass();
};

// Stable order of reads that start at one place: forward strand first, then name, flag, mapq, mate contig,
// mate start, template length. Negative, 0 or positive.
int compareReads(const Read& a, const Read& b);

// A read over its own record; decodes letters and finds BI and BD only when asked for.
class BAMRead final : public Read {
 public:
  BAMRead() = default;
  const char* getBases() override;
  uint8_t* getBITag() override;
  uint8_t* getBDTag() override;
  void prepareBaseTags() override;
  void toRecord(bam_record& out) override;                   // a copy of the record, without the tag PG
  const bam_record& asRecord(bam_record& scratch) override;  // no copy when there is no tag PG
  // Takes the contents of `record`, which gets what this read held before: memory to be used again.
  void attach(bam_record& record) override;

  const bam_record& record() const { return record_; }
  bam_record& record() { return record_; }  // after a change of the fixed block or of data: refresh()
  void refresh();                           // sets the fields of Read from the record again

 private:
  uint8_t* findBaseTag(const char* tag, int32_t& offset);  // null when absent

  bam_record record_;
  int32_t bi_offset_ = 0, bd_offset_ = 0;  // of the values in data, 0 not searched, -1 absent
};

// A read whose alignment an algorithm has changed. Everything but start, end and CIGAR is shared with the
// original, which must outlive it and keep its memory where it is (no prepareBaseTags()). Making one decodes the
// original's letters.
class RealignedRead final : public Read {
 public:
  RealignedRead(Read& original, uint32_t start, Cigar cigar);
  RealignedRead(const RealignedRead&) = delete;
  uint8_t* getBITag() override { return original_.getBITag(); }
  uint8_t* getBDTag() override { return original_.getBDTag(); }

 private:
  Read& original_;
  Cigar own_cigar_;
};
