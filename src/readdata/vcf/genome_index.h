// genome_index.h - where the records of each stretch of a contig stand in a file of sorted records.
// Units    offsets are those of the data file's stream: virtual ones for BGZF, bytes for a plain file.
// Coords   zero-based half open, bases.
// Threads  filled by one thread; once loaded, any number may query it. newContigIndex() may be called from any thread.
// Errors   load() and save() print on standard error and return false.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "readdata/stream/io_handle.h"

class GenomeIndex {
 public:
  struct Options {
    std::string format;     // "vcf", "sam", "bed", "gff"; empty: as the file's name says
    bool partial = false;   // the file is a piece of a sharded run: its index is not thinned out
    bool wideBins = false;  // few, wide bins in a .idx
  };
  struct Chunk {
    int64_t begin, end;
    friend auto operator<=>(const Chunk&, const Chunk&) = default;  // NOLINT(modernize-use-nullptr)
  };
  struct Contig {
    std::string name;
    int32_t length = 0;  // bases, 0 when not known
  };
  class ContigIndex;

  std::string format;
  bool partial = false;
  bool wideBins = false;
  std::vector<Contig> contigs;                                  // in file order
  std::map<std::string, std::unique_ptr<ContigIndex>> indices;  // by contig; null for one without records
  uint64_t count = 0;                                           // of features

  explicit GenomeIndex(const Options& options);
  virtual ~GenomeIndex() = default;
  // An empty index of the same kind and settings.
  virtual std::unique_ptr<GenomeIndex> clone() const = 0;
  virtual std::unique_ptr<ContigIndex> newContigIndex(const std::string& name) const = 0;
  // `path` is that of the data file.
  virtual bool load(const std::string& path) = 0;
  virtual bool save(const std::string& path) = 0;

  // Throws std::logic_error "!pib.first->second" for a contig that has an index already.
  void addContigIndex(std::unique_ptr<ContigIndex> index);
  void setContigs(const std::vector<Contig>& list);
  ContigIndex* find(const std::string& name) const;  // null when the contig is unknown or has no records
};

class GenomeIndex::ContigIndex {
 public:
  std::string name;
  int64_t first = 0, last = 0;  // offsets of the contig's data; `last` exclusive
  int32_t pos = 0;              // start of the feature added last
  int32_t count = 0;            // features

  explicit ContigIndex(std::string name) : name(std::move(name)) {}
  virtual ~ContigIndex() = default;

  // The stretches of the file that hold all features overlapping [start, end), in file order, apart from each other.
  // False when there are none.
  virtual bool query(int32_t start, int32_t end, std::vector<Chunk>& chunks) const = 0;
  virtual void start(int64_t offset);  // of the first feature
  virtual void finish() = 0;           // after the last add()
  // After a feature was written: `offset` is the position behind it. Features come in order of their start, else
  // std::logic_error "s >= pos".
  virtual void add(int32_t start, int32_t end, int64_t offset) = 0;
  // Appends the index of a shard whose data was appended; `offsetMap` tells where it went. `other` is of the same kind.
  virtual void add(const ContigIndex& other, const OffsetMap& offsetMap) = 0;
  // Forgets the first `dropped` features, which stand before `offset`.
  virtual void dropFront(int32_t dropped, int64_t offset) = 0;
};

// The destination of a source offset: moved by the difference of the nearest pair at or below it.
int64_t translateOffset(const OffsetMap& offsetMap, int64_t offset);

// An empty index of the kind that suits the data file at `path`: LinearIndex when path.idx exists, else Tabix when
// path.tbi exists, else by the name (Tabix for ".gz").
std::unique_ptr<GenomeIndex> newGenomeIndex(const std::string& path, const GenomeIndex::Options& options);
