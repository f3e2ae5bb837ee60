#include "readdata/vcf/gq_block.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

void require(bool holds, const char* condition) {
  if (!holds) throw std::logic_error(condition);
}

template <typename T>
void eraseFront(std::vector<T>& values, size_t count) {
  values.erase(values.begin(), values.begin() + static_cast<ptrdiff_t>(std::min(count, values.size())));
}

template <typename T>
void appendFrom(std::vector<T>& to, const std::vector<T>& from, size_t skipped) {
  to.insert(to.end(), from.begin() + static_cast<ptrdiff_t>(std::min(skipped, from.size())), from.end());
}

}  // namespace

void GQBlock::reset(uint32_t position) {
  low = high = -1;
  start = end = position;
  minPL.clear();
  GQ.clear();
  DP.clear();
  ref.clear();
}

void GQBlock::cutStart(uint32_t new_start) {
  const size_t count = new_start - start;
  eraseFront(GQ, count);
  eraseFront(DP, count);
  eraseFront(ref, count);
  start = new_start;
}

void GQBlock::cutEnd(uint32_t new_end) {
  const size_t count = new_end > start ? new_end - start : 0;
  if (count < GQ.size()) GQ.resize(count);
  if (count < DP.size()) DP.resize(count);
  if (count < ref.size()) ref.resize(count);
  end = new_end;
}

void mergeGQBlock(GQBlock& b1, GQBlock& b2) {
  require(b1.start <= b2.end, "b1.start <= b2.end");
  if (b2.start > b1.end) {
    require(b2.end >= b1.end, "b2.end >= b1.end");
    return;
  }
  if (b2.end <= b1.end) {  // swallowed: what comes behind b2 is not b1's any more
    b1.cutEnd(b2.end);
  } else if (b1.low != b2.low) {
    if (b2.start < b1.end) b2.cutStart(b1.end);
    return;
  } else {
    require(b1.minPL.size() == b2.minPL.size(), "b1.minPL.size() == b2.minPL.size()");
    const size_t overlap = b1.end - b2.start;
    appendFrom(b1.GQ, b2.GQ, overlap);
    appendFrom(b1.DP, b2.DP, overlap);
    appendFrom(b1.ref, b2.ref, overlap);
    for (size_t i = 0; i < b1.minPL.size(); ++i) b1.minPL[i] = std::min(b1.minPL[i], b2.minPL[i]);
    b1.end = b2.end;
  }
  std::swap(b1, b2);
  b1.reset(b2.start);
}
