// fasta_file.h - random access to an uncompressed FASTA with a .fai index beside it.
// Coords   zero-based half open.
// Owns     its stream. The index and the descriptor are shared with the clones.
// Threads  one object per thread; clones of one file may fetch side by side.
// Errors   construction: text on standard error, then std::invalid_argument "Invalid input file". fetch():
// see there.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "readdata/interval/interval.h"

// One line of a .fai: where a contig's bases lie in the file.
struct FastaIndexEntry {
  uint32_t index = 0;       // place of the contig in the file
  uint32_t length = 0;      // bases
  uint32_t line_bases = 0;  // bases per full line
  uint32_t line_width = 0;  // bytes per full line, line end included
  uint64_t offset = 0;      // byte offset of the first base
};

struct FastaIndex {
  std::vector<std::string> names;  // in file order
  std::map<std::string, FastaIndexEntry> entries;
};

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

  int write_index(const char* path) const;  // 0 or -1, told on stderr

  const std::vector<std::string>& names() const { return index_->names; }
  const FastaIndexEntry* entry(const std::string& name) const;
  std::vector<Contig> contigs() const;  // in file order; names point into the index
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::shared_ptr<const FastaIndex> index_;
  std::shared_ptr<FILE> file_;  // the stream that was opened first, shared for its descriptor
  FILE* stream_ = nullptr;      // what this object reads
  uint64_t position_ = 0;       // of stream_, bytes
};
