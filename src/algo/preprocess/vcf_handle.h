// vcf_handle.h - the lines of a plain file in VCF columns, one after the other, with the place that each stands at.
// Threads  one object per thread; the contig numbers may be shared.
// Errors   std::runtime_error that names the file.
// Memory   a read buffer of 512 KiB, and one line.
#pragma once

#include <compare>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/plain_file.h"

// Contig -> its place in the run's list. The names stay the list's.
using ContigNumbers = std::unordered_map<std::string_view, int32_t>;

struct VcfPlace {
  int32_t contig = -1;
  uint32_t pos1 = 0;  // one-based; 0 stands before the first base
  auto operator<=>(const VcfPlace&) const = default;
};

// False for a line without CHROM and POS columns, of an unknown contig, or with a POS that is no number below 2^31.
bool parsePlace(std::string_view line, const ContigNumbers& contigs, VcfPlace& place);

// Lines of any length, from where `file` stands.
class LineReader {
 public:
  LineReader(FILE* file, const std::string& path) : file_(file), path_(path) {}
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // To the next line, which is without its newline; false at the end of the file.
  bool next();
  std::string_view line() const { return {text_, length_}; }

 private:
  FILE* file_;
  const std::string& path_;
  char* text_ = nullptr;
  size_t capacity_ = 0, length_ = 0;
};

class VcfHandle {
 public:
  VcfHandle(const std::string& path, const ContigNumbers& contigs);

  bool next();
  std::string_view line() const { return reader_.line(); }
  const VcfPlace& place() const { return place_; }

  // By place, then by text: the order of a sorted file.
  friend bool operator<(const VcfHandle& a, const VcfHandle& b) {
    return a.place_ != b.place_ ? a.place_ < b.place_ : a.line() < b.line();
  }

 private:
  std::string path_;
  const ContigNumbers& contigs_;
  std::unique_ptr<char[]> buffer_;  // of the file, and so outlives it
  FileOwner file_;
  LineReader reader_;
  VcfPlace place_;
};
