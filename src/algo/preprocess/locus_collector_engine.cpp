#include "algo/preprocess/locus_collector_engine.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "algo/preprocess/read_end.h"
#include "algo/preprocess/score_line.h"
#include "base/timer.h"

namespace {

constexpr uint16_t kNotPrimary = FLAG_SECONDARY | FLAG_SUPPLEMENTARY;
constexpr uint16_t kEitherUnmapped = FLAG_UNMAPPED | FLAG_MATE_UNMAPPED;

// a - b, but not below 0.
uint32_t reduced(uint32_t a, uint32_t b) {
  return a > b ? a - b : 0;
}

// a + b, but not above the range.
uint32_t increased(uint32_t a, uint32_t b) {
  return b > UINT32_MAX - a ? UINT32_MAX : a + b;
}

}  // namespace

void LocusCollector::Engine::startShard() {
  span_start = reduced(context->shard.start, params_.readbehind);
  span_end = increased(context->shard.end, params_.readahead);
  path_ = shardName(output_);
  stream_.reset(fopen(path_.c_str(), "we"));
  if (!stream_) throw std::runtime_error(algo->name + ": cannot open file " + path_ + ": " + strerror(errno));
}

void LocusCollector::Engine::advance(uint32_t from, uint32_t to) {
  static Timer* const fetch_timer = timer("fetch");
  static Timer* const calc_timer = timer("calc");
  const Shard& shard = context->shard;
  const bool last = to == shard.end;
  span_start = reduced(to, params_.readbehind);
  reads_.clear();
  {
    TimerScope scope(fetch_timer);
    context->reads->fetch(reduced(from, params_.readbehind), last ? increased(to, params_.readahead) : to, 0,
                          reads_);
  }
  TimerScope scope(calc_timer);
  calc(std::max(reduced(from, params_.readahead), shard.start), last ? to : reduced(to, params_.readahead));
}

void LocusCollector::Engine::calc(uint32_t from, uint32_t to) {
  const auto count = static_cast<uint32_t>(reads_.size());
  if (params_.fixmate || !params_.reduce) {
    for (uint32_t i = 0; i < count; ++i)
      if (isFar(*reads_[i], from, to)) addLine(i);
  } else {
    ends_.clear();
    for (uint32_t i = 0; i < count; ++i) ends_.push_back(endOf(i));
    std::sort(ends_.begin(), ends_.end(), [](const End& a, const End& b) {
      return std::tie(a.five_prime, a.mate_contig, a.index) < std::tie(b.five_prime, b.mate_contig, b.index);
    });
    for (size_t i = 0; i < ends_.size(); ++i) {
      const bool has_twin = (i > 0 && ends_[i - 1].sameKey(ends_[i])) ||
                            (i + 1 < ends_.size() && ends_[i + 1].sameKey(ends_[i]));
      if (has_twin && isFar(*reads_[ends_[i].index], from, to)) addLine(ends_[i].index);
    }
  }
  writeLines();
}

// Whether the read starts in [from, to) and has a mate that is not in every window that has the read.
bool LocusCollector::Engine::isFar(const Read& read, uint32_t from, uint32_t to) const {
  if (read.start < from || read.start >= to) return false;
  if (!(read.flag & FLAG_PAIRED) || (read.flag & kNotPrimary)) return false;
  if (!params_.fixmate && (read.flag & kEitherUnmapped)) return false;
  // There is no place to look for such a mate at.
  if (read.mate_ref_id < 0 || read.mate_start < -1 || read.mate_start == INT32_MAX) return false;
  return read.ref_id != read.mate_ref_id ||
         std::abs(int64_t{read.start} - read.mate_start) >= params_.pair_start_dist_thr;
}

LocusCollector::Engine::End LocusCollector::Engine::endOf(uint32_t index) const {
  const Read& read = *reads_[index];
  const uint64_t strands = (read.flag & FLAG_REVERSE ? 1 : 0) | (read.flag & FLAG_MATE_REVERSE ? 2 : 0);
  const uint64_t five_prime = static_cast<uint32_t>(unclippedFivePrime(read));
  return {five_prime << 2 | strands, read.mate_ref_id, index};
}

void LocusCollector::Engine::addLine(uint32_t index) {
  Read& read = *reads_[index];
  MateSummary summary;
  summary.end = static_cast<int32_t>(read.end);
  summary.five_prime = unclippedFivePrime(read);
  summary.flags = read.filter_class << 16 | read.flag;
  summary.score = qualityScore(read);
  summary.ordinal = static_cast<int32_t>(index) + 1;
  const char* const mate_contig =
      context->reads->input().contigs()[static_cast<size_t>(read.mate_ref_id)].contig;
  appendScoreLine(lines_, mate_contig, read.mate_start, summary, read.name);
}

void LocusCollector::Engine::writeLines() {
  const bool written = fwrite(lines_.data(), 1, lines_.size(), stream_.get()) == lines_.size();
  lines_.clear();
  if (!written)
    throw std::runtime_error(algo->name + ": failed to write to file " + path_ + ": " + strerror(errno));
}

Algo::Result* LocusCollector::Engine::finishShard() {
  if (fclose(stream_.release()) != 0)
    throw std::runtime_error(algo->name + ": failed to write to file " + path_ + ": " + strerror(errno));
  auto result = std::make_unique<LocusCollector::Result>();
  result->path = path_;
  return result.release();
}
