// tabix.h - the binning index (.tbi) of a BGZF file of sorted records; a .csi is read as one.
// Contract as in genome_index.h.
// Source   the tabix and CSI index format documents; bins as in the UCSC binning scheme with 14-bit windows.
#pragma once

#include "readdata/vcf/genome_index.h"

class Tabix final : public GenomeIndex {
 public:
  class Index;

  // Fields of the file's header.
  uint32_t magic = 0;
  int32_t n_ref = 0;
  int32_t format_code = 0;
  int32_t col_seq = 0, col_beg = 0, col_end = 0;
  int32_t meta = 0, skip = 0, l_nm = 0;
  uint64_t n_no_coor = 0;
  uint32_t compactThreshold;  // bytes of the file: bins that span less move up when saving; 0: none do

  explicit Tabix(const Options& options);
  std::unique_ptr<GenomeIndex> clone() const override;
  std::unique_ptr<ContigIndex> newContigIndex(const std::string& name) const override;
  // path.tbi, or path.csi where only that is. `count` is of chunks, which is all that the file tells; a contig without
  // any has `first` above `last`.
  bool load(const std::string& path) override;
  bool save(const std::string& path) override;
};

class Tabix::Index final : public GenomeIndex::ContigIndex {
 public:
  static constexpr int32_t kMaxWindows = 1 << 17;  // up to position 2^31

  int32_t firstWindow = 0;
  std::vector<int64_t> linear;  // smallest offset of a feature in window firstWindow + i
  std::map<uint32_t, std::vector<Chunk>> bins;

  using ContigIndex::ContigIndex;
  // Chunks begin no earlier than the first feature that reaches the window of `start`.
  bool query(int32_t start, int32_t end, std::vector<Chunk>& chunks) const override;
  void finish() override {}
  void add(int32_t start, int32_t end, int64_t offset) override;
  void add(const ContigIndex& other, const OffsetMap& offsetMap) override;
  void dropFront(int32_t dropped, int64_t offset) override;

  // Moves the chunks of bins that span less than `threshold` bytes of the file to their parents. With `compressed`
  // only block addresses are looked at.
  void compact(uint64_t threshold, bool compressed);

 private:
  decltype(bins)::value_type* lastBin_ = nullptr;  // the bin touched last
};
