// vcf_partial.cpp - VCFWriter: joining the files that the pieces of a sharded run have written.
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <typeinfo>

#include "readdata/stream/bgzf_handle.h"
#include "readdata/vcf/vcf_writer.h"

std::unique_ptr<GenomeIndex> VCFWriter::loadPartialIndex(const std::string& partialPath, bool evenEmpty) {
  std::unique_ptr<GenomeIndex> loaded = newGenomeIndex(partialPath, indexOptions_);
  if (!loaded->load(partialPath)) fail("failed to load index for file " + partialPath);
  if (loaded->count == 0 && !evenEmpty) {
    if (emptyPartial_.empty()) emptyPartial_ = partialPath;
    return nullptr;
  }
  if (index_->count == 0 && !current_) {
    index_ = loaded->clone();
    index_->setContigs(loaded->contigs);
  }
  const GenomeIndex &own = *index_, &other = *loaded;
  if (typeid(own) != typeid(other)) fail("Incompatible temp file format of " + partialPath);
  return loaded;
}

std::unique_ptr<IOHandle> VCFWriter::openPartial(const std::string& partialPath) {
  std::string reason;
  std::unique_ptr<IOHandle> handle = stream_->open(partialPath.c_str(), "r", &reason);
  if (!handle) fail("failed to open file " + partialPath + ", " + reason);
  // A plain stream would read any bytes.
  const bool compressed = dynamic_cast<const BGZFHandle*>(stream_.get()) != nullptr;
  if (compressed != BGZFHandle::is_bgzf(partialPath.c_str()))
    fail("Incompatible temp file format of " + partialPath +
         (compressed ? ": not compressed" : ": compressed"));
  return handle;
}

void VCFWriter::takeHeader(IOHandle& partial, const std::string& partialPath, const char* stop) {
  const bool wanted = tell() == 0;
  char piece[1023];
  bool lineBegins = true;
  int64_t lineStart = 0;
  for (;;) {
    if (lineBegins) lineStart = partial.seek(0, SEEK_CUR);
    const int64_t got = partial.read_until(piece, sizeof piece, '\n');
    if (got < 0) fail("failed to read from file " + partialPath + ", " + partial.error_text());
    if (got == 0) return;
    const std::string_view text(piece, static_cast<size_t>(got));
    if (lineBegins && (text[0] != '#' || (stop && text.starts_with(stop)))) break;
    if (wanted && stream_->write(text.data(), text.size()) < 0) failWrite();
    lineBegins = text.back() == '\n';
  }
  if (partial.seek(lineStart, SEEK_SET) < 0)
    fail("failed to read from file " + partialPath + ", " + partial.error_text());
}

void VCFWriter::failOrder(const std::string& contig, const std::string& partialPath) const {
  fail("contig " + contig + " of file " + partialPath + " is not in genome order");
}

void VCFWriter::expectOrder(const VCFHeader& header) {
  if (const auto found = header.defs.find("contig"); found != header.defs.end())
    for (const VCFHeaderDef& def : found->second) contigNumbers_.emplace(def.id, contigNumbers_.size());
}

void VCFWriter::requireNewOrCurrent(const std::string& contig, const std::string& partialPath) {
  if ((!current_ || current_->name != contig) && index_->find(contig)) failOrder(contig, partialPath);
  const auto number = contigNumbers_.find(contig);
  if (number == contigNumbers_.end()) return;
  if (number->second < lastContig_) failOrder(contig, partialPath);
  lastContig_ = number->second;
}

// The one-based position of the line where `handle` stands, which is left behind that line; 0 for none.
int64_t VCFWriter::readStart(IOHandle& handle, const std::string& partialPath) {
  char text[1024], rest[1024];
  const auto read = [&](char* to) {
    const int64_t got = handle.read_until(to, sizeof text - 1, '\n');
    if (got < 0) fail("failed to read from file " + partialPath + ", " + handle.error_text());
    to[got] = '\0';
    return got;
  };
  int64_t got = read(text);
  for (const char* piece = text; got > 0 && piece[got - 1] != '\n'; piece = rest) got = read(rest);
  const char* const pos = strchr(text, '\t');
  return pos ? strtoll(pos, nullptr, 10) : 0;
}

// All records of the last part must lie before the first of `ci`. Moves both files.
void VCFWriter::requireBehindLastPart(const GenomeIndex::ContigIndex& ci, IOHandle& handle,
                                      const std::string& partialPath) {
  if (!lastPart_.ci || lastPart_.ci->name != ci.name) return;
  const auto seek = [this](IOHandle& file, int64_t offset, const std::string& path) {
    const int64_t reached = file.seek(offset, offset == 0 ? SEEK_CUR : SEEK_SET);
    if (reached < 0) fail("failed to read from file " + path + ", " + file.error_text());
    return reached;
  };
  seek(handle, ci.first, partialPath);
  const int64_t start = readStart(handle, partialPath);
  std::vector<GenomeIndex::Chunk> chunks;
  if (start < 1 || start > INT32_MAX) failOrder(ci.name, partialPath);
  lastPart_.ci->query(int32_t(start - 1), INT32_MAX, chunks);
  for (const GenomeIndex::Chunk& chunk : chunks)
    for (int64_t at = seek(*lastPart_.handle, chunk.begin, lastPart_.path); at < chunk.end;
         at = seek(*lastPart_.handle, 0, lastPart_.path)) {
      const int64_t other = readStart(*lastPart_.handle, lastPart_.path);
      if (other == 0) return;
      if (other >= start) failOrder(ci.name, partialPath);
    }
}

void VCFWriter::merge(const std::string& partialPath) {
  const std::unique_ptr<GenomeIndex> loaded = loadPartialIndex(partialPath);
  if (!loaded) return;
  std::unique_ptr<IOHandle> handle = openPartial(partialPath);
  takeHeader(*handle, partialPath);
  const int64_t body = handle->seek(0, SEEK_CUR);
  Result result;
  for (const GenomeIndex::Contig& contig : loaded->contigs) {
    auto found = loaded->indices.find(contig.name);
    if (found == loaded->indices.end() || !found->second || found->second->count == 0) continue;
    requireNewOrCurrent(contig.name, partialPath);
    result.ci = std::move(found->second);
    if (result.ci->first < body) fail("index of file " + partialPath + " is corrupted");
    requireBehindLastPart(*result.ci, *handle, partialPath);
    try {
      merge(&result, handle.get());
    } catch (const std::logic_error& broken) {
      fail(std::string(broken.what()) + " in file " + partialPath);
    } catch (const std::runtime_error&) {
      if (handle->error_code() == 0) throw;
      fail("failed to read from file " + partialPath + ", " + handle->error_text());
    }
  }
  lastPart_ = {std::move(result.ci), std::move(handle), partialPath};
}
