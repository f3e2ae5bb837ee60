// bam_index.h - BAI indexes: loading, querying, building while records are written, saving.
// Source   the BAI layout and binning scheme follow the SAM format document.
// Units    offsets are BGZF virtual offsets.
// Threads  a loaded BamIndex is constant and shared; a builder belongs to one thread.
// Errors   load() and query-time faults throw as told; save() returns false with the reason in errno.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "readdata/bam/bam_header.h"

struct Chunk {
  uint64_t begin = 0, end = 0;
};

class BamIndexBase {
 public:
  virtual ~BamIndexBase() = default;
  // The chunks that hold every read overlapping [start, end), sorted, neighbours in one block merged.
  virtual void query(int32_t contig, uint32_t start, uint32_t end, std::vector<Chunk>& chunks) const = 0;
};

// True when the environment asks for indexes without the pseudo bin of counts (`disable_bam_max_bin`).
bool bam_max_bin_disabled();

// Refuses, as std::invalid_argument, a header with a contig longer than a .bai can number. For whoever is
// about to write or to read one. The text names the contig, and `path`, that of the file, unless it is empty.
void checkBaiContigs(const bam_header& header, const std::string& path = "");

class BamIndex final : public BamIndexBase {
 public:
  struct ContigIndex {
    std::map<uint32_t, std::vector<Chunk>> bins;  // without the pseudo bin; chunks in file order
    std::vector<uint64_t> linear;                 // lowest offset per 16384-base window
    bool has_counts = false;                      // the pseudo bin was there
    uint64_t first_offset = 0, last_offset = 0;   // begin and end of the contig's reads, from the pseudo bin
    uint64_t mapped = 0, unmapped = 0;
    uint64_t lastChunkEnd() const;  // highest chunk end of the contig, 0 when it has none
  };

  // Finds and reads the index of the BAM `bam_path`: `bam_path`.bai, else with ".bam" replaced by ".bai".
  // build_mode 0: throws when missing; 1: builds when missing; 2: always builds (and writes `bam_path`.bai).
  // A bad file throws std::invalid_argument that names it; so does one that points behind the end of the BAM
  // or, when the caller knows the BAM's contig count, has another one.
  static std::shared_ptr<const BamIndex> load(const std::string& bam_path, int build_mode,
                                              int64_t contig_count = -1);
  // Scans the BAM. Throws std::runtime_error when it is not sorted.
  static std::shared_ptr<BamIndex> build(const std::string& bam_path);

  void query(int32_t contig, uint32_t start, uint32_t end, std::vector<Chunk>& chunks) const override;
  uint64_t readCount() const;            // mapped and unmapped reads with coordinates, 0 without pseudo bins
  uint64_t firstUnmappedOffset() const;  // where to start looking for unplaced reads, 0: behind the header
  // Writes beside `path` and renames, so that a file of that name is always whole.
  bool save(const std::string& path) const;

  std::string path;
  std::vector<ContigIndex> contigs;
  uint64_t n_no_coor = 0;
  bool has_no_coor = false;  // the optional tail was there
};

// Builds an index from records in file order. Throws std::runtime_error when they are out of order.
class BamIndexHelper {
 public:
  // `offset` is where the first record begins. `path` is for messages.
  BamIndexHelper(BamIndex& index, size_t contig_count, std::string path, uint64_t offset);

  // One record that lies in [begin_offset, end_offset). An end_offset of 0 stands for "where the next record
  // begins", or what finish() is told. `end` is the alignment's end; a record covers one base at least.
  // `name` may be null; `mapped` is false for a placed read with the unmapped flag.
  void add(int32_t ref_id, int32_t pos, int64_t end, bool mapped, uint64_t begin_offset, uint64_t end_offset,
           const char* name);
  // Counts further records behind the last one, of its contig and its bin, which touch no window that
  // records before them have not touched.
  void addMore(uint64_t mapped, uint64_t unmapped);
  // `end_offset` is where the last record ends at the latest.
  void finish(uint64_t end_offset);

 private:
  [[noreturn]] void refuse(int32_t ref_id, int32_t pos, const char* name) const;
  void settleEnd(uint64_t offset);
  void closeContig();
  void closeChunk();

  BamIndex& index_;
  std::string path_;
  int32_t last_ref_ = -1, last_pos_ = -1;
  uint32_t bin_ = 0xFFFFFFFF;
  uint64_t chunk_begin_ = 0, chunk_end_ = 0;
  uint64_t first_offset_ = 0, last_offset_ = 0;
  uint64_t mapped_ = 0, unmapped_ = 0;
  bool end_open_ = false;  // the end of the last record is not known yet
  bool no_coor_ = false;   // reads without coordinates have begun
  bool dump_;              // each addition is printed
};
