#include "readdata/vcf/vcf_writer.h"

#include <cassert>
#include <stdexcept>
#include <unistd.h>
#include <utility>

#include "readdata/stream/open_stream.h"

VCFWriter::VCFWriter(std::string name, IndexOptions options)
    : name_(std::move(name)), indexOptions_(std::move(options)) {}

VCFWriter::VCFWriter(VCFWriter& parent)
    : name_(parent.name_),
      parent_(parent.stream_.get()),
      index_(parent.index_),
      indexOptions_(parent.indexOptions_),
      isClone_(true) {}

VCFWriter::~VCFWriter() = default;

void VCFWriter::fail(const std::string& what) const {
  throw std::runtime_error(name_ + ": " + what);
}

void VCFWriter::failWrite() {
  fail("failed to write to file " + path_ + ", " + stream_->error_text());
}

int64_t VCFWriter::tell() {
  const int64_t offset = stream_->seek(0, SEEK_CUR);
  if (offset < 0) failWrite();
  return offset;
}

// ---- opening and closing ----

std::unique_ptr<VCFWriter> VCFWriter::clone() {
  return std::unique_ptr<VCFWriter>(new VCFWriter(*this));
}

void VCFWriter::open(const std::string& path) {
  assert(!stream_);
  if (path.ends_with(".bcf")) fail("output is VCF text, whose file name cannot be " + path);
  stream_ = isClone_ ? parent_->open(path.c_str(), "w") : openStream(path, "w");
  if (!stream_) fail("failed to open output file " + path);
  path_ = path;
  if (isClone_) return;
  index_ = newGenomeIndex(path, indexOptions_);
  // An index of the file's old content says which kind is wanted, and must not outlive that content.
  for (const char* ending : {".idx", ".tbi"}) unlink((path + ending).c_str());
}

void VCFWriter::close() {
  if (stream_) {
    if (!isClone_) {
      merge(nullptr, nullptr);
      if (!emptyPartial_.empty() && tell() == 0) takeHeader(*openPartial(emptyPartial_), emptyPartial_);
    }
    const std::unique_ptr<IOHandle> closing = std::move(stream_);
    if (closing->close() < 0) fail("failed to close output file " + path_ + ", " + closing->error_text());
  }
  if (isClone_ || !index_) return;
  const bool saved = index_->save(path_);
  index_.reset();
  if (!saved) fail("failed to save index for file " + path_);
}

// ---- records of a shard ----

void VCFWriter::writeHeader(VCFHeader& header) {
  header.print(*stream_);
  if (stream_->error_code() != 0)
    fail("failed to write vcf header to file " + path_ + ", " + stream_->error_text());
}

void VCFWriter::writeHeaderText(std::string_view text) {
  if (stream_->write(text.data(), text.size()) < 0)
    fail("failed to write vcf header to file " + path_ + ", " + stream_->error_text());
}

void VCFWriter::startContig(const std::string& contig) {
  current_ = index_->newContigIndex(contig);
  current_->start(tell());
}

void VCFWriter::write(const VariantContext& record, const std::vector<std::string>& sampleNames) {
  text_.clear();
  record.print(text_, sampleNames);
  writeLine(text_, static_cast<int32_t>(record.start), static_cast<int32_t>(record.end));
}

void VCFWriter::writeLine(const std::string& line, int32_t start, int32_t end) {
  if (stream_->write(line.data(), line.size()) < 0) failWrite();
  current_->add(start, end, tell());
}

void VCFWriter::endContig(Result& result) {
  current_->finish();
  result.ci = std::move(current_);
}

// ---- merging of shards ----

void VCFWriter::finishContig() {
  if (current_ && (current_->count > 0 || indexOptions_.partial)) {
    current_->finish();
    index_->addContigIndex(std::move(current_));
  }
  current_.reset();
}

void VCFWriter::appendBody(const GenomeIndex::ContigIndex& ci, IOHandle& handle) {
  OffsetMap offsetMap;
  const int copied = stream_->copy(handle, ci.first, ci.last, &offsetMap);
  if (copied == -1) fail("Incompatible temp file format");
  if (copied == -2) fail("failed to read from temp file, " + handle.error_text());
  if (copied < 0) fail("failed to read write to file " + path_ + ", " + stream_->error_text());
  current_->add(ci, offsetMap);
}

void VCFWriter::merge(Result* result, IOHandle* handle) {
  const GenomeIndex::ContigIndex* ci = result ? result->ci.get() : nullptr;
  if (!ci || !current_ || current_->name != ci->name) {
    finishContig();
    if (!ci) return;
    startContig(ci->name);
  }
  if (ci->count > 0) appendBody(*ci, *handle);
}

std::unique_ptr<IOHandle> VCFWriter::openTemp(const std::string& tempPath) {
  std::string reason;
  std::unique_ptr<IOHandle> handle = stream_->open(tempPath.c_str(), "r", &reason);
  if (!handle) fail("failed to open temp file " + tempPath + ", " + reason);
  return handle;
}

void VCFWriter::merge(Result* result, const std::string& tempPath) {
  merge(result, openTemp(tempPath).get());
}
