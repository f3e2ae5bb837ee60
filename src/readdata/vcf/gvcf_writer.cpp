#include "readdata/vcf/gvcf_writer.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "readdata/vcf/vcf_line.h"

namespace {

const std::string kSample = "samples";
const std::vector<std::string> kSamples = {kSample};
constexpr uint32_t kContigEnd = std::numeric_limits<int32_t>::max();  // behind all positions

// What is looked at of a record in a shard's file.
struct BodyLine {
  std::string_view contig;
  int64_t pos;  // zero-based
  int64_t end;  // of INFO, exclusive; -1 without one
};

// Cuts `text` at tabs, in place; false for fewer than four columns.
bool parseBodyLine(char* text, BodyLine& line) {
  char* columns[8];
  size_t count = 0;
  for (char* from = text; from != nullptr && count < std::size(columns);) {
    columns[count++] = from;
    from = strpbrk(from, "\t\n");
    if (from != nullptr) *from++ = '\0';
  }
  if (count < 4) return false;
  const char* const end = count < 8 ? nullptr : findInfoEnd(columns[7]);
  line = {columns[0], std::max(strtoll(columns[1], nullptr, 10), 0LL) - 1,
          end == nullptr ? -1 : strtoll(end, nullptr, 10)};
  return true;
}

}  // namespace

std::unique_ptr<VCFWriter> GVCFWriter::clone() {
  return std::unique_ptr<VCFWriter>(new GVCFWriter(*this));
}

void GVCFWriter::writeBlock(GQBlock& block, int mode) {
  if (mode != 0) {
    const std::string line = formatFGQB(block, current_->name);
    if (stream_->write(line.data(), line.size()) < 0) failWrite();
    if (mode < 0) current_->start(tell());
  } else if (!block.empty()) {
    record_.assign(block, kSample, current_->name);
    write(record_, kSamples);
  }
  block.reset(block.end);
}

// ---- merging of shards ----

void GVCFWriter::beginContig(const std::string& contig) {
  startContig(contig);
  pending_.reset(0);
  pendingIsFirst_ = indexOptions_.partial;
}

// The contig's last block stays open at the end of a partial file: its contig may go on in the next one. So does one
// that is the contig's only block, for it may have begun in the file before.
void GVCFWriter::endContigOf(const VCFWriter::Result* next) {
  if (current_) {
    requireWholeContig();
    if (indexOptions_.partial && next == nullptr)
      writeBlock(pending_, 1);
    else
      writeBlock(pending_, pendingIsFirst_ && !pending_.empty() ? -1 : 0);
  }
  finishContig();
  pending_.reset(0);
}

void GVCFWriter::merge(VCFWriter::Result* base, IOHandle* handle) {
  if (base == nullptr) return endContigOf(nullptr);
  auto* result = dynamic_cast<Result*>(base);
  assert(result != nullptr);
  if (result->ci == nullptr) return;
  GenomeIndex::ContigIndex& ci = *result->ci;
  if (!current_ || current_->name != ci.name) {
    endContigOf(result);
    beginContig(ci.name);
  }

  if (!placeBehindPending(*result, *handle)) return;
  GQBlock &head = result->head, &tail = result->tail;
  pending_.end = std::max(pending_.start, pending_.end);
  if (pending_.start > head.end) throw std::logic_error("gqblk.start <= tgqblk0.end");

  mergeGQBlock(pending_, head);
  mergeGQBlock(head, tail);
  writePending();
  std::swap(pending_, head);
  writePending();
  if (ci.count > 0) {
    if (std::exchange(pendingIsFirst_, false)) writeBlock(pending_, -1);
    appendBody(ci, *handle);
  }
  std::swap(pending_, tail);
}

void GVCFWriter::writePending() {
  if (pending_.empty()) return;
  writeBlock(pending_, std::exchange(pendingIsFirst_, false) ? -1 : 0);
}

// Takes out of the shard what the output has already. False when nothing is left, and all stays as it is.
bool GVCFWriter::placeBehindPending(Result& result, IOHandle& handle) {
  GQBlock &head = result.head, &tail = result.tail;
  const uint32_t complete = pending_.start;
  // Inside the reach of the last record only the blocks are complete: there may be further records.
  const bool insideRecord = pending_.end < complete;

  if (tail.start <= complete) {
    if (!insideRecord) result.ci->count = 0;
    if (result.ci->count > 0) dropCovered(*result.ci, handle);
    if (result.ci->count == 0 && tail.end <= complete) return false;
    if (tail.end <= complete) {
      const uint32_t lastRecord = std::min(tail.end, tail.start - 1);
      tail.reset(complete);
      tail.end = lastRecord;
    } else if (result.ci->count > 0) {
      tail.cutStart(complete);
    }
    head.reset(pending_.start);
  } else if (head.end <= complete) {
    if (result.ci->count > 0) dropCovered(*result.ci, handle);
    head.reset(std::max(pending_.start, pending_.end));
  }
  return true;
}

// Passes over the records at the front of the shard that lie before `pending_`; its start moves down to a record that
// stays although it lies inside the last one.
void GVCFWriter::dropCovered(GenomeIndex::ContigIndex& ci, IOHandle& handle) {
  const auto check = [&](int64_t done) {
    if (done < 0) fail("failed to read from temp file, " + handle.error_text());
    return done;
  };
  const int64_t complete = pending_.start;
  int64_t kept = check(handle.seek(ci.first, SEEK_SET));
  int32_t dropped = 0;
  char text[1024], rest[1023];
  for (; kept < ci.last; kept = check(handle.seek(0, SEEK_CUR))) {
    int64_t got = check(handle.read_until(text, sizeof text - 1, '\n'));
    if (got == 0) break;
    text[got] = '\0';
    for (bool whole = text[got - 1] == '\n'; !whole && got > 0; whole = got > 0 && rest[got - 1] == '\n')
      got = check(handle.read_until(rest, sizeof rest, '\n'));

    BodyLine line;
    if (!parseBodyLine(text, line)) continue;
    if (line.contig != ci.name) break;
    if (line.pos >= complete) {
      if (line.pos < pending_.end) pending_.cutEnd(static_cast<uint32_t>(line.pos));
      break;
    }
    if (line.pos > pending_.end && (line.end < 0 || line.end > complete)) {
      pending_.start = static_cast<uint32_t>(line.pos);
      break;
    }
    ++dropped;
  }
  if (dropped > 0) ci.dropFront(dropped, kept);
}

// ---- merging of partial files ----
//
// Each contig of a partial file is a line with its first block, its records, and, for the last contig, a line with its
// last block. A contig with a single block has only one line.

void GVCFWriter::merge(const std::string& partialPath) {
  const std::unique_ptr<GenomeIndex> partial = loadPartialIndex(partialPath, true);
  const std::unique_ptr<IOHandle> handle = openPartial(partialPath);
  VCFHeader header;
  header.parse(*handle);
  lengths_.clear();
  for (const auto& [assembly, contigs] : header.contigs())
    for (const VCFHeader::Contig& contig : contigs)
      if (contig.length >= 0) lengths_[contig.name] = contig.length;
  if (handle->seek(0, SEEK_SET) < 0)
    fail("failed to read from file " + partialPath + ", " + handle->error_text());
  takeHeader(*handle, partialPath, "#FGQB\t");
  try {
    while (mergeNextContig(*partial, *handle, partialPath)) continue;
  } catch (const std::logic_error& broken) {
    fail(std::string(broken.what()) + " in file " + partialPath);
  } catch (const std::bad_alloc&) {
    fail("not enough memory for a block of file " + partialPath);
  }
}

void GVCFWriter::readBlock(GQBlock& block, std::string& contig, IOHandle& handle,
                           const std::string& partialPath) {
  if (!readFGQB(block, handle, contig, &lengths_)) fail("invalid FGQB line format in file " + partialPath);
}

// That a part begins behind the beginning of the one before it, and leaves nothing out. What both have is dropped.
void GVCFWriter::requireNextPart(const std::string& contig, const GQBlock& first,
                                 const std::string& partialPath) {
  const bool goesOn = current_ && current_->name == contig;
  if (goesOn && !first.empty() && first.start <= partStart_) failOrder(contig, partialPath);
  if (current_ && !goesOn) requireWholeContig();
  const uint32_t done = goesOn ? complete() : 0;
  if (expectsAll_ && first.start > done)
    fail("the positions " + contig + ":" + std::to_string(done + 1) + "-" + std::to_string(first.start) +
         " in front of file " + partialPath + " are missing");
  if (!goesOn || !first.empty()) partStart_ = first.start;
  lastPartial_ = partialPath;
}

void GVCFWriter::requireWholeContig() const {
  const auto length = lengths_.find(current_->name);
  if (expectsAll_ && length != lengths_.end() && complete() < length->second)
    fail("the positions " + current_->name + ":" + std::to_string(complete() + 1) + "-" +
         std::to_string(length->second) + " behind file " + lastPartial_ + " are missing");
}

// Merges the contig that begins where `handle` stands, and leaves it behind that. False at the end of the file.
bool GVCFWriter::mergeNextContig(GenomeIndex& partial, IOHandle& handle, const std::string& partialPath) {
  const auto tellOrSeek = [&](int64_t offset, int whence) {
    const int64_t reached = handle.seek(offset, whence);
    if (reached < 0) fail("failed to read from file " + partialPath + ", " + handle.error_text());
    return reached;
  };
  Result result;
  std::string contig, next;
  readBlock(result.head, contig, handle, partialPath);
  int64_t position = tellOrSeek(0, SEEK_CUR);
  if (contig.empty()) {
    for (const auto& [name, left] : partial.indices)
      if (left != nullptr && left->count > 0) throw std::logic_error("r.ci->count == 0");
    return false;
  }
  requireNewOrCurrent(contig, partialPath);
  requireNextPart(contig, result.head, partialPath);

  if (const auto* indexed = partial.find(contig); indexed != nullptr && indexed->count > 0) {
    result.ci = std::move(partial.indices.find(contig)->second);
    if (result.ci->first < position || result.ci->last < result.ci->first) throw std::logic_error("0");
    position = tellOrSeek(result.ci->last, SEEK_SET);
    readBlock(result.tail, next, handle, partialPath);
    if (next == contig)
      position = tellOrSeek(0, SEEK_CUR);
    else
      result.tail.reset(kContigEnd);
  } else {
    result.ci = index_->newContigIndex(contig);
    readBlock(result.tail, next, handle, partialPath);
    if (next == contig) {
      position = tellOrSeek(0, SEEK_CUR);
    } else {
      std::swap(result.head, result.tail);
      result.head.reset(std::min(result.tail.start, result.tail.end));
    }
  }
  merge(&result, &handle);
  tellOrSeek(position, SEEK_SET);
  return true;
}
