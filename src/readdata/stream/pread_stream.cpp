#include "readdata/stream/pread_stream.h"

#include <cerrno>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Cookie {
  int descriptor;
  off64_t position;
  off64_t size;
  std::unique_ptr<char[]> buffer;
};

ssize_t cookieRead(void* context, char* buffer, size_t count) {
  auto* cookie = static_cast<Cookie*>(context);
  ssize_t got;
  do {
    got = pread(cookie->descriptor, buffer, count, cookie->position);
  } while (got < 0 && errno == EINTR);
  if (got > 0) cookie->position += got;
  return got;
}

int cookieSeek(void* context, off64_t* offset, int whence) {
  auto* cookie = static_cast<Cookie*>(context);
  off64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? cookie->position : cookie->size;
  off64_t target;
  if (__builtin_add_overflow(base, *offset, &target) || target < 0 || target > cookie->size) {
    *offset = cookie->position;
    errno = EINVAL;
    return -1;
  }
  *offset = cookie->position = target;
  return 0;
}

int cookieClose(void* context) {
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
  auto cookie =
      std::make_unique<Cookie>(Cookie{descriptor, 0, status.st_size, std::make_unique<char[]>(buffer_size)});
  FILE* stream = fopencookie(cookie.get(), "r", {cookieRead, nullptr, cookieSeek, cookieClose});
  if (stream == nullptr) return nullptr;
  Cookie* owned = cookie.release();  // the stream's now
  setvbuf(stream, owned->buffer.get(), _IOFBF, buffer_size);
  return stream;
}
