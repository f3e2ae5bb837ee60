// fasta_file.h - random access to an uncompressed FASTA with a .fai index beside it.
// Coords   zero-based half open.
// Owns     its stream. The index and the descriptor are shared with the clones.
// Threads  one object per thread; clones of one file may fetch side by side.
// Errors   construction: text on standard error, then std::invalid_argument "Invalid input file". fetch():
//          see there.
// Cost     a fetch reads the file through a 64 KiB buffer; fetches that follow one another do not seek.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "readdata/interval/interval.h"
#include "readdata/ref/fasta_index.h"

class FastaFile {
 public:
  static constexpr uint32_t kFailed = 0xFFFFFFFF;

  explicit FastaFile(const std::string& path);
  FastaFile(const FastaFile& other);  // a clone; keeps the file of `other` open as long as it lives
  FastaFile& operator=(const FastaFile&) = delete;
  ~FastaFile();

  // Stores the upper-case bases of [start, end), cut at the contig's end, and returns their number; `buffer`
  // has room for end - start. kFailed for an unknown contig (silent) and for a file that cannot be read (told
  // on stderr).
  uint32_t fetch(const char* contig, uint32_t start, uint32_t end, char* buffer);

  int write_index(const char* path) const { return index_->write(path); }  // 0 or -1, told on stderr

  const std::vector<std::string>& names() const { return index_->names; }
  const FastaIndexEntry* entry(const std::string& name) const;  // null for an unknown contig
  std::vector<Contig> contigs() const;                          // in file order; names point into the index
  const std::string& path() const { return path_; }
  const std::string& index_path() const { return index_path_; }

 private:
  static constexpr uint64_t kNowhere = UINT64_MAX;

  bool openStream();
  bool startIsValid();
  std::string findIndex() const;
  bool seekTo(uint64_t position);

  std::string path_, index_path_;
  std::shared_ptr<const FastaIndex> index_;
  std::shared_ptr<FILE> file_;    // shared for its descriptor only
  FILE* stream_ = nullptr;        // reads that descriptor at a position of its own
  uint64_t position_ = kNowhere;  // of stream_, bytes; kNowhere when not known
};
