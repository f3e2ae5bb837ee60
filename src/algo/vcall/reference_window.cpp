#include "algo/vcall/reference_window.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr uint32_t kBatch = 1 << 16;  // bases

}  // namespace

void MovingReference::hold(FastaFile& file, const char* of, uint32_t from, uint32_t to) {
  if (holds(of, from, to)) return;
  const FastaIndexEntry* const entry = file.entry(of);
  const uint32_t length = entry ? entry->length : 0;
  const uint32_t size = std::max(to - from, std::min(kBatch, length - std::min(length, from)));
  contig = of;
  start = from;
  bases.resize(size);
  if (file.fetch(of, from, from + size, bases.data()) != size)
    throw std::runtime_error("Failed to read contig " + contig + " from " + file.path());
}
