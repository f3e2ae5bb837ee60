#include "driver/descriptor_limit.h"

#include <stdexcept>

#include "base/descriptor_limit.h"
#include "base/text.h"

namespace {

constexpr unsigned long kOutputsPerAlgo = 4;
constexpr unsigned long kReserve =
    16;  // standard streams, reference, an index being loaded, what was inherited

}  // namespace

void reserveDescriptors(size_t inputs, size_t algos, int threads) {
  const unsigned long allowed = raiseDescriptorLimit();
  const unsigned long needed = inputs + algos * (size_t(threads) + kOutputsPerAlgo) + kReserve;
  if (needed > allowed)
    throw std::invalid_argument(
        format("%zu input files, %d threads and %zu algorithms need %lu open files, %lu are allowed", inputs,
               threads, algos, needed, allowed));
}
