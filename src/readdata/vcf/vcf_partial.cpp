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

void VCFWriter::requireNewOrCurrent(const std::string& contig, const std::string& partialPath) const {
  if ((!current_ || current_->name != contig) && index_->find(contig))
    fail("contig " + contig + " of file " + partialPath + " is not in genome order");
}

// Reads the first record of `ci`, and moves `handle`. Pieces of one contig have other first positions, in genome order.
void VCFWriter::requireBehindLastPart(const GenomeIndex::ContigIndex& ci, IOHandle& handle,
                                      const std::string& partialPath) {
  char text[1024];
  int64_t got = handle.seek(ci.first, SEEK_SET) < 0 ? -1 : handle.read_until(text, sizeof text - 1, '\n');
  if (got < 0) fail("failed to read from file " + partialPath + ", " + handle.error_text());
  text[got] = '\0';
  const char* pos = strchr(text, '\t');
  const int64_t start = pos ? strtoll(pos, nullptr, 10) : 0;
  if (current_ && current_->name == ci.name && start <= lastPartStart_)
    fail("contig " + ci.name + " of file " + partialPath + " is not in genome order");
  lastPartStart_ = start;
}

void VCFWriter::merge(const std::string& partialPath) {
  const std::unique_ptr<GenomeIndex> loaded = loadPartialIndex(partialPath);
  if (!loaded) return;
  const std::unique_ptr<IOHandle> handle = openPartial(partialPath);
  takeHeader(*handle, partialPath);
  const int64_t body = handle->seek(0, SEEK_CUR);
  for (const GenomeIndex::Contig& contig : loaded->contigs) {
    auto found = loaded->indices.find(contig.name);
    if (found == loaded->indices.end() || !found->second || found->second->count == 0) continue;
    requireNewOrCurrent(contig.name, partialPath);
    Result result;
    result.ci = std::move(found->second);
    if (result.ci->first < body) fail("index of file " + partialPath + " is corrupted");
    requireBehindLastPart(*result.ci, *handle, partialPath);
    try {
      merge(&result, handle.get());
    } catch (const std::logic_error& broken) {
      fail(std::string(broken.what()) + " in file " + partialPath);
    }
  }
}
