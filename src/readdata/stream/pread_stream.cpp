#include "readdata/stream/pread_stream.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Cookie {
  int descriptor;
  off64_t position = 0;
  off64_t size;
  std::unique_ptr<char[]> buffer;
};

ssize_t readCookie(void* context, char* to, size_t count) {
  auto* cookie = static_cast<Cookie*>(context);
  ssize_t got;
  do {
    got = pread(cookie->descriptor, to, count, cookie->position);
  } while (got < 0 && errno == EINTR);
  if (got > 0) cookie->position += got;
  return got;
}

int seekCookie(void* context, off64_t* offset, int whence) {
  auto* cookie = static_cast<Cookie*>(context);
  off64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? cookie->position : cookie->size;
  off64_t target;
  if (__builtin_add_overflow(base, *offset, &target) || target < 0 || target > cookie->size) {
    errno = EINVAL;
    return -1;
  }
  *offset = cookie->position = target;
  return 0;
}

int closeCookie(void* context) {
  delete static_cast<Cookie*>(context);
  return 0;
}

}  // namespace

FILE* open_pread_stream(int descriptor, size_t buffer_size) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return nullptr;
  if (!S_ISREG(status.st_mode)) {
    errno = ESPIPE;
    return nullptr;
  }
  buffer_size = std::max<size_t>(buffer_size, 1);
  std::unique_ptr<Cookie> cookie(new (std::nothrow) Cookie{descriptor, 0, status.st_size, nullptr});
  if (cookie) cookie->buffer.reset(new (std::nothrow) char[buffer_size]);
  if (!cookie || !cookie->buffer) {
    errno = ENOMEM;
    return nullptr;
  }
  FILE* stream = fopencookie(cookie.get(), "r", {readCookie, nullptr, seekCookie, closeCookie});
  if (!stream) return nullptr;
  setvbuf(stream, cookie->buffer.get(), _IOFBF, buffer_size);
  cookie.release();
  return stream;
}
