#include "readdata/ref/fasta_index.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/plain_file.h"
#include "base/text.h"

namespace {

constexpr uint64_t kTop = 0xFFFFFFFF;
constexpr uint64_t kFarthest = INT64_MAX;  // byte offset that a file can have

bool isGraphic(char c) {
  return c > ' ' && c < 0x7f;
}

// Parses the four numbers of a line.
bool parseNumbers(const char* text, FastaIndexEntry& entry) {
  uint64_t length, bases, width;
  if (!scanUnsigned(text, kTop, length) || length > kTop) return false;
  if (!scanUnsigned(text, kFarthest, entry.offset) || entry.offset > kFarthest) return false;
  if (!scanUnsigned(text, kTop, bases) || bases > kTop) return false;
  if (!scanUnsigned(text, kTop, width) || width > kTop) return false;
  entry.length = static_cast<uint32_t>(length);
  entry.line_bases = static_cast<uint32_t>(bases);
  entry.line_width = static_cast<uint32_t>(width);
  return true;
}

// Line ends must fit on the lines, unless there is only one or none, and the last base within a file's
// offsets.
bool widthsAreSound(const FastaIndexEntry& entry) {
  if (entry.length == 0) return true;
  if (entry.line_bases == 0 || entry.line_width < entry.line_bases) return false;
  if (entry.line_width == entry.line_bases && entry.length > entry.line_bases) return false;
  unsigned __int128 lines = entry.length / entry.line_bases;
  return lines * entry.line_width + entry.line_bases + entry.offset <= kFarthest;
}

}  // namespace

bool FastaIndex::load(const std::string& path, uint64_t file_size) {
  FileOwner stream(open_plain_file(path.c_str()));
  if (!stream) {
    fprintf(stderr, "Failed to open FASTA index file %s: %s\n", path.c_str(), strerror(errno));
    return false;
  }
  int number = 0;
  // The first text names no file.
  auto refuse = [&](const char* what) {
    fprintf(stderr, "%s at line %d\nInvalid FASTA index file %s\n", what, number, path.c_str());
    return false;
  };
  char line[4096];
  while (fgets(line, sizeof line, stream.get())) {
    ++number;
    char* tab = strchr(line, '\t');
    FastaIndexEntry entry;
    if (!tab || !parseNumbers(tab + 1, entry)) return refuse("Malformed FASTA index entry");
    char* end = line;
    while (end < tab && isGraphic(*end)) ++end;
    std::string name(line, end);
    if (name.empty()) return refuse("Malformed FASTA index entry");
    if (entries.count(name)) return refuse("Duplicate FASTA index entry");
    if (!widthsAreSound(entry)) return refuse("Invalid line width in FASTA index entry");
    if (entry.offset > file_size)
      return refuse("Offset beyond the end of the FASTA file in FASTA index entry");
    entry.index = static_cast<uint32_t>(names.size());
    names.push_back(name);
    entries.emplace(std::move(name), entry);
  }
  if (!ferror(stream.get())) return true;
  fprintf(stderr, "Error reading FASTA index file %s: %s\n", path.c_str(), strerror(errno));
  return false;
}

int FastaIndex::write(const char* path) const {
  FILE* stream = fopen(path, "w");
  if (!stream) {
    fprintf(stderr, "Failed to create FASTA index file %s: %s\n", path, strerror(errno));
    return -1;
  }
  int error = 0;
  for (const auto& [name, entry] : entries) {
    if (fprintf(stream, "%s\t%u\t%lu\t%u\t%u\n", name.c_str(), entry.length,
                static_cast<unsigned long>(entry.offset), entry.line_bases, entry.line_width) < 0) {
      error = errno;
      break;
    }
  }
  if (fclose(stream) != 0 && !error) error = errno;
  if (!error) return 0;
  fprintf(stderr, "Failed to write FASTA index file %s: %s\n", path, strerror(error));
  if (remove(path) != 0) fprintf(stderr, "Failed to remove %s: %s\n", path, strerror(errno));
  return -1;
}
