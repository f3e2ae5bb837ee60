// read_writer_base.h - how read-writing algorithms make one sorted file: each shard writes a temporary file
// on its own thread, and the shards' bytes are appended in genome order, without recompression.
// Threads  a shard writer belongs to a walker; the output writer is used by init(), then by the merging
//          thread alone, then by close().
// Errors   std::invalid_argument for files that cannot be opened, std::runtime_error for failures of writing;
//          both name the file. An output that did not end well has no end marker and no index.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/thread_coop.h"
#include "readdata/bam/bam_header.h"
#include "readdata/bam/bam_record.h"
#include "readdata/ref/fasta_file.h"

// What a shard hands over beside its file.
struct WriterDataImpl {
  virtual ~WriterDataImpl() = default;
  virtual uint64_t memorySize() const { return 0; }  // bytes
};

class ReadWriterBase {
 public:
  using Options = std::map<std::string, std::string>;

  ReadWriterBase(std::string output, Options options);
  virtual ~ReadWriterBase() = default;

  // Begins a shard: the file is output_N of its sequence number, or the output itself when that is negative.
  // With `is_final` the file gets the header and, when `with_index` is set, an index beside it at close().
  virtual void open(int sequence, std::shared_ptr<const bam_header> header, bool is_final,
                    bool with_index) = 0;
  virtual void write(const bam_record& record) = 0;
  // Until close(), idle workers of `pool` help to compress. The file is the same.
  virtual void setParallel(thread_coop* pool) = 0;
  virtual void close() = 0;

  // After close(): the file, and what goes with it.
  const std::string& current() const { return current_; }
  std::unique_ptr<WriterDataImpl> takeData() { return std::move(data_); }

 protected:
  std::string modeText() const;  // "w", or "wN" of the option bam_compression

  std::string output_, current_;
  Options options_;
  int level_ = -1;
  std::unique_ptr<WriterDataImpl> data_;
};

class ParallelReadWriterBase {
 public:
  struct Result {
    virtual ~Result() = default;
    std::string file;                      // temporary file of the shard
    std::unique_ptr<WriterDataImpl> part;  // null when the shard has no index data
  };

  virtual ~ParallelReadWriterBase() = default;
  virtual void init(std::shared_ptr<const bam_header> header) = 0;  // creates the output with its header
  virtual void merge(Result* result) = 0;                           // appends a shard; null does nothing
  // Writes end marker and index. Not called when the run failed: then the output is left without both.
  virtual void close() = 0;
};

// Options of the map that writers share: the level of `bam_compression`, -1 (the default level) without it,
// and the mode text of a handle that is to write at that level.
int bamCompression(const ReadWriterBase::Options& options);
std::string bamWriteMode(int level);

// `format` is "bam"; anything else throws std::invalid_argument, since no other writer exists.
std::unique_ptr<ParallelReadWriterBase> createReadWriter(const std::string& output, FastaFile* reference,
                                                         const ReadWriterBase::Options& options,
                                                         const std::string& format);
std::unique_ptr<ReadWriterBase> createShardWriter(const std::string& output, FastaFile* reference,
                                                  const ReadWriterBase::Options& options,
                                                  const std::string& format);
