// vcf_cache.h - the records of an indexed VCF file that overlap a window which slides along a contig.
// Coords   zero-based half open.
// Owns     its stream and blocks. The index is shared with the copies.
// Threads  one object per thread; copies of one cache may be used side by side.
// Errors   std::runtime_error; every text names the file.
// Cost     every line is read once; no allocation per record.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "readdata/stream/io_handle.h"
#include "readdata/vcf/genome_index.h"
#include "readdata/vcf/vcf_block.h"
#include "readdata/vcf/vcf_header.h"
#include "readdata/vcf/vcf_line.h"

class VCFCache {
 public:
  explicit VCFCache(const std::string& path);
  VCFCache(const VCFCache& other);  // an empty window on the same file
  VCFCache& operator=(const VCFCache&) = delete;
  ~VCFCache();

  const std::string& path() const { return path_; }
  const GenomeIndex& index() const { return *index_; }

  void getHeader(VCFHeader& header);
  void setContig(const std::string& name);  // a contig without records has empty windows
  // Makes records() hold every record that overlaps [start, end), in file order, perhaps with neighbours.
  void fetch(int32_t start, int32_t end);
  // Views stay valid until the next fetch() or setContig().
  std::span<const VCFLine> records() const { return {records_.data() + first_, records_.size() - first_}; }
  // Throws for a line of records() that ends before this column.
  void requireColumn(VCFLine::Column column) const;

  // Blocks get the power of two above `size` bytes, when that is above the default. Only before the first fetch();
  // else std::logic_error "((&cache)->stqh_first == __null)".
  void setCacheBlockSize(uint32_t size);

  // The header and the first record of the file, wherever the window stands. The record's view stands in the first 32
  // bytes of `buffer` and its text behind them. Null when the file has no record.
  const VCFLine* peekRecord(VCFHeader& header, std::vector<char>& buffer);

  // Bytes of the longest line that is read: from the environment variable MAX_VCF_RECORD_SIZE (K, M or G may follow the
  // number), else 16 MiB. Read once per process.
  static uint32_t maxRecordSize();

 private:
  static constexpr int64_t kNoRoom = -1;

  struct Load;  // one run of load()

  void empty();
  void dropBefore(int32_t start);
  void load(int32_t from, int32_t to);
  bool fill(VCFBlock& block, Load& load);
  bool toChunk(Load& load);
  void push(const VCFLine& record);
  void growBlocks(uint32_t capacity);

  void checkLength();
  void warnOfUnknownContigs();
  void parseHeader(VCFHeader& header);
  [[noreturn]] void failRead();
  int64_t tell();
  int64_t seek(int64_t offset);
  // Bytes of the next line with its newline, 0 at the end of the file, kNoRoom (the stream stands inside it) for a line
  // of more than `room` bytes.
  int64_t readLine(char* text, uint32_t room);
  // Shows the beginning of the line, which the message has no place for, and throws `fault` with the path.
  [[noreturn]] void failLine(const char* fault, const char* text, int64_t size) const;
  // Cuts the `size` bytes of a line as readLine() gives them.
  void parseLine(char* text, int64_t size, VCFLine& record) const;

  std::string path_;
  std::shared_ptr<const GenomeIndex> index_;
  std::unique_ptr<IOHandle> stream_;
  const GenomeIndex::ContigIndex* current_ = nullptr;
  int32_t startPos_ = 0, loadedEnd_ = 0;
  std::vector<VCFLine> records_;  // the window begins at first_; the last one stands just before the stream
  size_t first_ = 0;
  VCFBlockChain blocks_;
  uint32_t blockSize_ = 0;  // bytes; 0: the default
  std::vector<GenomeIndex::Chunk> chunks_;
};
