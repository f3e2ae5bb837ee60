#include "readdata/stream/bgzf_handle.h"

#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "readdata/stream/bgzf_file.h"
#include "readdata/stream/pread_stream.h"

namespace {

constexpr size_t kStreamBuffer = 16384;  // for reading; what is larger goes past it

bool verifyByDefault() {
  static const bool verify = getenv("bgzf_verify_crc") != nullptr;
  return verify;
}

// The level that the mode names; `inherited` when it names none.
int levelOf(const char* mode, int inherited) {
  if (strchr(mode, 'u') != nullptr) return 0;
  const char* digits = strpbrk(mode, "0123456789");
  if (digits == nullptr) return inherited;
  long level = strtol(digits, nullptr, 10);
  return level > 9 ? -1 : static_cast<int>(level);
}

// A stream on the path, or on a descriptor of its own for "-", so that closing it tells of failures and
// leaves the standard stream alone.
FILE* openStream(const char* path, bool writing) {
  if (strcmp(path, "-") != 0) return fopen(path, writing ? "wbe" : "rbe");
  int descriptor = fcntl(writing ? STDOUT_FILENO : STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  if (descriptor < 0) return nullptr;
  FILE* stream = fdopen(descriptor, writing ? "wb" : "rb");
  if (stream == nullptr) ::close(descriptor);
  return stream;
}

ssize_t readAt(int descriptor, void* buffer, size_t count, off_t offset) {
  size_t done = 0;
  while (done < count) {
    ssize_t got = pread(descriptor, static_cast<char*>(buffer) + done, count - done, offset + done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += got;
  }
  return done;
}

}  // namespace

const uint8_t BGZFHandle::kEofBlock[kEofSize] = {0x1f, 0x8b, 8,    4, 0, 0, 0, 0, 0, 0xff, 6, 0, 'B', 'C',
                                                 2,    0,    0x1b, 0, 3, 0, 0, 0, 0, 0,    0, 0, 0,   0};

BGZFHandle::BGZFHandle() : verify_crc_(verifyByDefault()) {
  assert(compressBound(0xff00) < 0x10000);
}

BGZFHandle::~BGZFHandle() {
  if (writeMode() && std::uncaught_exceptions() > exceptions_) fail(kUsage);
  close();
}

bool BGZFHandle::is_bgzf(const char* path) {
  FILE* stream = fopen(path, "rbe");
  if (stream == nullptr) return false;
  uint8_t header[kHeaderSize];
  bool whole = fread(header, 1, sizeof header, stream) == sizeof header;
  fclose(stream);
  return whole && memcmp(header, bgzf::kHeader, sizeof bgzf::kHeader) == 0;
}

int BGZFHandle::fail(int kind, int number) {
  error_kind_ |= kind;
  if (kind == kIo) error_ = number;
  return -1;
}

bool BGZFHandle::openFile(const char* path, const char* mode) {
  bool reading = strpbrk(mode, "rR") != nullptr;
  bool writing = !reading && strpbrk(mode, "wW") != nullptr;
  if (open_ || (!reading && !writing)) {
    fail(kUsage);
    return false;
  }
  auto file = std::make_shared<File>();
  file->stream = openStream(path, writing);
  if (file->stream == nullptr) {
    fail(kIo, errno);
    return false;
  }
  file->descriptor = fileno(file->stream);
  level_ = levelOf(mode, level_);
  fast_ = level_ == 1;
  if (writing) {
    block_ = std::make_unique_for_overwrite<uint8_t[]>(bgzf::kMaxSize);
    compressed_ = std::make_unique_for_overwrite<uint8_t[]>(bgzf::kMaxSize);
    other_block_ = std::make_unique_for_overwrite<uint8_t[]>(bgzf::kMaxSize);
    setvbuf(file->stream, reinterpret_cast<char*>(other_block_.get()), _IOFBF, bgzf::kMaxSize);
    compressor_ = std::make_unique<BlockCompressor>(level_, fast_);
    flags_ = kWrite;
  } else {
    file->buffer = std::make_unique_for_overwrite<char[]>(kStreamBuffer);
    setvbuf(file->stream, file->buffer.get(), _IOFBF, kStreamBuffer);
    flags_ = 0;
    struct stat status;
    if (fstat(file->descriptor, &status) == 0 && S_ISREG(status.st_mode)) file_size_ = status.st_size;
    off_t start = lseek(file->descriptor, 0, SEEK_CUR);  // standard input may have been read before
    file_position_ = block_address_ = next_address_ = start > 0 ? start : 0;
  }
  file_ = std::move(file);
  exceptions_ = std::uncaught_exceptions();
  open_ = true;
  return true;
}

std::unique_ptr<IOHandle> BGZFHandle::open(const char* path, const char* mode, std::string* error) const {
  auto handle = std::make_unique<BGZFHandle>();
  handle->level_ = level_;
  handle->verify_crc_ = verify_crc_;
  if (handle->openFile(path, mode)) return handle;
  if (error != nullptr) *error = handle->error_text();
  return nullptr;
}

std::unique_ptr<IOHandle> BGZFHandle::clone() {
  if (!readMode()) {
    fail(kUsage);
    return nullptr;
  }
  auto file = std::make_shared<File>();
  file->stream = open_pread_stream(file_->descriptor, kStreamBuffer);
  if (file->stream == nullptr) {
    fail(kIo, errno);
    return nullptr;
  }
  file->descriptor = file_->descriptor;
  file->base = file_->base != nullptr ? file_->base : file_;
  auto handle = std::make_unique<BGZFHandle>();
  handle->file_ = std::move(file);
  handle->flags_ = kClone;
  handle->level_ = level_;
  handle->verify_crc_ = verify_crc_;
  handle->file_size_ = file_size_;
  handle->open_ = true;
  if (handle->seek(tell(), SEEK_SET) < 0) return nullptr;
  return handle;
}

int64_t BGZFHandle::tell() const {
  // A used-up block has no offset of its own: 65536 would not fit.
  if (readMode() && block_length_ > 0 && block_offset_ == block_length_)
    return static_cast<int64_t>(next_address_ << 16);
  uint64_t place = parallel_ != nullptr ? block_index_ : block_address_;
  return static_cast<int64_t>(place << 16 | block_offset_);
}

int BGZFHandle::has_eof() {
  struct stat status;
  if (!readMode() || fstat(file_->descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return -1;
  if (status.st_size < kEofSize) return 0;
  uint8_t tail[kEofSize];
  if (readAt(file_->descriptor, tail, kEofSize, status.st_size - kEofSize) != kEofSize) return -1;
  return memcmp(tail, kEofBlock, kEofSize) == 0;
}

int BGZFHandle::close() {
  if (!open_) return 0;
  bool writing = writeMode();
  if (writing) {
    if (error_kind_ == 0) flush();
    set_parallel(nullptr);
    // A file that lacks bytes gets no end marker, so that nobody takes it for whole.
    if (error_kind_ == 0) writeRaw(kEofBlock, kEofSize);
    FILE* stream = file_->stream;
    file_->stream = nullptr;
    if (fflush(stream) != 0) fail(kIo, errno);
    if (fclose(stream) != 0) fail(kIo, errno);
  }
  open_ = false;
  flags_ = 0;
  file_.reset();
  compressor_.reset();
  block_length_ = block_offset_ = other_length_ = 0;
  return writing && error_kind_ != 0 ? -1 : 0;
}

int BGZFHandle::error_code() const {
  return error_kind_;
}

std::string BGZFHandle::error_text() const {
  if ((error_kind_ & kIo) != 0) return error_ == 0 ? "truncated file" : strerror(error_);
  if ((error_kind_ & kHeader) != 0) return "corrupted or invalid header";
  if ((error_kind_ & kZlib) != 0) return "zlib error";
  if ((error_kind_ & kUsage) != 0) return "usage error";
  if ((error_kind_ & kCrc) != 0) return "block checksum mismatch";
  return "";
}

void BGZFHandle::set_index_callback(IndexCallback callback, void* context) {
  index_callback_ = callback;
  index_context_ = context;
}

void BGZFHandle::set_verify_crc(bool verify) {
  verify_crc_ = verify;
}

uint64_t BGZFHandle::block_address() const {
  if (readMode() && block_length_ > 0 && block_offset_ == block_length_) return next_address_;
  return block_address_;
}
