#include "readdata/bam/bam_index_check.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "base/text.h"
#include "readdata/bam/bam_impl.h"
#include "readdata/bam/bam_index.h"
#include "readdata/stream/genome_bins.h"

namespace {

std::string offsetText(uint64_t offset) {
  return format("%llu/%u", static_cast<unsigned long long>(offset >> 16),
                static_cast<unsigned>(offset & 0xffff));
}

class CoverCheck {
 public:
  CoverCheck(BAMImpl& probe, const BamIndex& index, uint64_t records_begin)
      : probe_(probe), index_(index), end_(records_begin) {}

  void run() {
    for (size_t i = 0; i < index_.contigs.size(); ++i) checkContig(i);
    checkEnd();
  }

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    throw std::invalid_argument("Index " + index_.path + " does not cover BAM file " + probe_.path + ": " +
                                reason + ", build it anew");
  }
  // What all spellings of one place have in common: the offset behind the byte there, or, at the end of the
  // file, all ones.
  uint64_t behindNextByte(uint64_t offset);
  bool samePlace(uint64_t a, uint64_t b) { return a == b || behindNextByte(a) == behindNextByte(b); }
  void checkContig(size_t number);
  void checkSpan(const BamIndex::ContigIndex& contig, const std::string& name, uint64_t first, uint64_t last);
  void checkWindows(const BamIndex::ContigIndex& contig, const std::string& name) const;
  void checkEnd();

  BAMImpl& probe_;
  const BamIndex& index_;
  uint64_t end_;  // of what the chunks so far cover
  std::vector<Chunk> chunks_;
};

uint64_t CoverCheck::behindNextByte(uint64_t offset) {
  char byte;
  int64_t got = probe_.io->seek(static_cast<int64_t>(offset), SEEK_SET) < 0 ? -1 : probe_.io->read(&byte, 1);
  if (got < 0) fail("there is nothing to be read at offset " + offsetText(offset));
  return got == 0 ? ~uint64_t(0) : probe_.tell();
}

void CoverCheck::checkContig(size_t number) {
  const BamIndex::ContigIndex& contig = index_.contigs[number];
  const std::string& name = probe_.header->names[number];
  chunks_.clear();
  for (const auto& [bin, chunks] : contig.bins) chunks_.insert(chunks_.end(), chunks.begin(), chunks.end());
  std::sort(chunks_.begin(), chunks_.end(), [](const Chunk& a, const Chunk& b) { return a.begin < b.begin; });
  uint64_t last = 0;
  for (const Chunk& chunk : chunks_) {
    if (chunk.begin >= chunk.end) fail("an empty chunk in contig " + name);
    if (chunk.begin > end_ && !samePlace(end_, chunk.begin))
      fail("no chunk holds what lies before offset " + offsetText(chunk.begin) + ", contig " + name);
    end_ = std::max(end_, chunk.end);
    last = std::max(last, chunk.end);
  }
  if (last > 0) checkWindows(contig, name);
  if (contig.has_counts) checkSpan(contig, name, chunks_.empty() ? 0 : chunks_.front().begin, last);
}

// The windows' offsets never fall, and the reads of the narrowest bins begin at or behind that of their window.
void CoverCheck::checkWindows(const BamIndex::ContigIndex& contig, const std::string& name) const {
  uint64_t last = 0;
  for (size_t window = 0; window < contig.linear.size(); ++window) {
    uint64_t offset = contig.linear[window];
    if (offset == 0) continue;  // as some writers tell a window without reads
    auto bin = contig.bins.find(kBinLevels[0].first_bin + static_cast<uint32_t>(window));
    bool leaves_out = bin != contig.bins.end() && !bin->second.empty() && offset > bin->second.front().begin;
    if (offset < last || offset >= end_ || leaves_out)
      fail(format("window %zu of contig %s leaves out reads", window, name.c_str()));
    last = offset;
  }
}

void CoverCheck::checkSpan(const BamIndex::ContigIndex& contig, const std::string& name, uint64_t first,
                           uint64_t last) {
  if (chunks_.empty()) {
    // Some writers give a contig without reads the place where it would stand.
    if (contig.mapped > 0 || contig.unmapped > 0 || contig.last_offset > end_)
      fail("it counts reads but has no chunk in contig " + name);
    return;
  }
  if (!samePlace(contig.first_offset, first) || !samePlace(contig.last_offset, last))
    fail("the chunks do not reach from the first read to the last one of contig " + name);
}

void CoverCheck::checkEnd() {
  bam_record record;
  if (probe_.io->seek(static_cast<int64_t>(end_), SEEK_SET) < 0)
    fail("the last chunk ends at offset " + offsetText(end_) + ", where the file has no data");
  int64_t got;
  try {
    got = probe_.readRecord(record);
  } catch (const std::runtime_error&) {
    fail("no read begins at offset " + offsetText(end_) + ", where the last chunk ends");
  }
  if (got > 0 && record.ref_id >= 0) fail(probe_.placeText(record) + " lies behind the last chunk");
  if (got == 0 && probe_.tell() < end_) fail("the file ends before the last chunk does");
}

}  // namespace

void checkIndexCovers(BAMImpl& probe, const BamIndex& index, uint64_t records_begin) {
  CoverCheck(probe, index, records_begin).run();
}
