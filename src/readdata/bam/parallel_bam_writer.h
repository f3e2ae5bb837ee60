// parallel_bam_writer.h - the one output BAM of a run: header first, then the shards' blocks as they are,
// then the end marker and the index. Contract as of ParallelReadWriterBase. init() removes an index that an
// earlier run has left and empties the output, so that until close() has ended well the two are not taken for
// whole. The output is locked: a second writer of the same file, in this process or another, fails in init().
// Source   blocked gzip files can be joined behind each other, as the SAM format document says.
#pragma once

#include <array>
#include <cstdio>

#include "base/plain_file.h"
#include "readdata/bam/bam_index.h"
#include "readdata/bam/read_writer_base.h"
#include "readdata/bam/write_pipeline.h"
#include "readdata/stream/bgzf_handle.h"

class ParallelBamWriter final : public ParallelReadWriterBase {
 public:
  ParallelBamWriter(std::string output, ReadWriterBase::Options options);
  ~ParallelBamWriter() override;  // without close() the output stays as it is

  void init(std::shared_ptr<const bam_header> header) override;
  void merge(Result* result) override;
  void close() override;

 private:
  void prepareIndex() const;
  void openOutput();
  void emptyOutput();
  bool isPlain() const;
  void copyHeader(const bam_header& header);
  void appendShard(const std::string& name);
  void writeTail();
  void writeIndex();
  void dropTail() const;
  [[noreturn]] void failWrite(int number) const;

  const std::string output_;
  const ReadWriterBase::Options options_;
  const int level_;
  std::string index_path_;  // empty: no index

  FileOwner file_;         // null before init() and after close()
  uint64_t position_ = 0;  // bytes written, or on their way
  std::array<uint8_t, BGZFHandle::kEofSize> eof_block_;
  std::unique_ptr<WritePipeline> pipeline_;

  BamIndex index_;
  std::unique_ptr<BamIndexHelper> index_helper_;
};
