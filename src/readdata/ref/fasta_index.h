// fasta_index.h - the .fai index of a FASTA file: one line per contig, five tab-separated columns.
// Coords   zero-based half open.
// Threads  read-only once loaded.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

// One line of a .fai: where a contig's bases lie in the file.
struct FastaIndexEntry {
  uint32_t index = 0;       // place of the contig in the file
  uint32_t length = 0;      // bases
  uint32_t line_bases = 0;  // bases per full line; 0 only for a contig without bases
  uint32_t line_width = 0;  // bytes per full line, line end included
  uint64_t offset = 0;      // byte offset of the first base

  // Byte offset of the base at `place`, a base of the contig or its end.
  uint64_t position(uint32_t place) const {
    return offset + uint64_t(place / line_bases) * line_width + place % line_bases;
  }
};

struct FastaIndex {
  std::vector<std::string> names;  // in file order
  std::map<std::string, FastaIndexEntry, std::less<>> entries;

  // Loads the index of a FASTA of `file_size` bytes. False, told on standard error, when it cannot be read, a
  // line is malformed or repeats a name, or the line's numbers cannot be true of any file or begin behind the
  // end of this one.
  bool load(const std::string& path, uint64_t file_size);

  // Writes the entries in name order. 0, or -1, told on standard error, and then no file is left.
  int write(const char* path) const;
};
