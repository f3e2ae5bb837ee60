// bam_handle.h - the interface of read sources and sinks; BAM behind it here, other formats behind the same
// face.
// Owns     its IOHandle; header and index are shared with its clones.
// Threads  one handle, one thread; clones side by side.
// Errors   a text that names the file goes to standard error, then an exception with a short text.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/thread_coop.h"
#include "readdata/bam/bam_header.h"
#include "readdata/bam/bam_index.h"
#include "readdata/bam/bam_record.h"
#include "readdata/ref/fasta_file.h"
#include "readdata/stream/io_handle.h"

class BAMHandle {
 public:
  // A cursor over one file for one thread.
  class FetchState;

  virtual ~BAMHandle() = default;

  virtual void open(const char* mode) = 0;
  virtual void close() = 0;
  virtual void setReference(FastaFile* reference) { this->reference = reference; }
  virtual bool setOptions(const std::map<std::string, std::string>& options) = 0;
  virtual std::unique_ptr<BAMHandle> clone() = 0;
  virtual int setParallel(thread_coop* pool) = 0;
  virtual void readHeader() = 0;
  virtual void writeHeader() = 0;
  virtual int64_t headerLength() = 0;                  // bytes of the header as written to a file of its own
  virtual void seekUnmapped() = 0;                     // to the first read without coordinates
  virtual int64_t readRecord(bam_record& record) = 0;  // size, 0 at the end; throws on failure
  virtual void writeRecord(const bam_record& record) = 0;
  virtual uint64_t tell() const = 0;  // virtual offset
  virtual void flush() = 0;
  virtual void setIndexBuilder(BamIndexHelper* helper) = 0;  // fed by writeRecord
  virtual void setIndex(std::shared_ptr<const BamIndex> index) = 0;
  virtual int64_t tailSize() const = 0;  // bytes of the end marker
  virtual const char* indexSuffix() const = 0;
  virtual uint64_t readCount() const = 0;
  virtual bool hasReadCount() const = 0;
  virtual std::unique_ptr<FetchState> newFetchState() = 0;

  std::string path;
  std::string format_name;
  std::shared_ptr<const bam_header> header;
  std::shared_ptr<const BamIndex> index;
  FastaFile* reference = nullptr;
  std::unique_ptr<IOHandle> io;
};

class BAMHandle::FetchState {
 public:
  virtual ~FetchState() = default;

  // Goes to the first read that overlaps [start, end) of `contig`, in the file's own numbering; a negative
  // contig goes to the reads without coordinates. A request that continues the former one (same contig, its
  // end the new start) reads on from where that stopped, without a lookup, and does not deliver again what
  // was delivered. False when there is no such read.
  virtual bool seek(int32_t contig, uint32_t start, uint32_t end) = 0;
  // To the next read of the range; false at its end.
  virtual bool readNext() = 0;
  virtual void close() = 0;

  // The read the cursor stands on, valid after a true answer. The taker may swap its contents out.
  bam_record current;
};

// Opens the file, reads its header, warns of a missing end marker and, with `load_index`, attaches the index.
// The format follows from the content. Throws std::invalid_argument when the format is unknown.
std::unique_ptr<BAMHandle> open_read_source(const std::string& path, FastaFile* reference, bool load_index);
