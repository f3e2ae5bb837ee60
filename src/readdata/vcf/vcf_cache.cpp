// Opening, the window, and a look at the first record.
#include "readdata/vcf/vcf_cache.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <set>
#include <stdexcept>
#include <string_view>

#include "base/text.h"
#include "readdata/stream/open_stream.h"

namespace {

constexpr uint32_t kDefaultLimit = 0x1000000;
constexpr int64_t kReadAhead = 2000;  // bases

uint32_t limitOf(const char* text) {
  if (text == nullptr) return kDefaultLimit;
  char* rest;
  const long number = strtol(text, &rest, 10);
  const char unit = static_cast<char>(toupper(static_cast<unsigned char>(*rest)));
  const int shift = unit == 0 ? 0 : unit == 'K' ? 10 : unit == 'M' ? 20 : unit == 'G' ? 30 : -1;
  if (number <= 0 || shift < 0) return kDefaultLimit;
  if (number > int64_t{UINT32_MAX} >> shift) return UINT32_MAX;
  return static_cast<uint32_t>(number << shift);
}

void checkFormat(IOHandle& stream, const char* path) {
  char text[1024];
  const int64_t got = stream.read(text, sizeof text - 1);
  if (got < 0)
    throw std::runtime_error(format("Failed to read vcf file %s: %s", path, stream.error_text().c_str()));
  if (got == 0) throw std::runtime_error(format("Empty vcf file %s", path));
  text[got] = 0;
  int major, minor;
  if (sscanf(text, "##fileformat=VCFv%9d.%9d", &major, &minor) != 2)
    throw std::runtime_error(format("Unrecognized format for vcf file %s", path));
  if (major != 4)
    throw std::runtime_error(format("Unsupported format v%d.%d for vcf file %s", major, minor, path));
}

}  // namespace

uint32_t VCFCache::maxRecordSize() {
  static const uint32_t limit = limitOf(getenv("MAX_VCF_RECORD_SIZE"));
  return limit;
}

VCFCache::VCFCache(const std::string& path) : path_(path), stream_(openStream(path, "r")) {
  maxRecordSize();
  if (stream_ == nullptr) throw std::runtime_error(format("Failed to open vcf file %s", path.c_str()));
  checkFormat(*stream_, path.c_str());
  std::shared_ptr<GenomeIndex> index = newGenomeIndex(path, {});
  if (!index->load(path)) throw std::runtime_error(format("Failed to load index for %s", path.c_str()));
  index_ = std::move(index);
  checkLength();
  warnOfUnknownContigs();
}

// A file cut short behind its index is found out before the run, not where the cut is.
void VCFCache::checkLength() {
  int64_t last = 0;
  for (const auto& [name, contig] : index_->indices)
    if (contig != nullptr && contig->count > 0) last = std::max(last, contig->last);
  if (stream_->seek(last, SEEK_SET) < 0) throw std::runtime_error("Truncated vcf file " + path_);
}

// A header without contig lines knows none and is left in peace.
void VCFCache::warnOfUnknownContigs() {
  VCFHeader header;
  parseHeader(header);
  const auto known = header.defs.find("contig");
  if (known == header.defs.end()) return;
  std::set<std::string_view> names;
  for (const VCFHeaderDef& contig : known->second) names.insert(contig.id);
  for (const auto& [name, contig] : index_->indices)
    if (contig != nullptr && contig->count > 0 && !names.contains(name))
      fprintf(stderr, "Warning: contig %s of the vcf file %s is not in its header\n", name.c_str(),
              path_.c_str());
}

VCFCache::VCFCache(const VCFCache& other)
    : path_(other.path_),
      index_(other.index_),
      stream_(other.stream_->clone()),
      blockSize_(other.blockSize_) {
  if (stream_ == nullptr) throw std::runtime_error(format("Failed to open vcf file %s", path_.c_str()));
}

VCFCache::~VCFCache() {
  empty();
}

void VCFCache::parseHeader(VCFHeader& header) {
  seek(0);
  try {
    header.parse(*stream_);
  } catch (const std::runtime_error& failure) {
    throw std::runtime_error(failure.what() + (" in vcf file " + path_));
  }
  if (stream_->error_code() != 0) failRead();  // else a cut header would do
}

void VCFCache::getHeader(VCFHeader& header) {
  const int64_t here = tell();
  parseHeader(header);
  seek(here);
}

void VCFCache::setContig(const std::string& name) {
  const GenomeIndex::ContigIndex* index = index_->find(name);
  if (index == current_) return;
  current_ = index;
  startPos_ = loadedEnd_ = 0;
  empty();
}

void VCFCache::fetch(int32_t start, int32_t end) {
  if (start < startPos_) {
    startPos_ = start;
    loadedEnd_ = std::min(start, 0);  // POS 0 lies in front of the first base
    empty();
  } else if (start > startPos_) {
    dropBefore(start);
    startPos_ = start;
  }
  if (loadedEnd_ >= end) return;
  const int32_t from = std::max(loadedEnd_, startPos_);
  const int64_t to = std::min<int64_t>(std::max<int64_t>(from + kReadAhead, end), INT32_MAX);
  try {
    load(from, static_cast<int32_t>(to));
  } catch (...) {
    empty();
    loadedEnd_ = 0;
    throw;
  }
  loadedEnd_ = static_cast<int32_t>(to);
}

// From the first block on that reaches beyond `start`: one that reaches far holds those behind it.
void VCFCache::dropBefore(int32_t start) {
  while (!blocks_.empty() && static_cast<int32_t>(blocks_.front()->maxEnd) <= start)
    releaseVCFBlock(blocks_.popFront());
  if (blocks_.empty()) return empty();
  VCFBlock& block = *blocks_.front();
  const auto from = std::lower_bound(records_.begin() + static_cast<ptrdiff_t>(first_), records_.end(),
                                     static_cast<int32_t>(block.minPos),
                                     [](const VCFLine& record, int32_t pos) { return record.pos < pos; });
  first_ = static_cast<size_t>(from - records_.begin());
  // Records of one position may stand in a block that went and in this one.
  while (records_[first_].line < block.text() || records_[first_].line >= block.text() + block.used) first_++;
}

void VCFCache::empty() {
  records_.clear();
  first_ = 0;
  blocks_.clear(blockSize_ == 0);
}

void VCFCache::push(const VCFLine& record) {
  if (records_.size() == records_.capacity() && first_ > records_.size() / 2) {
    records_.erase(records_.begin(), records_.begin() + static_cast<ptrdiff_t>(first_));
    first_ = 0;
  }
  records_.push_back(record);
}

void VCFCache::setCacheBlockSize(uint32_t size) {
  if (!blocks_.empty()) throw std::logic_error("((&cache)->stqh_first == __null)");
  const int bits = std::min<int>(std::bit_width(size), 31);
  if (1u << bits > VCFBlock::kDefaultSize) blockSize_ = 1u << bits;
}

const VCFLine* VCFCache::peekRecord(VCFHeader& header, std::vector<char>& buffer) {
  struct Return {
    VCFCache& cache;
    int64_t offset = cache.tell();
    ~Return() { cache.stream_->seek(offset, SEEK_SET); }
  } back{*this};
  parseHeader(header);
  buffer.resize(VCFBlock::kDefaultSize);
  for (int64_t here = tell();;) {
    char* text = buffer.data() + sizeof(VCFLine);
    const auto room = static_cast<uint32_t>(buffer.size() - sizeof(VCFLine));
    const int64_t size = readLine(text, room);
    if (size == 0) return nullptr;
    if (size == kNoRoom) {
      if (buffer.size() >= maxRecordSize())
        throw std::runtime_error("Cannot handle vcf lines longer than " + std::to_string(room) + " in file " +
                                 path_);
      buffer.resize(std::min<uint64_t>(2 * buffer.size(), maxRecordSize()));
      seek(here);
    } else if (text[0] == '#') {
      here = tell();
    } else {
      auto* record = new (buffer.data()) VCFLine;
      parseLine(text, size, *record);
      return record;
    }
  }
}
