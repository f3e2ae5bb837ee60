// Reading and writing .tbi files, and reading .csi files.
#include "readdata/vcf/tabix.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "readdata/stream/bgzf_handle.h"
#include "readdata/stream/genome_bins.h"

namespace {

constexpr uint32_t kMagic = 0x01494254;     // "TBI", 1
constexpr uint32_t kCsiMagic = 0x01495343;  // "CSI", 1
constexpr int32_t kZeroBased = 0x10000;     // in the format word
constexpr uint32_t kSaveThreshold = 0x10000, kLoadThreshold = 0x40000;
// Far above the index of any genome; uncompressed bytes behind that are not read.
constexpr int64_t kMaxBytes = int64_t(1) << 28;
// More than any assembly has; a contig takes a few bytes in the file and some hundred in memory.
constexpr int32_t kMaxContigs = 1 << 20;
constexpr int64_t kChunkBytes = 16;
constexpr int64_t kCsiNamesAt = 28;  // in the bytes that a .csi has for the kind of its file

struct Preset {
  const char* format;
  int32_t code, col_seq, col_beg, col_end, meta;
};
// The first one is also for what has no name of its own.
constexpr Preset kPresets[] = {{"vcf", 2, 1, 2, 2, '#'},
                               {"sam", 1, 3, 4, 4, '@'},
                               {"bed", kZeroBased, 1, 2, 3, '#'},
                               {"gff", 0, 1, 4, 5, '#'}};

const Preset& presetOf(const std::string& format, const std::string& path) {
  std::string name = format;
  if (name.empty()) {
    name = path.ends_with(".gz") ? path.substr(0, path.size() - 3) : path;
    const size_t dot = name.find_last_of("./");
    name = dot == std::string::npos ? "" : name.substr(dot + 1);
  }
  for (const Preset& preset : kPresets)
    if (strcasecmp(preset.format, name.c_str()) == 0) return preset;
  return kPresets[0];
}

// The loading thins out the index of a file with a record per base.
bool isGvcf(const std::string& path) {
  const std::string_view name = std::string_view(path).substr(path.rfind('/') + 1);
  return name.ends_with(".g.vcf.gz") || name.ends_with(".gvcf.gz");
}

// The bins of a .csi: `depth` levels below the one that holds all, of which the lowest has bins of 2^minShift bases.
struct CsiBins {
  int32_t minShift = kWindowShift, depth = 5;

  bool valid() const { return minShift >= 0 && minShift <= 30 && depth >= 0 && depth <= 9; }
  uint32_t count() const { return firstOf(depth + 1); }
  // The first base of a bin, and the smallest bin of a .tbi that holds it.
  uint64_t place(uint32_t bin, uint32_t& tabixBin) const {
    int level = depth;
    while (bin < firstOf(level)) --level;
    const int shift = minShift + 3 * (depth - level);
    const uint64_t start = uint64_t(bin - firstOf(level)) << shift, end = start + (uint64_t(1) << shift);
    tabixBin =
        end > kMaxBinnedLength ? 0 : smallestBin(static_cast<uint32_t>(start), static_cast<uint32_t>(end));
    return start;
  }

 private:
  static uint32_t firstOf(int level) { return static_cast<uint32_t>(((uint64_t(1) << 3 * level) - 1) / 7); }
};

// Reads an index, of which every number may be wrong. Nothing is allocated for what has not been read.
class Reader {
 public:
  bool open(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
      reason_ = strerror(ESPIPE);  // a pipe may have no other end
      return false;
    }
    return stream_.openFile(path.c_str(), "r");
  }

  template <typename T>
  bool number(T& value) {
    return spend(sizeof value) && stream_.read(&value, sizeof value) == sizeof value;
  }
  template <typename T, typename... Rest>
  bool number(T& value, Rest&... rest) {
    return number(value) && number(rest...);
  }
  // A name and its NUL, `limit` bytes at most.
  bool name(std::string& name, int64_t limit) {
    char piece[256];
    for (name.clear(); static_cast<int64_t>(name.size()) < limit;) {
      const int64_t room = std::min<int64_t>(sizeof piece, limit - static_cast<int64_t>(name.size()));
      const int64_t got = stream_.read_until(piece, room, '\0');
      if (got <= 0 || !spend(got)) return false;
      name.append(piece, got);
      if (name.back() != '\0') continue;
      name.pop_back();
      return name.find('\xff') == std::string::npos;
    }
    return false;
  }
  bool contig(Tabix::Index& index) { return bins(index) && windows(index); }
  bool contig(Tabix::Index& index, const CsiBins& scheme);
  bool skip(int64_t bytes) {
    char piece[256];
    for (int64_t size; bytes > 0; bytes -= size) {
      size = std::min<int64_t>(bytes, sizeof piece);
      if (!spend(size) || stream_.read(piece, size) != size) return false;
    }
    return true;
  }
  bool trailer(uint64_t& value) { return stream_.read(&value, sizeof value) >= 0; }

  std::string reason() const {
    if (!reason_.empty()) return reason_;
    return stream_.error_code() != 0 ? stream_.error_text() : "file truncated";
  }

 private:
  bool spend(int64_t bytes) {
    left_ -= bytes;
    if (left_ < 0) reason_ = "file too large";
    return left_ >= 0;
  }
  bool chunks(Tabix::Index& index, int32_t count, std::vector<GenomeIndex::Chunk>& list);
  bool bins(Tabix::Index& index);
  bool windows(Tabix::Index& index);

  BGZFHandle stream_;
  int64_t left_ = kMaxBytes;
  std::string reason_;
};

// Appends the chunks of a bin.
bool Reader::chunks(Tabix::Index& index, int32_t count, std::vector<GenomeIndex::Chunk>& list) {
  for (int32_t i = 0; i < count; ++i) {
    GenomeIndex::Chunk chunk;
    if (!number(chunk.begin, chunk.end) || chunk.begin < 0 || chunk.begin > chunk.end) return false;
    list.push_back(chunk);
    index.first = std::min(index.first, chunk.begin);
    index.last = std::max(index.last, chunk.end);
    ++index.count;
  }
  return count >= 0;
}

bool Reader::bins(Tabix::Index& index) {
  int32_t bins;
  if (!number(bins) || bins < 0) return false;
  for (int32_t i = 0; i < bins; ++i) {
    uint32_t bin;
    int32_t count;
    if (!number(bin, count) || count < 0) return false;
    if (bin == kPseudoBin) {
      if (!skip(kChunkBytes * count)) return false;
      continue;
    }
    std::vector<GenomeIndex::Chunk> list;
    if (bin >= kPseudoBin - 1 || !chunks(index, count, list)) return false;
    if (!list.empty() && !index.bins.try_emplace(bin, std::move(list)).second) return false;
  }
  return true;
}

bool Reader::windows(Tabix::Index& index) {
  int32_t windows;
  if (!number(windows) || windows < 0 || windows > Tabix::Index::kMaxWindows) return false;
  for (int32_t i = 0; i < windows; ++i) {
    int64_t offset;
    if (!number(offset) || offset < 0) return false;
    if (index.linear.size() == 1 && index.linear[0] == offset)
      ++index.firstWindow;  // those before the first feature repeat its offset
    else
      index.linear.push_back(offset);
  }
  index.linear.shrink_to_fit();  // a joint run holds the indexes of many files
  return true;
}

// What a contig of a .tbi has, from bins of any width and the offset that each has in place of windows: no feature that
// reaches the bin's first base, or lies behind that, stands before it.
bool Reader::contig(Tabix::Index& index, const CsiBins& scheme) {
  int32_t bins;
  if (!number(bins) || bins < 0) return false;
  std::map<uint64_t, int64_t> offsets;  // by the first window that does not begin before the bin
  uint64_t first = std::numeric_limits<uint64_t>::max();  // base of a bin
  for (int32_t i = 0; i < bins; ++i) {
    uint32_t bin, tabix_bin;
    int64_t offset;
    int32_t count;
    if (!number(bin, offset, count) || count < 0) return false;
    if (bin == scheme.count() + 1) {  // counts
      if (!skip(kChunkBytes * count)) return false;
      continue;
    }
    if (bin >= scheme.count() || offset < 0) return false;
    const uint64_t start = scheme.place(bin, tabix_bin);
    if (count > 0 && !chunks(index, count, index.bins[tabix_bin])) return false;
    if (start >> kWindowShift >= Tabix::Index::kMaxWindows) continue;
    first = std::min(first, start);
    int64_t& known = offsets[(start + (1 << kWindowShift) - 1) >> kWindowShift];
    known = std::max(known, offset);
  }
  for (auto& [bin, list] : index.bins) std::sort(list.begin(), list.end());
  if (offsets.empty()) return true;

  std::vector<int64_t>& linear = index.linear;
  index.firstWindow = static_cast<int32_t>(first >> kWindowShift);
  linear.push_back(0);  // of a window that begins before the first bin nothing is known
  for (const auto& [window, offset] : offsets) {
    const uint64_t at = window - uint64_t(index.firstWindow);
    if (at >= linear.size()) {
      if (!spend(static_cast<int64_t>((at + 1 - linear.size()) * sizeof offset))) return false;
      linear.resize(at + 1, linear.back());
    }
    linear[at] = std::max(linear[at], offset);
  }
  return true;
}

class Writer {
 public:
  template <typename... T>
  void numbers(T... values) {
    (bytes(&values, sizeof values), ...);
  }
  void bytes(const void* data, size_t size) {
    good = good && stream.write(data, size) == static_cast<int64_t>(size);
  }

  BGZFHandle stream;
  bool good = true;
};

void writeContig(Writer& out, const Tabix::Index& index) {
  out.numbers(static_cast<int32_t>(index.bins.size()));
  for (const auto& [bin, chunks] : index.bins) {
    out.numbers(bin, static_cast<int32_t>(chunks.size()));
    for (const auto& chunk : chunks) out.numbers(chunk.begin, chunk.end);
  }
  const size_t skipped = index.linear.empty() ? 0 : index.firstWindow;
  out.numbers(static_cast<int32_t>(skipped + index.linear.size()));
  for (size_t i = 0; i < skipped; ++i) out.numbers(index.linear[0]);
  for (int64_t offset : index.linear) out.numbers(offset);
}

}  // namespace

Tabix::Tabix(const Options& options)
    : GenomeIndex(options), compactThreshold(options.partial ? 0 : kSaveThreshold) {}

std::unique_ptr<GenomeIndex> Tabix::clone() const {
  return std::make_unique<Tabix>(Options{format, partial, wideBins});
}

std::unique_ptr<GenomeIndex::ContigIndex> Tabix::newContigIndex(const std::string& name) const {
  return std::make_unique<Index>(name);
}

bool Tabix::load(const std::string& path) {
  const auto exists = [](const std::string& name) { return access(name.c_str(), F_OK) == 0; };
  const bool csi = !exists(path + ".tbi") && exists(path + ".csi");
  const std::string index_path = path + (csi ? ".csi" : ".tbi");
  Reader in;
  auto failed = [&](const char* what, const std::string& reason) {
    fprintf(stderr, "Failed to %s tabix file %s: %s\n", what, index_path.c_str(), reason.c_str());
    return false;
  };
  if (!in.open(index_path)) return failed("open", in.reason());

  CsiBins scheme;
  int32_t l_aux = 0;
  const bool begun = csi ? in.number(magic, scheme.minShift, scheme.depth, l_aux) : in.number(magic, n_ref);
  if (!begun || !in.number(format_code, col_seq, col_beg, col_end, meta, skip, l_nm))
    return failed("load header from", in.reason());
  if (magic != (csi ? kCsiMagic : kMagic)) {
    fprintf(stderr, "File %s is not a tabix file\n", index_path.c_str());
    return false;
  }
  const int32_t code = format_code & ~kZeroBased;
  if (code == 1) format = "sam";
  if (code == 2) format = "vcf";

  if (!scheme.valid()) return failed("load header from", "bins of impossible width");
  if (n_ref > kMaxContigs) return failed("load header from", "too many contigs");
  if (csi) n_ref = kMaxContigs;  // the number comes behind the names
  int32_t used = 0;
  std::vector<Index*> loaded;
  for (int32_t i = 0; i < n_ref && used < l_nm; ++i) {
    std::string name;
    if (!in.name(name, l_nm - used)) return failed("load header from", in.reason());
    used += static_cast<int32_t>(name.size()) + 1;
    auto index = std::make_unique<Index>(name);
    index->first = std::numeric_limits<int64_t>::max();
    loaded.push_back(index.get());
    if (find(name) != nullptr) return failed("load header from", "!pib.first->second");
    addContigIndex(std::move(index));
  }
  if (csi && (l_aux < kCsiNamesAt + int64_t(used) || !in.skip(l_aux - kCsiNamesAt - int64_t(used)) ||
              !in.number(n_ref)))
    return failed("load header from", in.reason());
  if (used != l_nm || n_ref != static_cast<int64_t>(loaded.size()))
    return failed("load header from", in.reason());

  for (Index* index : loaded) {
    if (!(csi ? in.contig(*index, scheme) : in.contig(*index)))
      return failed("load indices from", in.reason());
    count += index->count;
  }
  if (!in.trailer(n_no_coor)) return failed("load trailer from", in.reason());

  if (format == "vcf" && isGvcf(path))
    for (Index* index : loaded)
      if (index->bins.size() > 1) index->compact(kLoadThreshold, true);
  return true;
}

bool Tabix::save(const std::string& path) {
  const std::string index_path = path + ".tbi";
  const Preset& preset = presetOf(format, path);
  magic = kMagic;
  format_code = preset.code;
  col_seq = preset.col_seq;
  col_beg = preset.col_beg;
  col_end = preset.col_end;
  meta = preset.meta;
  skip = 0;
  std::string names;
  std::vector<Index*> saved;
  for (const Contig& contig : contigs) {
    auto* index = dynamic_cast<Index*>(find(contig.name));
    if (index == nullptr) continue;
    saved.push_back(index);
    names.append(contig.name).push_back('\0');
    if (compactThreshold != 0 && index->bins.size() > 1)
      index->compact(compactThreshold, path.ends_with(".gz"));
  }
  n_ref = static_cast<int32_t>(saved.size());
  l_nm = static_cast<int32_t>(names.size());

  Writer out;
  auto failed = [&](const char* what) {
    fprintf(stderr, "Failed to %s tabix file %s: %s\n", what, index_path.c_str(),
            out.stream.error_text().c_str());
    struct stat status;
    if (lstat(index_path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) unlink(index_path.c_str());
    return false;
  };
  if (!out.stream.openFile(index_path.c_str(), "w")) {
    fprintf(stderr, "Failed to create tabix file %s: %s\n", index_path.c_str(),
            out.stream.error_text().c_str());
    return false;
  }
  out.numbers(magic, n_ref, format_code, col_seq, col_beg, col_end, meta, skip, l_nm);
  out.bytes(names.data(), names.size());
  if (!out.good) return failed("save header to");
  for (const Index* index : saved) writeContig(out, *index);
  if (!out.good) return failed("save indices to");
  out.numbers(n_no_coor);
  if (out.stream.close() != 0 || !out.good) return failed("save trailer to");
  return true;
}
