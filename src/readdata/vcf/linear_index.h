// linear_index.h - the linear index (.idx) of a plain file of sorted records: one offset per bin of equal width.
// Contract as in genome_index.h.
#pragma once

#include <utility>

#include "readdata/vcf/genome_index.h"

class LinearIndex final : public GenomeIndex {
 public:
  class ChrIndex;

  static constexpr uint32_t kBinWidth = 8000, kWideBinWidth = 128000;  // bases

  // Fields of the file's header.
  uint32_t magic = 0, type = 1, version = 3;
  std::string path;        // of the data file, as given
  uint64_t fileSize = 0;   // bytes
  uint64_t timestamp = 0;  // of the data file, milliseconds
  std::string md5;
  uint32_t flags = 0;
  std::vector<std::pair<std::string, std::string>> properties;  // the contig table is "DICT:name" = length

  uint32_t binWidth;
  double density;  // of features per bin, aimed at when saving; 0: bins stay as they are

  explicit LinearIndex(const Options& options);
  std::unique_ptr<GenomeIndex> clone() const override;
  std::unique_ptr<ContigIndex> newContigIndex(const std::string& name) const override;
  bool load(const std::string& path) override;  // path.idx
  bool save(const std::string& path) override;
};

class LinearIndex::ChrIndex final : public GenomeIndex::ContigIndex {
 public:
  // Of an index that is joined to another, whose bins then reach as far as any later feature.
  static constexpr uint32_t kMinJoinedWidth = 1000;

  uint32_t firstBin = 0;
  uint32_t binWidth;
  uint32_t longest = 0;          // feature, bases
  std::vector<int64_t> offsets;  // of bin firstBin + i; behind finish() one more, the end

  ChrIndex(std::string name, uint32_t binWidth) : ContigIndex(std::move(name)), binWidth(binWidth) {}
  bool query(int32_t start, int32_t end, std::vector<Chunk>& chunks) const override;
  void finish() override;
  void add(int32_t start, int32_t end, int64_t offset) override;
  void add(const ContigIndex& other, const OffsetMap& offsetMap) override;
  void dropFront(int32_t dropped, int64_t offset) override;
  // Joins neighbouring bins, as many as leave `density` features of mean size in the fullest.
  void optimize(double density);

 private:
  size_t filledBins() const;
};
