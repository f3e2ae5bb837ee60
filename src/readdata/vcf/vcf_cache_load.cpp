// Reading on: from the chunks of the index to the first record of a region, from there line by line.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "readdata/vcf/vcf_cache.h"

namespace {

constexpr int64_t kShownBytes = 60;  // of a line that is told of

}  // namespace

struct VCFCache::Load {
  int32_t from, to;  // still to be read; behind the first record `from` is the position of the last one
  bool sequential;   // the next record belongs to the window, whatever chunks there are
  int64_t here = 0;  // offset of the stream, at the beginning of a line
  size_t chunk = 0;  // of chunks_, where the stream stands
};

int64_t VCFCache::tell() {
  return stream_->seek(0, SEEK_CUR);
}

void VCFCache::failRead() {
  throw std::runtime_error("Error reading vcf file " + path_ + ", " + stream_->error_text());
}

int64_t VCFCache::seek(int64_t offset) {
  const int64_t reached = stream_->seek(offset, SEEK_SET);
  if (reached < 0) failRead();
  return reached;
}

int64_t VCFCache::readLine(char* text, uint32_t room) {
  const int64_t got = stream_->read_until(text, room, '\n');
  if (got < 0) failRead();
  if (got == 0 || text[got - 1] == '\n') return got;
  if (got < room) throw std::runtime_error("Truncated vcf file " + path_);
  return kNoRoom;
}

void VCFCache::failLine(const char* fault, const char* text, int64_t size) const {
  std::string shown(text, static_cast<size_t>(std::min<int64_t>(size, kShownBytes)));
  for (char& c : shown)
    if (!isprint(static_cast<unsigned char>(c))) c = ' ';  // NULs were tabs
  fprintf(stderr, "In vcf file %s the line: %s\n", path_.c_str(), shown.c_str());
  throw std::runtime_error(fault + path_);
}

void VCFCache::parseLine(char* text, int64_t size, VCFLine& record) const {
  text[size - 1] = 0;
  switch (record.parse(text, static_cast<uint32_t>(size - 1))) {
    case VCFLine::kOk:
      return;
    case VCFLine::kBad:
      failLine("Corrupted vcf file ", text, size - 1);
    case VCFLine::kTooWide:
      throw std::runtime_error("Cannot handle vcf columns beginning beyond 65535 bytes in file " + path_);
  }
}

void VCFCache::requireColumn(VCFLine::Column column) const {
  for (const VCFLine& record : records())
    if (!record.hasColumn(column))
      throw std::runtime_error("Corrupted vcf file " + path_ + ": too few columns in the line of " +
                               record.line + ":" + std::to_string(record.pos + 1));
}

// For a line that does not fit into an empty block of `capacity` bytes of text.
void VCFCache::growBlocks(uint32_t capacity) {
  const uint32_t size = blockSize_ != 0 ? blockSize_ : VCFBlock::kDefaultSize;
  if (size >= maxRecordSize())
    throw std::runtime_error("Cannot handle vcf lines longer than " + std::to_string(capacity) + " in file " +
                             path_);
  blockSize_ = static_cast<uint32_t>(std::min<uint64_t>(2 * uint64_t{size}, maxRecordSize()));
}

void VCFCache::load(int32_t from, int32_t to) {
  if (current_ == nullptr) return;
  Load load{from, to, false};
  chunks_.clear();
  if (!records_.empty() && (from <= records_.back().pos || from == loadedEnd_)) {
    load.sequential = true;
    load.from = std::max(from, records_.back().pos);
    load.here = tell();
    chunks_.push_back({load.here, current_->last});
  } else {
    empty();
    if (!current_->query(from, to, chunks_) || chunks_.empty()) return;
    load.here = seek(chunks_.front().begin);
  }
  struct Release {
    void operator()(VCFBlock* block) const { releaseVCFBlock(block); }
  };
  for (bool more = true; more && load.from < to;) {
    std::unique_ptr<VCFBlock, Release> block(newVCFBlock(blockSize_));
    more = fill(*block, load);
    if (block->used > 0) blocks_.pushBack(block.release());
  }
}

// To the chunk that the stream stands in, or else the next one; never back, whatever the index says.
bool VCFCache::toChunk(Load& load) {
  while (load.here >= chunks_[load.chunk].end) {
    if (++load.chunk == chunks_.size()) return false;
    if (chunks_[load.chunk].begin > load.here) load.here = seek(chunks_[load.chunk].begin);
  }
  return true;
}

// Reads lines into the empty block until no other fits. False when there is no more to read.
bool VCFCache::fill(VCFBlock& block, Load& load) {
  while (block.used < block.capacity) {
    if (!toChunk(load)) return false;
    char* text = block.text() + block.used;
    const int64_t size = readLine(text, block.capacity - block.used);
    if (size == 0) {
      // An index made from the whole file does not point behind its end.
      if (tell() < chunks_[load.chunk].end) throw std::runtime_error("Truncated vcf file " + path_);
      return false;
    }
    if (size == kNoRoom) {
      if (block.used == 0) growBlocks(block.capacity);
      seek(load.here);
      return true;
    }
    const int64_t begin = load.here;
    load.here = tell();
    if (text[0] == '#') continue;

    VCFLine record;
    parseLine(text, size, record);
    if (current_->name != record.line) failLine("Corrupted index for ", text, size - 1);
    const bool behind = record.end <= load.from;
    if (load.sequential && (behind || record.pos < load.from)) failLine("Unsorted vcf file ", text, size - 1);
    if (behind) continue;  // of the same bin, but before the region
    if (record.pos >= load.to && block.used == 0) {
      seek(begin);
      return false;
    }
    if (block.used == 0) block.minPos = static_cast<uint32_t>(record.pos);
    block.maxEnd = static_cast<uint32_t>(std::max(static_cast<int32_t>(block.maxEnd), record.end));
    block.used += static_cast<uint32_t>(size);
    push(record);
    load.from = record.pos;
    if (!load.sequential) {
      load.sequential = true;
      load.chunk = 0;
      chunks_.assign(1, {begin, current_->last});
    }
  }
  return true;
}
