#include "readdata/stream/posix_io_handle.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

struct POSIXIOHandle::Descriptor {
  explicit Descriptor(int number) : number(number) {}
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  int number;
};

POSIXIOHandle::~POSIXIOHandle() {
  close();
}

int POSIXIOHandle::fail(int number) {
  error_ = number;
  return -1;
}

bool POSIXIOHandle::openFile(const char* path, const char* mode) {
  if (descriptor_ != nullptr) {
    fail(EBADF);
    return false;
  }
  bool writing = mode[0] != 'r';
  int number;
  if (strcmp(path, "-") == 0)
    number = fcntl(writing ? STDOUT_FILENO : STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  else
    number = ::open(path, (writing ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY) | O_CLOEXEC, 0666);
  if (number < 0) {
    fail(errno);
    return false;
  }
  descriptor_ = std::make_shared<Descriptor>(number);
  if (writing) flags_ = kWrite;
  off_t start = lseek(number, 0, SEEK_CUR);
  position_ = std::max<off_t>(start, 0);
  struct stat status;
  if (start >= 0 && fstat(number, &status) == 0 && S_ISREG(status.st_mode)) size_ = status.st_size;
  buffer_ = std::make_unique<char[]>(kBufferSize);
  return true;
}

std::unique_ptr<IOHandle> POSIXIOHandle::open(const char* path, const char* mode, std::string* error) const {
  auto handle = std::make_unique<POSIXIOHandle>();
  if (handle->openFile(path, mode)) return handle;
  if (error != nullptr) *error = handle->error_text();
  return nullptr;
}

std::unique_ptr<IOHandle> POSIXIOHandle::clone() {
  if (!readMode() || size_ < 0) {
    fail(readMode() ? ESPIPE : EBADF);
    return nullptr;
  }
  auto handle = std::make_unique<POSIXIOHandle>();
  handle->descriptor_ = descriptor_;
  handle->flags_ = kClone;
  handle->position_ = tell();
  handle->size_ = size_;
  handle->buffer_ = std::make_unique<char[]>(kBufferSize);
  return handle;
}

ssize_t POSIXIOHandle::readFile(void* buffer, size_t count) {
  ssize_t got;
  do {
    got = (flags_ & kClone) != 0 ? pread(descriptor_->number, buffer, count, position_)
                                 : ::read(descriptor_->number, buffer, count);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return fail(errno);
  position_ += got;
  return got;
}

ssize_t POSIXIOHandle::fill() {
  bool rw_mode = (flags_ & kWrite) != 0;
  assert(!rw_mode);
  cursor_ = left_ = 0;
  ssize_t got = readFile(buffer_.get(), kBufferSize);
  if (got > 0) left_ = static_cast<size_t>(got);
  return got;
}

int64_t POSIXIOHandle::read(void* buffer, size_t count) {
  if (!readMode()) return fail(EBADF);
  auto* to = static_cast<char*>(buffer);
  size_t done = 0;
  while (done < count) {
    if (left_ == 0 && count - done >= kBufferSize) {  // nothing to gain from the buffer
      cursor_ = 0;
      ssize_t got = readFile(to + done, count - done);
      if (got < 0) return -1;
      if (got == 0) break;
      done += got;
      continue;
    }
    if (left_ == 0) {
      ssize_t got = fill();
      if (got < 0) return -1;
      if (got == 0) break;
    }
    size_t piece = std::min(count - done, left_);
    memcpy(to + done, buffer_.get() + cursor_, piece);
    cursor_ += piece;
    left_ -= piece;
    done += piece;
  }
  return static_cast<int64_t>(done);
}

int64_t POSIXIOHandle::read_until(void* buffer, size_t limit, char delimiter) {
  if (!readMode()) return fail(EBADF);
  auto* to = static_cast<char*>(buffer);
  size_t done = 0;
  while (done < limit) {
    if (left_ == 0) {
      ssize_t got = fill();
      if (got < 0) return -1;
      if (got == 0) break;
    }
    const char* from = buffer_.get() + cursor_;
    size_t piece = std::min(limit - done, left_);
    const void* found = memchr(from, delimiter, piece);
    if (found != nullptr) piece = static_cast<const char*>(found) - from + 1;
    memcpy(to + done, from, piece);
    cursor_ += piece;
    left_ -= piece;
    done += piece;
    if (found != nullptr) break;
  }
  return static_cast<int64_t>(done);
}

int POSIXIOHandle::writeFile(const void* buffer, size_t count) {
  auto* from = static_cast<const char*>(buffer);
  while (count > 0) {
    ssize_t put = ::write(descriptor_->number, from, count);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return fail(errno);
    from += put;
    count -= static_cast<size_t>(put);
    position_ += put;
  }
  return 0;
}

int64_t POSIXIOHandle::write(const void* buffer, size_t count) {
  if (!writeMode()) return fail(EBADF);
  if (error_ != 0) return -1;
  if (count > kBufferSize - cursor_ && flush() != 0) return -1;
  if (count >= kBufferSize) return writeFile(buffer, count) == 0 ? static_cast<int64_t>(count) : -1;
  if (count > 0) memcpy(buffer_.get() + cursor_, buffer, count);
  cursor_ += count;
  return static_cast<int64_t>(count);
}

int POSIXIOHandle::flush() {
  if (!writeMode()) return fail(EBADF);
  if (error_ != 0) return -1;
  size_t count = cursor_;
  cursor_ = 0;
  return writeFile(buffer_.get(), count);
}

int64_t POSIXIOHandle::tell() const {
  return (flags_ & kWrite) != 0 ? position_ + static_cast<int64_t>(cursor_)
                                : position_ - static_cast<int64_t>(left_);
}

int64_t POSIXIOHandle::seek(int64_t offset, int whence) {
  if (descriptor_ == nullptr) return fail(EBADF);
  if (whence == SEEK_CUR && offset == 0) return tell();
  if (writeMode() && flush() != 0) return -1;
  int64_t base = 0;
  if (whence == SEEK_CUR) {
    base = tell();
  } else if (whence == SEEK_END) {
    struct stat status;
    if (fstat(descriptor_->number, &status) != 0) return fail(errno);
    if (!S_ISREG(status.st_mode)) return fail(ESPIPE);
    base = status.st_size;
  } else if (whence != SEEK_SET) {
    return fail(EINVAL);
  }
  int64_t target;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) return fail(EINVAL);
  if (readMode()) {
    int64_t begin = position_ - static_cast<int64_t>(left_ + cursor_);
    if (target >= begin && target <= position_) {
      cursor_ = static_cast<size_t>(target - begin);
      left_ = static_cast<size_t>(position_ - target);
      return target;
    }
  }
  if ((flags_ & kClone) == 0 && lseek(descriptor_->number, target, SEEK_SET) < 0) return fail(errno);
  position_ = target;
  cursor_ = left_ = 0;
  return target;
}

int POSIXIOHandle::copy(IOHandle& source, int64_t from, int64_t to, OffsetMap* map) {
  auto* other = dynamic_cast<POSIXIOHandle*>(&source);
  if (other == nullptr || !writeMode() || !other->readMode()) return fail(EBADF);
  if (to < from) {
    other->fail(EINVAL);
    return -2;
  }
  if (other->seek(from, SEEK_SET) < 0) return -2;
  if (map != nullptr) (*map)[static_cast<uint64_t>(from)] = static_cast<uint64_t>(tell());
  constexpr int64_t kPiece = 65536;
  auto piece = std::make_unique<char[]>(kPiece);
  for (int64_t left = to - from; left > 0;) {
    int64_t count = std::min(left, kPiece);
    int64_t got = other->read(piece.get(), static_cast<size_t>(count));
    if (got >= 0 && got < count) other->fail(ENODATA);  // the file ends inside the region
    if (got < count) return -2;
    if (write(piece.get(), static_cast<size_t>(count)) < 0) return -3;
    left -= count;
  }
  return 0;
}

int POSIXIOHandle::close() {
  if (descriptor_ == nullptr) return 0;
  if ((flags_ & kWrite) == 0) {
    descriptor_.reset();  // clones may go on
    cursor_ = left_ = 0;
    return 0;
  }
  flush();
  int number = descriptor_->number;
  descriptor_->number = -1;
  descriptor_.reset();
  flags_ = 0;
  if (::close(number) != 0) fail(errno);
  return error_ != 0 ? -1 : 0;
}

std::string POSIXIOHandle::error_text() const {
  return error_ == 0 ? "" : strerror(error_);
}
