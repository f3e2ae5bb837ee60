#include "algo/vcall/gvcf_bands.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "base/text.h"

namespace {

constexpr int32_t kMaxQuality = 99;

// 0, which is no bound, for what is not a number or is too large.
int32_t scanBound(const char*& cursor) {
  uint64_t number;
  if (*cursor < '0' || *cursor > '9' || !scanUnsigned(cursor, kMaxGQBound, number)) return 0;
  return number > kMaxGQBound ? 0 : static_cast<int32_t>(number);
}

bool scanPart(const char*& cursor, char separator, int32_t& number) {
  if (*cursor != separator) return true;
  number = scanBound(++cursor);
  return number > 0;
}

// How much less likely than the best, phred.
int32_t phredBelow(double best, double value) {
  const double difference = std::round((best - value) * 10);
  return difference < std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(difference)
                                                          : std::numeric_limits<int32_t>::max();
}

int32_t qualityOf(double best, double second) {
  const double quality = (best - second) * 10;
  if (quality >= kMaxQuality) return kMaxQuality;
  return quality > 0 ? static_cast<int32_t>(quality) : 0;  // not a number: nothing is known
}

}  // namespace

std::vector<int32_t> parseGQBands(const std::string& text) {
  std::vector<int32_t> bounds;
  for (const std::string& entry : split(text, ',')) {
    const char* cursor = entry.c_str();
    const int32_t first = scanBound(cursor);
    int32_t end = first + 1, step = 1;
    const bool isRange = *cursor == '-';
    if (first == 0 || !scanPart(cursor, '-', end) || (isRange && !scanPart(cursor, '/', step)) ||
        cursor != entry.c_str() + entry.size() || end <= first || (!bounds.empty() && first <= bounds.back()))
      return {};
    for (int32_t bound = first; bound < end; bound += step) bounds.push_back(bound);
  }
  return bounds;
}

void BandCollector::startShard(GVCFWriter& writer, uint32_t start, uint32_t end) {
  writer_ = &writer;
  head_.reset(start);
  open_.reset(start);
  written_ = shardStart_ = lastRecordStart_ = start;
  shardEnd_ = end;
  anyRecord_ = anyBlock_ = false;
}

void BandCollector::openBlock(uint32_t position, int32_t quality, size_t values) {
  open_.reset(position);
  const auto above = std::upper_bound(bounds_.begin(), bounds_.end(), quality);
  open_.low = above == bounds_.begin() ? 0 : above[-1];
  open_.high = above == bounds_.end() ? std::numeric_limits<int32_t>::max() : *above;
  open_.minPL.assign(values, std::numeric_limits<int32_t>::max());
}

void BandCollector::closeBlock() {
  if (open_.empty()) return;
  if (!anyRecord_ && !std::exchange(anyBlock_, true))
    std::swap(head_, open_);
  else
    writer_->writeBlock(open_, 0);
  open_.reset(written_);
}

void BandCollector::addRefConfidence(uint32_t start, uint32_t end, const char* refBases,
                                     const double* likelihoods, const int32_t* depth, int ploidy) {
  const size_t values = static_cast<size_t>(ploidy) + 1;
  for (uint32_t position = std::max(start, written_); position < end; ++position) {
    const size_t i = position - start;
    const double* const gl = likelihoods + i * values;
    double best = -std::numeric_limits<double>::infinity(), second = best;
    for (size_t k = 0; k < values; ++k) {
      second = std::max(second, std::min(best, gl[k]));
      best = std::max(best, gl[k]);
    }
    const int32_t quality = qualityOf(best, second);
    if (open_.empty() || open_.end != position || quality < open_.low || quality >= open_.high ||
        open_.minPL.size() != values) {
      closeBlock();
      openBlock(position, quality, values);
    }
    for (size_t k = 0; k < values; ++k) open_.minPL[k] = std::min(open_.minPL[k], phredBelow(best, gl[k]));
    open_.GQ.push_back(quality);
    open_.DP.push_back(depth[i]);
    open_.ref.push_back(refBases[i]);
    written_ = open_.end = position + 1;
  }
}

void BandCollector::beforeRecord(uint32_t start, uint32_t end) {
  if (!open_.empty() && start < open_.end) throw std::logic_error("record inside a reference block");
  closeBlock();
  written_ = std::max(written_, end);
  lastRecordStart_ = start;
  anyRecord_ = true;
}

void BandCollector::finishShard(GVCFWriter::Result& result) {
  std::swap(result.head, head_);
  if (!open_.empty()) {
    std::swap(result.tail, open_);
  } else {
    result.tail.reset(anyRecord_ ? written_ : shardStart_);
    if (written_ > shardEnd_) result.tail.end = lastRecordStart_;
  }
}
