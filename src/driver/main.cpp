#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "base/crash.h"
#include "driver/run_control.h"

namespace {

// With a standard stream closed, the next file opened would take its number, and messages would go into that
// file.
bool openStandardStreams() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor)
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDWR) != descriptor) return false;
  return true;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (!openStandardStreams()) return 1;
  // A reader that goes away, or a file that hits the size limit, is an error of the write, not the end of the
  // process.
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  install_crash_handlers();
  return runDriver(argc, argv);
}
