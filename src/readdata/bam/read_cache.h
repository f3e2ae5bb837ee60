// read_cache.h - one thread's window of reads over all inputs: filled ahead of the engines, freed behind
// them.
// Coords   zero-based half open, on joined contig numbers.
// Owns     the reads, its InputSet and its transform; borrows the handles.
// Threads  one cache, one thread. Tasks of an engine may read its reads while that engine waits for them.
// Errors   faults of the files come out as exceptions that name the file.
// Memory   the reads of the window, and what a load reads ahead of it: bounded in bases and in bytes. Of reads
//          without coordinates one batch, which is bounded in bytes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "readdata/bam/input_set.h"
#include "readdata/bam/read.h"
#include "readdata/bam/read_transform.h"

class ReadCache {
 public:
  static constexpr uint32_t kBatch = 16384;  // bases that a load reads ahead
  // Bytes of records after which a load reads no further ahead than it must.
  static constexpr size_t kBatchBytes = size_t(1) << 20;
  // Bytes of records after which a batch of reads without coordinates ends.
  static constexpr size_t kNoCoorBytes = size_t(64) << 20;

  explicit ReadCache(std::vector<BAMHandle*> handles, bool quiet = false, size_t batch_bytes = kBatchBytes);
  virtual ~ReadCache();
  ReadCache(const ReadCache&) = delete;
  ReadCache& operator=(const ReadCache&) = delete;

  // Makes `name` the current contig and returns its entry; a contig that no input has (NO_COOR among them)
  // gives null and an empty cache. A change of contig empties the cache.
  const Contig* setContig(const char* name);
  // Makes sure that every read overlapping [from, to) of the current contig is in the cache. What lies below
  // `from` may be freed from now on. Going backward empties the cache and reads again.
  void load(uint32_t from, uint32_t to);
  // Empties the cache and reads up to `limit` reads without coordinates, the first file's before the
  // second's; fewer when their records fill kNoCoorBytes. Their number, at least 1; 0 at the end. Leaves the
  // current contig; setContig() begins anew.
  size_t loadNoCoor(size_t limit);

  // Appends to `out`, in order, every read that overlaps [start, end) and whose (filter_class << 16 | flag)
  // has no bit of `mask`; returns how many. A read without CIGAR covers one base. Frees reads that end at or
  // below the `from` of the last load. Pointers stay valid until the read is freed so.
  size_t fetch(uint32_t start, uint32_t end, uint32_t mask, std::vector<Read*>& out);
  size_t fetchAll(uint32_t mask, std::vector<Read*>& out);

  void setTransform(std::unique_ptr<ReadTransform> transform);  // never null
  InputSet& input() { return input_; }
  const InputSet& input() const { return input_; }
  uint64_t readTotal() const;                         // over all inputs, from their indexes
  uint64_t readCount() const { return read_count_; }  // reads loaded so far by this cache
  size_t readsHeld() const { return reads_.size() - head_; }

 private:
  // A read in the window. `read` is what the transform made of `record`, most often that itself.
  struct Held {
    Read* read;
    BAMRead* record;
    uint32_t start, end;  // of `read`; the end is at least start + 1
  };
  // A cursor that stands on a read, in the merge of several inputs.
  struct Front {
    uint32_t position;
    uint32_t file;
    bool operator<(const Front& other) const {
      return position != other.position ? position < other.position : file < other.file;
    }
  };

  void clear();
  void recycle(const Held& held);
  void retireBatch();
  void trimSpare();
  BAMHandle::FetchState& cursor(size_t file);
  void openRange(uint32_t from, uint32_t to);
  size_t readRange(uint32_t to, size_t bytes);
  bool seekFile(size_t file, uint32_t from, uint32_t to);
  size_t addPlaced(size_t file);
  size_t add(bam_record& record, size_t file);
  void keep(const Held& held);
  [[noreturn]] void fail(const bam_record& record, size_t file, const char* what) const;

  InputSet input_;
  std::unique_ptr<ReadTransform> transform_;
  std::vector<std::unique_ptr<BAMHandle::FetchState>> cursors_;  // per file, made when first needed
  // The cursors that stand on reads of the range being read, the rest of which is [high_, range_end_): a binary
  // heap, least in front. None when it is read.
  std::vector<Front> fronts_;
  uint32_t range_end_ = 0;

  const size_t batch_bytes_;
  int32_t contig_ = -1;
  uint32_t low_ = 0, high_ = 0;
  // Of the range being read: reads that start below are in the window already.
  uint32_t held_below_ = 0;
  uint32_t last_start_ = 0;  // of the last read taken from the files since the cache was emptied

  size_t no_coor_file_ = 0;  // whose reads without coordinates are being read
  bool no_coor_seeked_ = false;

  std::vector<Held> reads_;  // by start; those before head_ are gone
  size_t head_ = 0;
  std::vector<std::unique_ptr<BAMRead>> spare_;  // freed reads, kept for their memory
  size_t spare_bytes_ = 0;
  uint64_t read_count_ = 0;
};
