// vcf_writer.h - one VCF file with its index, made of shards that are written side by side.
//
//   final writer   open, writeHeader, then merge() per shard in genome order, close
//   clone          per engine: open(temp path); startContig, records, endContig(result) per contig; close
//
// A shard's file has the encoding of the output, and its bytes are appended without recompression; its index is
// translated, never computed again.
// Owns     its stream; the index is shared by a writer and its clones.
// Threads  the final writer belongs to one thread at a time. Clones may be used side by side, also while the final
//          writer merges; they must not outlive it.
// Errors   std::runtime_error, `name` in front. A file that did not end well has no index.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "readdata/stream/io_handle.h"
#include "readdata/vcf/genome_index.h"
#include "readdata/vcf/variant_context.h"
#include "readdata/vcf/vcf_header.h"

class VCFWriter {
 public:
  using IndexOptions = GenomeIndex::Options;

  // What a shard tells of its output; a part of an algorithm's result.
  struct Result {
    std::unique_ptr<GenomeIndex::ContigIndex> ci;  // null when nothing was written
    virtual ~Result() = default;
  };

  explicit VCFWriter(std::string name, IndexOptions options = {});
  virtual ~VCFWriter();  // closes the stream; the index is only saved by close()
  VCFWriter(const VCFWriter&) = delete;
  VCFWriter& operator=(const VCFWriter&) = delete;

  virtual std::unique_ptr<VCFWriter> clone();
  virtual void open(const std::string& path);
  virtual void close();
  virtual void startContig(const std::string& contig);
  virtual void endContig(Result& result);
  // Appends the shard whose file `handle` reads. Null ends the last contig.
  virtual void merge(Result* result, IOHandle* handle);
  void merge(Result* result, const std::string& tempPath);
  // Appends the file of an earlier sharded run, of which all shards come in genome order.
  virtual void merge(const std::string& partialPath);
  // Of partial files: their contigs must come in the order of this header.
  void expectOrder(const VCFHeader& header);

  void writeHeader(VCFHeader& header);
  void writeHeaderText(std::string_view text);  // the same, in pieces as they stand
  // Writes a record of the current contig and enters it in the index.
  void write(const VariantContext& record, const std::vector<std::string>& sampleNames);
  // The same for a line that ends in a newline and stands at [start, end).
  void writeLine(const std::string& line, int32_t start, int32_t end);

  const std::string& path() const { return path_; }
  bool isOpen() const { return stream_ != nullptr; }

 protected:
  VCFWriter(VCFWriter& parent);  // what clone() makes

  [[noreturn]] void fail(const std::string& what) const;  // `what` with the name in front
  int64_t tell();
  [[noreturn]] void failWrite();  // ": failed to write to file "
  std::unique_ptr<IOHandle> openTemp(const std::string& tempPath);
  // Appends [ci.first, ci.last) of `handle` and joins `ci` to the current index.
  void appendBody(const GenomeIndex::ContigIndex& ci, IOHandle& handle);
  void finishContig();  // hands the current index over, or drops it
  // The index of a partial file; null when it has no features, unless `evenEmpty`. The first one gives this writer's
  // contig table.
  std::unique_ptr<GenomeIndex> loadPartialIndex(const std::string& partialPath, bool evenEmpty = false);
  std::unique_ptr<IOHandle> openPartial(const std::string& partialPath);
  // Passes over the header of a partial file, up to the first line that is no comment or begins with `stop`, unless
  // null. It becomes the output's header while that is empty.
  void takeHeader(IOHandle& partial, const std::string& partialPath, const char* stop = nullptr);
  // Throws for a contig whose records end in front of others in the output already, or that comes before the last one.
  void requireNewOrCurrent(const std::string& contig, const std::string& partialPath);
  [[noreturn]] void failOrder(const std::string& contig, const std::string& partialPath) const;

  std::string name_, path_;
  std::unique_ptr<IOHandle> stream_;
  const IOHandle* parent_ = nullptr;  // the output's stream: a clone opens its files as that one is
  std::shared_ptr<GenomeIndex> index_;
  std::unique_ptr<GenomeIndex::ContigIndex> current_;
  IndexOptions indexOptions_;
  bool isClone_ = false;

 private:
  // The partial file merged last, open, and the index of its last contig.
  struct LastPart {
    std::unique_ptr<GenomeIndex::ContigIndex> ci;
    std::unique_ptr<IOHandle> handle;
    std::string path;
  };

  int64_t readStart(IOHandle& handle, const std::string& partialPath);
  void requireBehindLastPart(const GenomeIndex::ContigIndex& ci, IOHandle& handle,
                             const std::string& partialPath);

  std::string text_;                             // scratch of write()
  std::map<std::string, size_t> contigNumbers_;  // of the header, when told
  size_t lastContig_ = 0;                        // number of the contig merged last
  LastPart lastPart_;
  // The first partial file without features; its header serves an output without records.
  std::string emptyPartial_;
};
