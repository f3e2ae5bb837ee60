#include "algo/demo/read_metrics_algo.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/timer.h"

namespace {

// Bases of reference behind a step's end that are at hand for reads that begin near it; reads that reach
// further get what they need.
constexpr uint32_t kReferenceMargin = 350;

}  // namespace

class ReadMetricsAlgo::Result final : public Algo::Result {
 public:
  explicit Result(std::unique_ptr<ReadMetrics> metrics) : metrics(std::move(metrics)) {}
  uint64_t memorySize() const override { return sizeof *this + metrics->memorySize(); }

  std::unique_ptr<ReadMetrics> metrics;
};

class ReadMetricsAlgo::Engine final : public Algo::Engine {
 public:
  Engine(DriverContext* context, ReadMetricsAlgo* algo, const ReadMetricsFactory& factory)
      : Algo::Engine(context, algo), factory_(factory) {}

  void startShard() override {
    Algo::Engine::startShard();
    metrics_ = factory_.create();
  }
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override;
  Algo::Result* finishShard() override { return new Result(std::move(metrics_)); }

 private:
  ReferenceWindow fetchReference(uint32_t start, uint32_t end);

  const ReadMetricsFactory& factory_;
  std::unique_ptr<ReadMetrics> metrics_;
  std::vector<Read*> reads_;     // scratch
  std::vector<char> reference_;  // scratch
};

void ReadMetricsAlgo::Engine::advance(uint32_t from, uint32_t to) {
  static Timer* const fetch_timer = timer("fetch");
  reads_.clear();
  {
    TimerScope scope(fetch_timer);
    context->reads->fetch(from, to, 0, reads_);
  }
  // A read belongs to the step in which it starts.
  const uint32_t first = context->shard.firstOwnStart(from);
  std::erase_if(reads_, [first](const Read* read) { return read->start < first; });
  if (!reads_.empty()) {
    uint32_t low = std::min(from, reads_.front()->start);
    uint32_t high = to > UINT32_MAX - kReferenceMargin ? UINT32_MAX : to + kReferenceMargin;
    for (const Read* read : reads_) high = std::max(high, read->end);
    ReferenceWindow window = fetchReference(low, high);
    for (Read* read : reads_) metrics_->update(*read, window);
  }
  span_start = to;
}

ReferenceWindow ReadMetricsAlgo::Engine::fetchReference(uint32_t start, uint32_t end) {
  const FastaIndexEntry* entry = context->reference->entry(context->shard.contig);
  if (entry) end = std::min(end, entry->length);
  if (!entry || start >= end) return {};
  reference_.resize(end - start);
  uint32_t count = context->reference->fetch(context->shard.contig, start, end, reference_.data());
  if (count == FastaFile::kFailed)
    throw std::runtime_error("Failed to read contig " + std::string(context->shard.contig) + " from " +
                             context->reference->path());
  return {reference_.data(), start, start + count};
}

void ReadMetricsAlgo::Engine::processNoCoor() {
  reads_.clear();
  context->reads->fetchAll(0, reads_);
  for (Read* read : reads_) metrics_->update(*read, {});
}

ReadMetricsAlgo::ReadMetricsAlgo(DriverContext* context, int count, const char* const args[])
    : Algo(context, count, args) {}

ReadMetricsAlgo::~ReadMetricsAlgo() {
  if (file_) fclose(file_);
}

void ReadMetricsAlgo::takeOutput(const std::vector<const char*>& positional) {
  if (positional.empty()) throw std::invalid_argument(name + ": missing output file");
  if (positional.size() > 1) throw std::invalid_argument(name + ": extra argument after output");
  if (!context->reference && !context->reads)
    throw std::invalid_argument(name + ": missing reference and bam input");
  if (!context->reference) throw std::invalid_argument(name + ": missing reference");
  if (!context->reads) throw std::invalid_argument(name + ": missing bam input");
  output_ = positional[0];
}

void ReadMetricsAlgo::init() {
  Algo::init();
  total_ = factory_->create();
  file_ = fopen(output_.c_str(), "w");
  if (!file_) throw std::invalid_argument("cannot open file " + output_ + ", " + strerror(errno));
}

void ReadMetricsAlgo::merge(const Shard&, Algo::Result* result) {
  std::unique_ptr<Algo::Result> owned(result);
  if (result) total_->merge(*static_cast<Result*>(result)->metrics);
}

Algo::Engine* ReadMetricsAlgo::newEngine(DriverContext* context, int) {
  return new Engine(context, this, *factory_);
}

void ReadMetricsAlgo::finish() {
  total_->compute();
  std::vector<std::string> titles, lines;
  total_->titles(titles);
  total_->lines(lines);
  if (titles.size() != lines.size()) throw std::runtime_error("titles.size() != nType");
  for (size_t i = 0; i < titles.size(); i++)
    if (fprintf(file_, "%s%s\n%s", i ? "\n" : "", titles[i].c_str(), lines[i].c_str()) < 0) failWriting();
  FILE* file = file_;
  file_ = nullptr;
  if (fclose(file) != 0) failWriting();
}

void ReadMetricsAlgo::failWriting() const {
  throw std::runtime_error("Failed to write to file " + output_ + ", " + strerror(errno));
}
