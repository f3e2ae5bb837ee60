#include "readdata/bam/parallel_bam_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/text.h"
#include "readdata/bam/bam_impl.h"
#include "readdata/bam/bam_writer.h"

namespace {

constexpr size_t kCopyPiece = 16384;

bool isRegular(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

[[noreturn]] void failOpen(const std::string& path) {
  throw std::invalid_argument("cannot open file " + path + ", " + strerror(errno));
}

FILE* openToRead(const std::string& path) {
  FILE* file = fopen(path.c_str(), "rbe");
  if (!file) failOpen(path);
  setvbuf(file, nullptr, _IONBF, 0);  // whole buffers are read at a time
  return file;
}

void removeFile(const std::string& path) {
  if (unlink(path.c_str()) != 0)
    throw std::runtime_error("Failed to remove file " + path + ", " + strerror(errno));
}

// Removes the file at the end of a scope, however that is left.
class ScopedFile {
 public:
  explicit ScopedFile(std::string path) : path_(std::move(path)) { unlink(path_.c_str()); }
  ~ScopedFile() { unlink(path_.c_str()); }
  ScopedFile(const ScopedFile&) = delete;
  ScopedFile& operator=(const ScopedFile&) = delete;
  const std::string& path() const { return path_; }
  void remove() const { removeFile(path_); }

 private:
  const std::string path_;
};

uint64_t sizeOf(FILE* file, const std::string& path) {
  struct stat status;
  if (fstat(fileno(file), &status) != 0)
    throw std::runtime_error("cannot get stat for file " + path + ", " + strerror(errno));
  return uint64_t(status.st_size);
}

}  // namespace

ParallelBamWriter::ParallelBamWriter(std::string output, ReadWriterBase::Options options)
    : output_(std::move(output)), options_(std::move(options)), level_(bamCompression(options_)) {
  const bool to_stdout = output_ == "-";
  if (!to_stdout || options_.count("output_index_file")) index_path_ = indexPath(output_, options_);
}

ParallelBamWriter::~ParallelBamWriter() = default;

void ParallelBamWriter::failWrite(int number) const {
  throw std::runtime_error("Failed to write to file " + output_ + ", " +
                           strerror(number != 0 ? number : EIO));
}

void ParallelBamWriter::init(std::shared_ptr<const bam_header> header) {
  if (!index_path_.empty()) checkBaiContigs(*header);
  openOutput();
  if (!index_path_.empty()) prepareIndex();
  emptyOutput();
  copyHeader(*header);
  if (!index_path_.empty())
    index_helper_ = std::make_unique<BamIndexHelper>(index_, header->contigCount(), output_, position_ << 16);
  pipeline_ = std::make_unique<WritePipeline>(file_.get());
}

// Whether the output can be locked and cut: pipes and devices cannot.
bool ParallelBamWriter::isPlain() const {
  return output_ != "-" && isRegular(output_);
}

// Makes sure that an index can be written there at the end, and removes one that stands there now.
void ParallelBamWriter::prepareIndex() const {
  FILE* file = fopen(index_path_.c_str(), "abe");
  if (!file) failOpen(index_path_);
  fclose(file);  // nothing was written
  if (isRegular(index_path_)) removeFile(index_path_);
}

void ParallelBamWriter::openOutput() {
  const bool to_stdout = output_ == "-";
  const int descriptor = to_stdout ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)
                                   : ::open(output_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (descriptor < 0) failWrite(errno);
  file_.reset(fdopen(descriptor, "wb"));
  if (!file_) {
    const int number = errno;
    ::close(descriptor);
    failWrite(number);
  }
  setvbuf(file_.get(), nullptr, _IONBF, 0);  // what is written comes in large pieces
  // File systems without locks answer otherwise, and go without.
  if (isPlain() && flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    throw std::runtime_error("Failed to write to file " + output_ + ", another writer has it open");
}

void ParallelBamWriter::emptyOutput() {
  // An empty file is left alone: file systems that were asked to cut a file write all of it out at its close.
  if (isPlain() && sizeOf(file_.get(), output_) > 0 && ftruncate(fileno(file_.get()), 0) != 0)
    failWrite(errno);
}

// Writes the header to a file of its own, to learn its end and the end marker, and copies it from there.
void ParallelBamWriter::copyHeader(const bam_header& header) {
  const ScopedFile probe_file(format("%s_%d", output_.c_str(), -1));
  const std::string& probe = probe_file.path();
  BAMImpl bam(probe);
  bam.open(bamWriteMode(level_).c_str());
  bam.header = std::make_shared<bam_header>(header);
  bam.writeHeader();
  bam.close();

  FileOwner file(openToRead(probe));
  const uint64_t size = sizeOf(file.get(), probe);
  const uint64_t tail = uint64_t(bam.tailSize());
  if (tail != eof_block_.size() || size < tail) throw std::runtime_error("corrupt file " + probe);
  position_ = size - tail;
  if (fseeko(file.get(), off_t(position_), SEEK_SET) != 0 ||
      fread(eof_block_.data(), 1, eof_block_.size(), file.get()) != eof_block_.size() ||
      fseeko(file.get(), 0, SEEK_SET) != 0)
    throw std::runtime_error("corrupt file " + probe);

  std::array<uint8_t, kCopyPiece> piece;
  for (uint64_t left = position_; left > 0;) {
    const size_t count = size_t(std::min<uint64_t>(left, piece.size()));
    if (fread(piece.data(), 1, count, file.get()) != count) throw std::runtime_error("corrupt file " + probe);
    errno = 0;
    if (fwrite(piece.data(), 1, count, file_.get()) != count) failWrite(errno);
    left -= count;
  }
  file.reset();
  probe_file.remove();
}

void ParallelBamWriter::merge(Result* result) {
  if (!result) return;
  if (index_helper_ && result->part) {
    const auto* data = dynamic_cast<const BamIndexData*>(result->part.get());
    if (!data) throw std::runtime_error("corrupt file " + result->file);
    data->addTo(*index_helper_, position_);
  }
  appendShard(result->file);
}

// Moves all but the end marker.
void ParallelBamWriter::appendShard(const std::string& name) {
  FileOwner file(openToRead(name));
  const uint64_t size = sizeOf(file.get(), name);
  std::array<uint8_t, BGZFHandle::kEofSize> tail;
  if (size < tail.size()) throw std::runtime_error("corrupt file " + name);
  uint64_t left = size - tail.size();
  const ssize_t got = pread(fileno(file.get()), tail.data(), tail.size(), off_t(left));
  if (got != ssize_t(tail.size()) || tail != eof_block_) throw std::runtime_error("corrupt file " + name);

  position_ += left;
  while (left > 0) {
    WriteBuffer* buffer = pipeline_->take();
    if (!buffer) failWrite(pipeline_->error());
    const size_t count = size_t(std::min<uint64_t>(left, buffer->capacity));
    buffer->length = fread(buffer->data.get(), 1, count, file.get());
    if (buffer->length != count) throw std::runtime_error("corrupt file " + name);
    pipeline_->put(buffer);
    left -= count;
  }
  file.reset();
  removeFile(name);
}

void ParallelBamWriter::close() {
  if (!pipeline_) return;
  const bool written = pipeline_->close();
  const int number = pipeline_->error();
  pipeline_.reset();
  if (!written) failWrite(number);
  writeTail();
  if (index_helper_) writeIndex();
}

void ParallelBamWriter::writeTail() {
  errno = 0;
  bool written = fwrite(eof_block_.data(), 1, eof_block_.size(), file_.get()) == eof_block_.size();
  int number = errno;
  if (fclose(file_.release()) != 0) {
    if (written) number = errno;
    written = false;
  }
  if (written) return;
  dropTail();
  failWrite(number);
}

void ParallelBamWriter::writeIndex() {
  index_helper_->finish(position_ << 16);
  if (index_.save(index_path_)) return;
  const int number = errno;
  dropTail();
  throw std::runtime_error("Failed to write to file " + index_path_ + ", " + strerror(number));
}

// An output that did not end well is left without end marker.
void ParallelBamWriter::dropTail() const {
  if (isPlain() && truncate(output_.c_str(), off_t(position_)) != 0)
    fprintf(stderr, "Failed to cut file %s, %s\n", output_.c_str(), strerror(errno));
}
