// read_cache.h - one thread's window of reads over all inputs: filled ahead of the engines, freed behind
// them. Coords   zero-based half open, on joined contig numbers. Owns     the reads, its InputSet and its
// transform; borrows the handles. Threads  one cache, one thread. Tasks of an engine may read its reads while
// that engine waits for them. Errors   faults of the files come out as exceptions that name the file.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "readdata/bam/input_set.h"
#include "readdata/bam/read.h"
#include "readdata/bam/read_transform.h"

class ReadCache {
 public:
  static constexpr uint32_t kBatch = 16384;  // bases that a load reads ahead at least

  explicit ReadCache(std::vector<BAMHandle*> handles, bool quiet = false);
  virtual ~ReadCache();
  ReadCache(const ReadCache&) = delete;
  ReadCache& operator=(const ReadCache&) = delete;

  // Makes `name` the current contig and returns its entry; a contig that no input has (NO_COOR among them)
  // gives null and an empty cache. A change of contig empties the cache.
  const Contig* setContig(const char* name);
  // Makes sure that every read overlapping [from, to) of the current contig is in the cache. What lies below
  // `from` may be freed from now on. Going backward empties the cache and reads again.
  void load(uint32_t from, uint32_t to);
  // Empties the cache and reads up to `limit` reads without coordinates. Their number; 0 at the end.
  size_t loadNoCoor(size_t limit);

  // Appends to `out`, in order, every read that overlaps [start, end) and whose (filter_class << 16 | flag)
  // has no bit of `mask`; returns how many. A read without CIGAR covers one base. Frees reads that end at or
  // below the `from` of the last load. Pointers stay valid until the read is freed so.
  size_t fetch(uint32_t start, uint32_t end, uint32_t mask, std::vector<Read*>& out);
  size_t fetchAll(uint32_t mask, std::vector<Read*>& out);

  void setTransform(std::unique_ptr<ReadTransform> transform);
  InputSet& input() { return input_; }
  const InputSet& input() const { return input_; }
  uint64_t readTotal() const;                         // over all inputs, from their indexes
  uint64_t readCount() const { return read_count_; }  // reads loaded so far by this cache

 private:
  void clear();
  void add(bam_record& record, size_t file);
  void mergeInputs(uint32_t from, uint32_t to);

  InputSet input_;
  std::unique_ptr<ReadTransform> transform_;
  std::vector<std::unique_ptr<BAMHandle::FetchState>> cursors_;  // per file
  int32_t contig_ = -1;
  uint32_t low_ = 0, high_ = 0;
  std::vector<Read*> reads_;  // by start; those before head_ are gone
  size_t head_ = 0;
  std::vector<std::unique_ptr<BAMRead>> spare_;  // freed reads, kept for their memory
  uint64_t read_count_ = 0;
};
