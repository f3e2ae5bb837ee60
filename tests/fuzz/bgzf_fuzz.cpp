// Any bytes as a BGZF file: reads, delimited reads, seeks, clones and raw copies must end in data or in an
// error. The first bytes of the input say what is done; the rest is the file.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "readdata/stream/bgzf_handle.h"

namespace {

constexpr size_t kSteps = 12;
constexpr size_t kCommandBytes = 4;

void check(bool good) {
  if (!good) abort();
}

// Two readings of one place must agree.
void checkAgain(BGZFHandle& handle, int64_t place, const std::vector<uint8_t>& buffer, int64_t got) {
  auto clone = handle.clone();
  check(clone != nullptr);
  if (clone->seek(place, SEEK_SET) < 0) return;
  std::vector<uint8_t> again(buffer.size());
  int64_t count = clone->read(again.data(), again.size());
  check(count == got);
  if (got > 0) check(memcmp(buffer.data(), again.data(), static_cast<size_t>(got)) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kSteps * kCommandBytes) return 0;
  const uint8_t* commands = data;
  data += kSteps * kCommandBytes;
  size -= kSteps * kCommandBytes;

  static const int file = memfd_create("bgzf_fuzz", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  check(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));

  BGZFHandle handle;
  handle.set_verify_crc((commands[0] & 0x80) != 0);
  check(handle.openFile(path.c_str(), "r"));
  handle.has_eof();
  for (size_t step = 0; step < kSteps; ++step) {
    const uint8_t* command = commands + step * kCommandBytes;
    size_t number = command[1] | command[2] << 8;
    std::vector<uint8_t> buffer(number + 1);
    int64_t place = handle.tell();
    switch (command[0] % 5) {
      case 0: {
        int64_t got = handle.read(buffer.data(), buffer.size());
        check(got >= -1 && got <= static_cast<int64_t>(buffer.size()));
        if ((command[3] & 1) != 0) checkAgain(handle, place, buffer, got);
        break;
      }
      case 1:
        handle.read_until(buffer.data(), buffer.size(), static_cast<char>(command[3]));
        break;
      case 2:
        handle.seek(static_cast<int64_t>(number % (size + 2)) << 16 | command[3], SEEK_SET);
        break;
      case 3:
        if (handle.peek(command[1]) != nullptr) handle.skip(command[1]);
        break;
      default: {
        BGZFHandle out;
        check(out.openFile("/dev/null", "w0"));
        if ((command[3] & 1) != 0)
          out.copy(handle, 0, static_cast<int64_t>(number % (size + 2)) << 16, nullptr);
        else
          handle.copy_rest(out);
        out.close();
        break;
      }
    }
  }
  return 0;
}
