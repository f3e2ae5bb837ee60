// Loading, querying and saving BAI indexes.
#include "readdata/bam/bam_index.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/plain_file.h"
#include "base/text.h"
#include "readdata/stream/genome_bins.h"

namespace {

constexpr char kMagic[4] = {'B', 'A', 'I', 1};
// Far above the index of any real file; one of this size is not read at all.
constexpr int64_t kMaxFileSize = int64_t(1) << 30;

// Reads an index with every count bounded by what is left of the file.
class IndexReader {
 public:
  IndexReader(FILE* stream, std::string path, uint64_t size, std::string bam_path, int64_t bam_size)
      : stream_(stream),
        path_(std::move(path)),
        left_(size),
        bam_path_(std::move(bam_path)),
        bam_size_(bam_size) {}

  void read(BamIndex& index, int64_t contig_count);

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    throw std::invalid_argument("Bam index file " + path_ + " " + reason);
  }
  [[noreturn]] void failForeign(const std::string& reason) const {
    throw std::invalid_argument("Bam index file " + path_ + " does not belong to " + bam_path_ + ": " +
                                reason);
  }
  void bytes(void* to, size_t count) {
    if (count > left_ || fread_unlocked(to, 1, count, stream_) != count) {
      if (ferror(stream_)) fail(std::string("cannot be read, ") + strerror(errno));
      fail("is truncated");
    }
    left_ -= count;
  }
  template <typename T>
  T number() {
    T value;
    bytes(&value, sizeof value);
    return value;
  }
  // A count of things that take at least `size` bytes each.
  uint32_t count(const char* what, size_t size) {
    auto value = number<int32_t>();
    if (value < 0) fail(format("has a count of %d %s", value, what));
    if (static_cast<uint64_t>(value) > left_ / size) fail("is truncated");
    return value;
  }
  void checkOffset(uint64_t offset) const {
    if (bam_size_ >= 0 && offset >> 16 > static_cast<uint64_t>(bam_size_))
      failForeign(format("offset %llu is beyond its end", static_cast<unsigned long long>(offset >> 16)));
  }
  Chunk chunk() {
    Chunk value;
    value.begin = number<uint64_t>();
    value.end = number<uint64_t>();
    return value;
  }
  Chunk checkedChunk(size_t contig) {
    Chunk value = chunk();
    if (value.begin > value.end) fail(format("has a chunk that ends before it begins, contig %zu", contig));
    checkOffset(value.end);
    return value;
  }
  void contig(BamIndex::ContigIndex& contig, size_t number);
  void pseudoBin(BamIndex::ContigIndex& contig, size_t number, uint32_t chunks);

  FILE* stream_;
  std::string path_;
  uint64_t left_;
  std::string bam_path_;
  int64_t bam_size_;
};

void IndexReader::pseudoBin(BamIndex::ContigIndex& contig, size_t number, uint32_t chunks) {
  if (chunks != 2) fail(format("has a malformed bin %u, contig %zu", kPseudoBin, number));
  if (contig.has_counts) fail(format("has bin %u twice, contig %zu", kPseudoBin, number));
  Chunk span = checkedChunk(number);
  Chunk counts = chunk();
  contig.has_counts = true;
  contig.first_offset = span.begin;
  contig.last_offset = span.end;
  contig.mapped = counts.begin;
  contig.unmapped = counts.end;
}

void IndexReader::contig(BamIndex::ContigIndex& contig, size_t number) {
  uint32_t bins = count("bins", 8);
  for (uint32_t i = 0; i < bins; ++i) {
    uint32_t bin = this->number<uint32_t>();
    uint32_t chunks = count("chunks", sizeof(Chunk));
    if (bin > kPseudoBin) fail(format("has bin %u, contig %zu", bin, number));
    if (bin == kPseudoBin) {
      pseudoBin(contig, number, chunks);
      continue;
    }
    auto [place, fresh] = contig.bins.try_emplace(bin);
    if (!fresh) fail(format("has bin %u twice, contig %zu", bin, number));
    std::vector<Chunk>& list = place->second;
    for (uint32_t k = 0; k < chunks; ++k) {
      Chunk value = checkedChunk(number);
      if (!list.empty() && value.begin < list.back().begin)
        fail(format("has chunks out of order, bin %u of contig %zu", bin, number));
      list.push_back(value);
    }
  }
  uint32_t windows = count("windows", 8);
  contig.linear.resize(windows);
  if (windows > 0) bytes(contig.linear.data(), windows * sizeof(uint64_t));
  for (uint64_t offset : contig.linear) checkOffset(offset);
  // Asked not to expect the counts, the reader leaves them aside.
  if (bam_max_bin_disabled()) {
    contig.has_counts = false;
    contig.mapped = contig.unmapped = 0;
  }
}

void IndexReader::read(BamIndex& index, int64_t contig_count) {
  char magic[sizeof kMagic];
  if (left_ < sizeof magic) throw std::invalid_argument("Incorrect bam index file format for file " + path_);
  bytes(magic, sizeof magic);
  if (memcmp(magic, kMagic, sizeof magic) != 0)
    throw std::invalid_argument("Incorrect bam index file format for file " + path_);
  int32_t stated;
  bytes(&stated, sizeof stated);
  if (stated < 0) fail(format("has a count of %d contigs", stated));
  if (contig_count >= 0 && stated != contig_count)
    failForeign(format("it has %d contigs, the bam file %lld", stated, static_cast<long long>(contig_count)));
  if (static_cast<uint64_t>(stated) > left_ / 8) fail("is truncated");
  for (int32_t i = 0; i < stated; ++i) contig(index.contigs.emplace_back(), i);
  if (left_ == 0) return;
  index.n_no_coor = number<uint64_t>();
  index.has_no_coor = true;
  if (left_ > 0) fail("has bytes behind its end");
}

int64_t regularSize(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : -1;
}

// The two places where an index is looked for; the second when the first does not exist.
std::string indexName(const std::string& bam_path) {
  std::string name = bam_path + ".bai";
  if (access(name.c_str(), F_OK) == 0 || bam_path.size() < 4) return name;
  if (strcasecmp(bam_path.c_str() + bam_path.size() - 4, ".bam") != 0) return name;
  return bam_path.substr(0, bam_path.size() - 4) + ".bai";
}

std::shared_ptr<const BamIndex> buildAndSave(const std::string& bam_path) {
  std::shared_ptr<BamIndex> index = BamIndex::build(bam_path);
  index->path = bam_path + ".bai";
  if (!index->save(index->path))
    throw std::runtime_error("Failed to write to file " + index->path + ", " + strerror(errno));
  return index;
}

void printChunk(const char* indent, const Chunk& chunk) {
  auto address = [](uint64_t offset) { return static_cast<long long>(offset >> 16); };
  auto within = [](uint64_t offset) { return static_cast<int>(offset & 0xffff); };
  fprintf(stderr, "%s%lld/%d %lld/%d\n", indent, address(chunk.begin), within(chunk.begin),
          address(chunk.end), within(chunk.end));
}

void print(const BamIndex& index) {
  fprintf(stderr, "n = %d\n", static_cast<int>(index.contigs.size()));
  for (size_t i = 0; i < index.contigs.size(); ++i) {
    const BamIndex::ContigIndex& contig = index.contigs[i];
    int number = static_cast<int>(i);
    fprintf(stderr, "i = %d\n", number);
    fprintf(stderr, "%slmap[%d].size() = %d\n", "  ", number, static_cast<int>(contig.linear.size()));
    for (uint64_t offset : contig.linear)
      fprintf(stderr, "%s%lld/%d\n", "    ", static_cast<long long>(offset >> 16),
              static_cast<int>(offset & 0xffff));
    int bins = static_cast<int>(contig.bins.size()) + contig.has_counts;
    fprintf(stderr, "%simap[%d].size = %d\n", "  ", number, bins);
    for (const auto& [bin, chunks] : contig.bins) {
      fprintf(stderr, "%skey = %d value = \n", "    ", static_cast<int>(bin));
      for (const Chunk& chunk : chunks) printChunk("      ", chunk);
    }
    if (!contig.has_counts) continue;
    fprintf(stderr, "%skey = %d value = \n", "    ", static_cast<int>(kPseudoBin));
    printChunk("      ", {contig.first_offset, contig.last_offset});
    fprintf(stderr, "%s%lld %lld\n", "      ", static_cast<long long>(contig.mapped),
            static_cast<long long>(contig.unmapped));
  }
}

// Writes numbers and remembers the first failure.
class IndexWriter {
 public:
  explicit IndexWriter(FILE* stream) : stream_(stream) {}
  void bytes(const void* from, size_t count) {
    if (count > 0 && fwrite_unlocked(from, 1, count, stream_) != count) note();
  }
  template <typename T>
  void number(T value) {
    bytes(&value, sizeof value);
  }
  void note() {
    if (error_ == 0) error_ = errno != 0 ? errno : EIO;
  }
  int error() const { return error_; }

 private:
  FILE* stream_;
  int error_ = 0;
};

void writeIndex(const BamIndex& index, IndexWriter& out) {
  out.bytes(kMagic, sizeof kMagic);
  out.number(static_cast<int32_t>(index.contigs.size()));
  for (const BamIndex::ContigIndex& contig : index.contigs) {
    out.number(static_cast<int32_t>(contig.bins.size() + contig.has_counts));
    for (const auto& [bin, chunks] : contig.bins) {
      out.number(bin);
      out.number(static_cast<int32_t>(chunks.size()));
      out.bytes(chunks.data(), chunks.size() * sizeof(Chunk));
    }
    if (contig.has_counts) {
      out.number(kPseudoBin);
      out.number(int32_t(2));
      for (uint64_t value : {contig.first_offset, contig.last_offset, contig.mapped, contig.unmapped})
        out.number(value);
    }
    out.number(static_cast<int32_t>(contig.linear.size()));
    out.bytes(contig.linear.data(), contig.linear.size() * sizeof(uint64_t));
  }
  if (index.has_no_coor) out.number(index.n_no_coor);
}

}  // namespace

bool bam_max_bin_disabled() {
  return getenv("disable_bam_max_bin") != nullptr;
}

uint64_t BamIndex::ContigIndex::lastChunkEnd() const {
  uint64_t last = 0;
  for (const auto& [bin, chunks] : bins)
    for (const Chunk& chunk : chunks) last = std::max(last, chunk.end);
  return last;
}

std::shared_ptr<const BamIndex> BamIndex::load(const std::string& bam_path, int build_mode,
                                               int64_t contig_count) {
  if (build_mode > 1) return buildAndSave(bam_path);
  std::string name = indexName(bam_path);
  FileOwner stream(open_plain_file(name.c_str()));
  struct stat status = {};
  if (stream != nullptr && (fstat(fileno(stream.get()), &status) != 0 || !S_ISREG(status.st_mode))) {
    stream.reset();
    errno = EISDIR;
  }
  if (stream == nullptr) {
    int number = errno;
    if (build_mode == 0)
      throw std::invalid_argument("Failed to load index file " + name + ", " + strerror(number));
    fprintf(stderr, "Fail to load index file %s. Build the index file automatically\n", name.c_str());
    return buildAndSave(bam_path);
  }
  if (status.st_size > kMaxFileSize)
    throw std::invalid_argument("Bam index file " + name + " is too large for an index");
  auto index = std::make_shared<BamIndex>();
  index->path = name;
  IndexReader(stream.get(), name, status.st_size, bam_path, regularSize(bam_path)).read(*index, contig_count);
  if (getenv("bam_index_print") != nullptr) print(*index);
  return index;
}

void BamIndex::query(int32_t contig, uint32_t start, uint32_t end, std::vector<Chunk>& chunks) const {
  chunks.clear();
  end = std::min(end, kMaxBinnedLength);
  if (contig < 0 || static_cast<size_t>(contig) >= contigs.size() || start >= end) return;
  const ContigIndex& from = contigs[contig];
  uint64_t min_offset = 0;
  for (size_t window = std::min<size_t>(from.linear.size(), (start >> kWindowShift) + 1);
       window > 0 && min_offset == 0; --window)
    min_offset = from.linear[window - 1];
  for (const BinLevel& level : kBinLevels) {
    uint32_t last = level.first_bin + ((end - 1) >> level.shift);
    for (auto bin = from.bins.lower_bound(level.first_bin + (start >> level.shift));
         bin != from.bins.end() && bin->first <= last; ++bin)
      for (const Chunk& chunk : bin->second)
        if (chunk.end > min_offset) chunks.push_back(chunk);
  }
  if (chunks.empty()) return;
  std::sort(chunks.begin(), chunks.end(), [](const Chunk& a, const Chunk& b) { return a.begin < b.begin; });
  size_t kept = 0;
  for (size_t i = 1; i < chunks.size(); ++i) {
    if (chunks[i].begin >> 16 <= chunks[kept].end >> 16)
      chunks[kept].end = std::max(chunks[kept].end, chunks[i].end);
    else
      chunks[++kept] = chunks[i];
  }
  chunks.resize(kept + 1);
}

uint64_t BamIndex::readCount() const {
  uint64_t total = 0;
  for (const ContigIndex& contig : contigs) total += contig.mapped + contig.unmapped;
  return total;
}

uint64_t BamIndex::firstUnmappedOffset() const {
  for (size_t i = contigs.size(); i-- > 0;) {
    uint64_t last = std::max(contigs[i].lastChunkEnd(), contigs[i].last_offset);
    if (last > 0) return last;
  }
  return 0;
}

bool BamIndex::save(const std::string& path) const {
  // What is not a plain file (a pipe, /dev/full) is written in place.
  struct stat status;
  bool in_place = stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
  std::string target = in_place ? path : path + ".tmp";
  if (!in_place) unlink(target.c_str());  // rather than what a link of that name leads to
  errno = 0;
  FILE* stream = fopen(target.c_str(), "wbe");
  if (stream == nullptr) return false;
  IndexWriter out(stream);
  writeIndex(*this, out);
  if (fflush(stream) != 0) out.note();
  if (fclose(stream) != 0) out.note();
  if (out.error() == 0 && !in_place && rename(target.c_str(), path.c_str()) != 0) out.note();
  if (out.error() == 0) return true;
  if (!in_place) unlink(target.c_str());
  errno = out.error();
  return false;
}
