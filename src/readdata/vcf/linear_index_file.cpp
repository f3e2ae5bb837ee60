// Reading and writing .idx files.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "base/plain_file.h"
#include "base/text.h"
#include "readdata/vcf/linear_index.h"

namespace {

constexpr uint32_t kMagic = 0x58444954;  // "TIDX"
constexpr uint32_t kLinearType = 1, kVersion = 3;
constexpr uint32_t kHasDictionary = 0x8000;  // in the flags of old versions
constexpr std::string_view kDictKey = "DICT:";
// Far above the index of any real file; one of this size is not read at all.
constexpr int64_t kMaxFileSize = int64_t(1) << 30;

// Reads a .idx, of which every number may be wrong. Nothing is allocated for what has not been read.
class Reader {
 public:
  explicit Reader(FILE* stream) : stream_(stream) {}

  template <typename T>
  bool number(T& value) {
    if (fread_unlocked(&value, 1, sizeof value, stream_) == sizeof value) return true;
    error_ = errno;
    return false;
  }
  template <typename T, typename... Rest>
  bool number(T& value, Rest&... rest) {
    return number(value) && number(rest...);
  }
  bool text(std::string& value) {
    value.clear();
    for (int c; (c = getc_unlocked(stream_)) != 0; value.push_back(static_cast<char>(c))) {
      if (c != EOF) continue;
      error_ = errno;
      return false;
    }
    return true;
  }
  // Also false when a number of the file cannot be. `maxOffset` is the end of the data file.
  bool contig(LinearIndex::ChrIndex& index, int64_t maxOffset);

  std::string reason() const {
    if (ferror(stream_)) return strerror(error_);
    return feof(stream_) ? "file truncated" : "file corrupted";
  }
  // Sets errno.
  void tellErrno() const { errno = ferror(stream_) ? error_ : feof(stream_) ? ENODATA : EBADMSG; }

 private:
  FILE* stream_;
  int error_ = 0;
};

bool Reader::contig(LinearIndex::ChrIndex& index, int64_t maxOffset) {
  uint32_t bins, zero, count;
  if (!number(index.binWidth, bins, index.longest, zero, count)) return false;
  constexpr uint32_t kMaxPosition = std::numeric_limits<int32_t>::max();
  if (index.binWidth == 0 || bins > kMaxPosition / index.binWidth + 1 || count > kMaxPosition) return false;
  index.count = static_cast<int32_t>(count);
  for (uint64_t i = 0; i <= bins; ++i) {
    int64_t offset;
    if (!number(offset)) return false;
    if (offset < 0 || offset > maxOffset) return false;
    std::vector<int64_t>& offsets = index.offsets;
    if (!offsets.empty() && offset < offsets.back()) return false;
    if (offsets.size() == 1 && offset == offsets[0] && i < bins)
      ++index.firstBin;  // those before the first feature repeat its offset
    else
      offsets.push_back(offset);
  }
  index.first = index.offsets.front();
  index.last = index.offsets.back();
  size_t filled = index.offsets.size() - 1;
  while (filled > 0 && index.offsets[filled - 1] == index.last) --filled;
  // As near as can be told.
  if (filled > 0) index.pos = static_cast<int32_t>((index.firstBin + filled - 1) * index.binWidth);
  return true;
}

bool isDictKey(const std::string& key) {
  return key.starts_with(kDictKey);
}

// What stands between the flags and the contigs, as properties.
bool readProperties(Reader& in, LinearIndex& index) {
  auto& properties = index.properties;
  if (index.version > 2) {
    uint32_t count;
    if (!in.number(count)) return false;
    for (uint32_t i = 0; i < count; ++i) {
      std::string key, value;
      if (!in.text(key) || !in.text(value)) return false;
      if (!key.empty()) properties.emplace_back(std::move(key), std::move(value));
    }
  } else if ((index.flags & kHasDictionary) != 0) {
    uint32_t count;
    if (!in.number(count)) return false;
    for (uint32_t i = 0; i < count; ++i) {
      std::string name;
      uint32_t length;
      if (!in.text(name) || !in.number(length)) return false;
      properties.emplace_back(std::string(kDictKey) + name, std::to_string(length));
    }
    index.flags &= ~kHasDictionary;
    index.version = kVersion;
  }
  return true;
}

// The contigs that the properties tell of; false when a length is none or a name comes twice.
bool readContigTable(LinearIndex& index) {
  std::vector<GenomeIndex::Contig> contigs;
  std::set<std::string_view> names;
  for (const auto& [key, value] : index.properties) {
    if (!isDictKey(key)) continue;
    GenomeIndex::Contig contig{key.substr(kDictKey.size())};
    if (!parseNumber(value, contig.length) || contig.length < 0) return false;
    if (!names.insert(std::string_view(key)).second) return false;
    contigs.push_back(std::move(contig));
  }
  index.setContigs(contigs);
  return true;
}

class Writer {
 public:
  explicit Writer(FILE* stream) : stream_(stream) {}
  template <typename... T>
  void numbers(T... values) {
    (bytes(&values, sizeof values), ...);
  }
  void text(const std::string& value) { bytes(value.c_str(), value.size() + 1); }
  bool flush() {
    if (good_ && fflush(stream_) != 0) good_ = false;
    return good_;
  }

 private:
  void bytes(const void* data, size_t size) {
    good_ = good_ && fwrite_unlocked(data, 1, size, stream_) == size;
  }
  FILE* stream_;
  bool good_ = true;
};

void writeContig(Writer& out, const LinearIndex::ChrIndex& index) {
  out.text(index.name);
  const uint32_t skipped = index.offsets.empty() ? 0 : index.firstBin;
  const auto size = static_cast<uint32_t>(index.offsets.size());
  out.numbers(index.binWidth, size == 0 ? 0 : skipped + size - 1, index.longest, uint32_t(0), index.count);
  for (uint32_t i = 0; i < skipped; ++i) out.numbers(index.offsets[0]);
  for (int64_t offset : index.offsets) out.numbers(offset);
  if (size == 0) out.numbers(index.last);
}

// When the data file was modified, in whole seconds, as an index tells it.
uint64_t wholeMilliseconds(const struct stat& status) {
  return static_cast<uint64_t>(status.st_mtime) * 1000;
}

uint64_t milliseconds(const struct stat& status) {
  return wholeMilliseconds(status) + static_cast<uint64_t>(status.st_mtim.tv_nsec) / 1000000;
}

}  // namespace

LinearIndex::LinearIndex(const Options& options)
    : GenomeIndex(options),
      binWidth(options.wideBins ? kWideBinWidth : kBinWidth),
      density(options.partial ? 0.0 : 100.0) {}

std::unique_ptr<GenomeIndex> LinearIndex::clone() const {
  return std::make_unique<LinearIndex>(Options{format, partial, wideBins});
}

std::unique_ptr<GenomeIndex::ContigIndex> LinearIndex::newContigIndex(const std::string& name) const {
  return std::make_unique<ChrIndex>(name, binWidth);
}

bool LinearIndex::load(const std::string& dataPath) {
  const std::string index_path = dataPath + ".idx";
  const char* name = index_path.c_str();
  auto headerFailed = [&](const std::string& reason) {
    fprintf(stderr, "Failed to load header from index file %s: %s\n", name, reason.c_str());
    return false;
  };
  FileOwner stream(open_plain_file(name));
  if (stream == nullptr) {
    fprintf(stderr, "Failed to open index file %s: %s\n", name, strerror(errno));
    return false;
  }
  struct stat status;
  if (fstat(fileno(stream.get()), &status) == 0 && status.st_size > kMaxFileSize)
    return headerFailed("file corrupted");

  Reader in(stream.get());
  if (!in.number(magic, type, version)) return headerFailed(in.reason());
  if (magic != kMagic || type != kLinearType) {
    fprintf(stderr, "File %s is not an index file\n", name);
    return false;
  }
  properties.clear();
  uint32_t contig_count;
  if (version > kVersion || !in.text(path) || !in.number(fileSize, timestamp) || !in.text(md5) ||
      !in.number(flags) || !readProperties(in, *this) || !readContigTable(*this) || !in.number(contig_count))
    return headerFailed(in.reason());

  if (stat(dataPath.c_str(), &status) != 0) {
    perror(dataPath.c_str());
    return false;
  }
  if (static_cast<uint64_t>(status.st_size) != fileSize) {
    fprintf(stderr, "File size mismatch in index header %s\n", name);
    return false;
  }
  if (timestamp > milliseconds(status)) fprintf(stderr, "Warning: outdated index file %s\n", name);

  // Offsets in a BGZF file are virtual ones.
  const bool compressed = dataPath.ends_with(".gz");
  const int64_t maxOffset = compressed ? int64_t(status.st_size) << 16 | 0xffff : int64_t(status.st_size);
  for (uint32_t i = 0; i < contig_count; ++i) {
    std::string contig;
    if (!in.text(contig)) {
      in.tellErrno();
      perror(name);
      return false;
    }
    auto index = std::make_unique<ChrIndex>(contig, binWidth);
    if (!in.contig(*index, maxOffset)) {
      in.tellErrno();
      perror(name);
      return false;
    }
    if (find(contig) != nullptr) {
      fprintf(stderr, "Index file %s: %s\n", name, "!pib.first->second");
      return false;
    }
    addContigIndex(std::move(index));
  }
  return true;
}

bool LinearIndex::save(const std::string& dataPath) {
  struct stat status;
  if (stat(dataPath.c_str(), &status) != 0) {
    perror(dataPath.c_str());
    return false;
  }
  magic = kMagic;
  type = kLinearType;
  version = kVersion;
  path = dataPath;
  fileSize = static_cast<uint64_t>(status.st_size);
  timestamp = wholeMilliseconds(status);
  md5.clear();
  flags = 0;
  std::erase_if(properties, [](const auto& property) { return isDictKey(property.first); });
  std::vector<ChrIndex*> saved;
  for (const Contig& contig : contigs) {
    properties.emplace_back(std::string(kDictKey) + contig.name, std::to_string(contig.length));
    auto* index = dynamic_cast<ChrIndex*>(find(contig.name));
    if (index == nullptr) continue;
    index->optimize(density);
    saved.push_back(index);
  }

  const std::string index_path = dataPath + ".idx";
  auto failed = [&](const char* what) {
    fprintf(stderr, "Failed to %s index file %s: %s\n", what, index_path.c_str(), strerror(errno));
    if (lstat(index_path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) unlink(index_path.c_str());
    return false;
  };
  FileOwner stream(fopen(index_path.c_str(), "wbe"));
  if (stream == nullptr) {
    fprintf(stderr, "Failed to create index file %s: %s\n", index_path.c_str(), strerror(errno));
    return false;
  }
  Writer out(stream.get());
  out.numbers(magic, type, version);
  out.text(path);
  out.numbers(fileSize, timestamp);
  out.text(md5);
  out.numbers(flags, static_cast<uint32_t>(properties.size()));
  for (const auto& [key, value] : properties) {
    out.text(key);
    out.text(value);
  }
  out.numbers(static_cast<uint32_t>(saved.size()));
  if (!out.flush()) return failed("save header to");
  for (const ChrIndex* index : saved) writeContig(out, *index);
  if (!out.flush() || fclose(stream.release()) != 0) return failed("save indices to");
  return true;
}
