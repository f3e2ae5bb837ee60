#include "base/plain_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

bool close_written(FileOwner stream) {
  if (fflush(stream.get()) != 0 || ferror(stream.get())) {
    const int error = errno;
    if (ftruncate(fileno(stream.get()), 0) != 0) errno = error;  // a device: nothing of it stays
    stream.reset();
    errno = error;
    return false;
  }
  return fclose(stream.release()) == 0;
}

FILE* open_plain_file(const char* path) {
  int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return nullptr;
  struct stat status = {};
  int error = 0;
  FILE* stream = nullptr;
  if (fstat(descriptor, &status) != 0)
    error = errno;
  else if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))
    error = ESPIPE;
  else if ((stream = fdopen(descriptor, "r")) == nullptr)
    error = errno;
  if (stream == nullptr) {
    close(descriptor);
    errno = error;
  }
  return stream;
}
