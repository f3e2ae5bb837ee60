// bam_impl.h - BAM files behind BAMHandle. Contract as there.
// Source   the BAM layout follows the SAM format document.
// Errors   what the file says wrongly is told with the file's name: on standard error before an exception
//          with a short text, or in the exception itself. A record that is handed out fits the header and
//          itself: lengths, contig numbers, positions, CIGAR and sequence agree.
#pragma once

#include "readdata/bam/bam_handle.h"
#include "readdata/stream/bgzf_handle.h"

class BAMImpl final : public BAMHandle {
 public:
  // Largest block of a record that is believed, in bytes.
  static constexpr int32_t kMaxRecord = 1 << 28;

  explicit BAMImpl(std::string path);
  // Closes what close() did not; a failure is then only told on standard error. After an exception the end
  // marker of a file being written is left out.
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
  // Throws std::invalid_argument, naming both files, for the index of another file and for one that does not
  // cover this one.
  void setIndex(std::shared_ptr<const BamIndex> index) override;
  int64_t tailSize() const override { return BGZFHandle::kEofSize; }
  const char* indexSuffix() const override { return ".bai"; }
  uint64_t readCount() const override;
  bool hasReadCount() const override { return true; }
  std::unique_ptr<FetchState> newFetchState() override;

  std::string placeText(const bam_record& record) const;  // "read NAME at CONTIG:POS", for messages

  BGZFHandle& bgzf() { return static_cast<BGZFHandle&>(*io); }
  const BGZFHandle& bgzf() const { return static_cast<const BGZFHandle&>(*io); }

 private:
  class Cursor;
  void writeRaw(const void* bytes, size_t length);
  void readHeaderBytes(void* to, size_t count);
  void readHeaderText(std::string& text, size_t length);
  [[noreturn]] void failHeader(const std::string& reason) const;
  [[noreturn]] void failRecord(const char* reason) const;
  void readData(bam_record& record, size_t length);
  void checkPlace(const bam_record& record) const;

  BamIndexHelper* index_builder_ = nullptr;
  uint64_t records_begin_ = 0;    // virtual offset behind the header
  int exceptions_ = 0;            // in flight at the opening
  bool sought_by_index_ = false;  // no record was read since the index told where to go
};
