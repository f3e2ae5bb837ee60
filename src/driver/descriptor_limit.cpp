#include "driver/descriptor_limit.h"

#include <stdexcept>
#include <sys/resource.h>

#include "base/text.h"

namespace {

constexpr unsigned long kOutputsPerAlgo = 4;
constexpr unsigned long kReserve =
    16;  // standard streams, reference, an index being loaded, what was inherited

}  // namespace

void reserveDescriptors(size_t inputs, size_t algos, int threads) {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;  // unknown, so opening has to show it
  if (limit.rlim_cur < limit.rlim_max) {
    const rlimit raised = {limit.rlim_max, limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  const unsigned long needed = inputs + algos * (size_t(threads) + kOutputsPerAlgo) + kReserve;
  if (needed > limit.rlim_cur)
    throw std::invalid_argument(
        format("%zu input files, %d threads and %zu algorithms need %lu open files, %lu are allowed", inputs,
               threads, algos, needed, (unsigned long)limit.rlim_cur));
}
