// bam_impl.h - BAM files behind BAMHandle. Contract as there.
// Source   the BAM layout follows the SAM format document.
#pragma once

#include "readdata/bam/bam_handle.h"
#include "readdata/stream/bgzf_handle.h"

class BAMImpl final : public BAMHandle {
 public:
  explicit BAMImpl(std::string path);
  ~BAMImpl() override;

  void open(const char* mode) override;
  void close() override;
  bool setOptions(const std::map<std::string, std::string>& options) override;
  std::unique_ptr<BAMHandle> clone() override;
  int setParallel(thread_coop* pool) override;
  void readHeader() override;
  void writeHeader() override;
  int64_t headerLength() override;
  void seekUnmapped() override;
  int64_t readRecord(bam_record& record) override;
  void writeRecord(const bam_record& record) override;
  uint64_t tell() const override;
  void flush() override;
  void setIndexBuilder(BamIndexHelper* helper) override;
  void setIndex(std::shared_ptr<const BamIndex> index) override;
  int64_t tailSize() const override { return BGZFHandle::kEofSize; }
  const char* indexSuffix() const override { return ".bai"; }
  uint64_t readCount() const override;
  bool hasReadCount() const override { return true; }
  std::unique_ptr<FetchState> newFetchState() override;

  BGZFHandle& bgzf() { return static_cast<BGZFHandle&>(*io); }

 private:
  class Cursor;
  void writeRaw(const void* bytes, size_t length);

  BamIndexHelper* index_builder_ = nullptr;
  uint64_t records_begin_ = 0;  // virtual offset behind the header
};
