#include "readdata/ref/fasta_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include "base/plain_file.h"
#include "readdata/stream/pread_stream.h"

namespace {

constexpr size_t kRound = 4096;             // bytes read at a time
constexpr size_t kLongestIndexName = 1023;  // bytes

// Copies bytes with bit 5 cleared, which makes letters upper case.
void copyUpper(char* to, const char* from, size_t count) {
  size_t i = 0;
  for (uint64_t word; i + sizeof word <= count; i += sizeof word) {
    memcpy(&word, from + i, sizeof word);
    word &= 0xDFDFDFDFDFDFDFDF;
    memcpy(to + i, &word, sizeof word);
  }
  for (; i < count; ++i) to[i] = static_cast<char>(from[i] & 0xDF);
}

}  // namespace

FastaFile::FastaFile(const std::string& path) : path_(path) {
  auto refuse = [] { throw std::invalid_argument("Invalid input file"); };
  file_.reset(open_plain_file(path.c_str()), [](FILE* file) {
    if (file) fclose(file);
  });
  if (!file_ || !openStream()) {
    fprintf(stderr, "Failed to open FASTA file %s: %s\n", path.c_str(), strerror(errno));
    refuse();
  }
  std::unique_ptr<FILE, int (*)(FILE*)> guard(stream_, fclose);
  // A name that is an index's is told before the contents, which are no FASTA then.
  if (path.ends_with(".fai") && findIndex().empty()) refuse();
  if (!startIsValid()) refuse();
  index_path_ = findIndex();
  if (index_path_.empty()) refuse();
  auto index = std::make_shared<FastaIndex>();
  struct stat status;
  if (fstat(fileno(file_.get()), &status) != 0) {
    fprintf(stderr, "Failed to open FASTA file %s: %s\n", path.c_str(), strerror(errno));
    refuse();
  }
  if (!index->load(index_path_, status.st_size)) refuse();
  index_ = std::move(index);
  guard.release();
}

FastaFile::FastaFile(const FastaFile& other)
    : path_(other.path_), index_path_(other.index_path_), index_(other.index_), file_(other.file_) {
  if (openStream()) return;
  fprintf(stderr, "Failed to open FASTA file %s: %s\n", path_.c_str(), strerror(errno));
  throw std::invalid_argument("Invalid input file");
}

FastaFile::~FastaFile() {
  fclose(stream_);
}

bool FastaFile::openStream() {
  struct stat status;
  if (fstat(fileno(file_.get()), &status) != 0) return false;
  if (S_ISDIR(status.st_mode)) {
    errno = EISDIR;
    return false;
  }
  stream_ = open_pread_stream(fileno(file_.get()));
  return stream_ != nullptr;
}

// Looks at the text before the first contig: blank lines and comments that begin with a semicolon.
bool FastaFile::startIsValid() {
  const int most_pieces = 11;  // buffers that a comment may fill
  char line[1024];
  int number = 0;
  errno = 0;
  while (fgets(line, sizeof line, stream_)) {
    ++number;
    if (line[0] == '>') return true;
    if (strcmp(line, "\n") == 0 || (line[0] == '\r' && line[1] == '\n')) continue;
    if (line[0] != ';') {
      fprintf(stderr, "Invalid FASTA header at line %d in %s\n", number, path_.c_str());
      return false;
    }
    for (int piece = 1; !strchr(line, '\n'); ++piece) {
      if (piece < most_pieces && fgets(line, sizeof line, stream_)) continue;
      if (ferror(stream_)) break;
      fprintf(stderr, "Comment too long at line %d in %s\n", number, path_.c_str());
      return false;
    }
  }
  if (!ferror(stream_)) return true;
  fprintf(stderr, "Error reading FASTA file %s: %s\n", path_.c_str(), strerror(errno));
  return false;
}

// The name of the index: the path with ".fai" behind it, or in place of its extension. Empty, and told,
// without one.
std::string FastaFile::findIndex() const {
  auto exists = [](const std::string& name) {
    return name.size() <= kLongestIndexName && access(name.c_str(), F_OK) == 0;
  };
  std::string name = path_ + ".fai";
  if (exists(name)) return name;
  size_t dot = path_.rfind('.');
  if (dot != path_.npos && path_.compare(dot, path_.npos, ".fai") == 0) {
    fprintf(stderr, "FASTA input %s is an index file\n", path_.c_str());
    return "";
  }
  if (dot != path_.npos) {
    name = path_.substr(0, dot) + ".fai";
    if (exists(name)) return name;
  }
  fprintf(stderr, "Failed to find FASTA index file for %s\n", path_.c_str());
  return "";
}

bool FastaFile::seekTo(uint64_t position) {
  if (position == position_) return true;
  position_ = kNowhere;
  if (fseeko(stream_, static_cast<off_t>(position), SEEK_SET) != 0) return false;
  position_ = position;
  return true;
}

uint32_t FastaFile::fetch(const char* contig, uint32_t start, uint32_t end, char* buffer) {
  auto found = index_->entries.find(contig);
  if (found == index_->entries.end()) return kFailed;
  const FastaIndexEntry& entry = found->second;
  if (start >= end || start >= entry.length) return 0;
  const uint32_t stop = std::min(end, entry.length), wanted = stop - start;
  const uint64_t last = entry.position(stop);
  if (!seekTo(entry.position(start))) {
    fprintf(stderr, "Failed to seek to contig %s:%u in FASTA file %s: %s\n", contig, start, path_.c_str(),
            strerror(errno));
    return kFailed;
  }
  uint32_t stored = 0, column = start % entry.line_bases;
  char round[kRound];
  while (stored < wanted) {
    errno = 0;
    const size_t got = fread(round, 1, std::min<uint64_t>(kRound, last - position_), stream_);
    if (got == 0) {
      if (ferror(stream_))
        fprintf(stderr, "Error reading FASTA file %s: %s\n", path_.c_str(), strerror(errno));
      else
        fprintf(stderr, "Truncated contig %s in FASTA file %s\n", contig, path_.c_str());
      clearerr(stream_);
      position_ = kNowhere;
      return kFailed;
    }
    position_ += got;
    // A round is a chain of runs: bases up to column line_bases, then a line end up to column line_width.
    for (size_t from = 0; from < got;) {
      const bool bases = column < entry.line_bases;
      const size_t run = std::min<size_t>(got - from, (bases ? entry.line_bases : entry.line_width) - column);
      if (bases) {
        copyUpper(buffer + stored, round + from, run);
        stored += static_cast<uint32_t>(run);
      }
      from += run;
      column += static_cast<uint32_t>(run);
      if (column == entry.line_width) column = 0;
    }
  }
  return stored;
}

const FastaIndexEntry* FastaFile::entry(const std::string& name) const {
  auto found = index_->entries.find(name);
  return found == index_->entries.end() ? nullptr : &found->second;
}

std::vector<Contig> FastaFile::contigs() const {
  std::vector<Contig> list;
  for (const std::string& name : names())
    list.push_back({name.c_str(), 0, index_->entries.find(name)->second.length});
  return list;
}
