// bam_writer.h - one thread's writer of shards: each shard a BAM file without header, and beside it what an
// index needs to know of its records.
// Contract as of ReadWriterBase. An output with `is_final` is a whole BAM file, with its index.
#pragma once

#include <vector>

#include "readdata/bam/bam_impl.h"
#include "readdata/bam/read_writer_base.h"

// What an index takes from a run of neighbouring records that share a bin: the first one's place, and counts.
// None of the others touches an index window that records before it had not touched.
struct IndexItem {
  int32_t ref_id = -1;
  int32_t start = -1, end = -1;  // of the first record; zero-based half open
  // Virtual offset in the shard's file. While the block's place is unknown, the negative of
  // (block number << 16) + offset in the block.
  int64_t offset = 0;
  uint64_t mapped = 0, unmapped = 0;  // records of the run
};

// The index items of one shard, in file order.
class BamIndexData final : public WriterDataImpl {
 public:
  // The next record of the file. `offset` as in IndexItem.
  void add(int32_t ref_id, int32_t start, int64_t end, bool mapped, int64_t offset);
  // The block has found its place: its items get virtual offsets. Blocks come in order.
  void resolve(uint32_t block_index, uint64_t block_address);
  // After the last record, while blocks may still be on their way.
  void complete();

  // Hands all to an index under construction, in which the shard's file begins at `position`. Throws what
  // the builder throws: std::runtime_error when records are out of order, within the shard or at its border.
  void addTo(BamIndexHelper& helper, uint64_t position) const;

  uint64_t memorySize() const override;

 private:
  bool inOrder(int32_t ref_id, int32_t start) const;
  bool joinsRun(int32_t ref_id, int32_t start, uint32_t bin, uint32_t last_window) const;
  void splitLast();

  std::vector<IndexItem> items_;
  size_t first_waiting_ = 0;  // items before it have virtual offsets
  IndexItem last_;            // the last record by itself
  uint32_t bin_ = 0;          // of the last record
  uint32_t last_window_ = 0;  // highest index window that records of this contig touch
};

class BamWriter final : public ReadWriterBase {
 public:
  BamWriter(std::string output, Options options);
  ~BamWriter() override;

  void open(int sequence, std::shared_ptr<const bam_header> header, bool is_final, bool with_index) override;
  void write(const bam_record& record) override;
  void setParallel(thread_coop* pool) override;
  void close() override;

 private:
  static void blockWritten(void* context, uint32_t block_index, uint64_t block_address);
  void writeIndex(uint64_t end_offset);

  std::unique_ptr<BAMImpl> handle_;  // null when closed
  std::shared_ptr<const bam_header> header_;
  bool is_final_ = false;
  BamIndexData* index_data_ = nullptr;  // what data_ holds, null without index
};

// Where the index of `output` goes: the option output_index_file, else `output`.bai.
std::string indexPath(const std::string& output, const ReadWriterBase::Options& options);
