#include "algo/demo/read_metrics_algo.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/timer.h"

namespace {

// Bases of reference that are at hand on either side of a step, for reads that reach over its ends.
constexpr uint32_t kReferenceMargin = 350;
// Bases that are fetched at least for an aligned block that reaches further: those of the reads that come
// next, with the same intron before them, or the next blocks of a long read.
constexpr uint32_t kBlockFetch = 4096;

// The reference of a shard's contig, read from the file: a window around the step, and the last one that was
// needed elsewhere. What is held does not grow with the reach of a read, but with its longest aligned block.
class FileReferenceSource final : public ReferenceSource {
 public:
  explicit FileReferenceSource(const DriverContext& context) : context_(context) {}

  void startShard() {
    const FastaIndexEntry* entry = context_.reference->entry(context_.shard.contig);
    length_ = entry ? entry->length : 0;
    window_ = elsewhere_ = {};
  }
  // `first` is where the first read of the step begins.
  void setStep(uint32_t from, uint32_t to, uint32_t first) {
    const uint32_t low = from - std::min(from, kReferenceMargin);
    window_ = fetch(std::clamp(first, low, from), uint64_t(to) + kReferenceMargin, step_bases_);
  }

 protected:
  ReferenceWindow outside(uint32_t start, uint32_t end) override {
    end = std::min(end, length_);
    if (window_.covers(start, end)) return window_;
    if (!elsewhere_.covers(start, end))
      elsewhere_ = fetch(start, std::max<uint64_t>(end, uint64_t(start) + kBlockFetch), block_bases_);
    return elsewhere_;
  }

 private:
  ReferenceWindow fetch(uint32_t start, uint64_t wanted_end, std::vector<char>& bases) {
    const uint32_t end = uint32_t(std::min<uint64_t>(wanted_end, length_));
    if (start >= end) return {};
    if (bases.size() < end - start) bases.resize(end - start);
    const uint32_t count = context_.reference->fetch(context_.shard.contig, start, end, bases.data());
    if (count == FastaFile::kFailed)
      throw std::runtime_error("Failed to read contig " + std::string(context_.shard.contig) + " from " +
                               context_.reference->path());
    return {bases.data(), start, start + count};
  }

  const DriverContext& context_;
  uint32_t length_ = 0;  // of the contig; 0 when the file does not have it
  ReferenceWindow elsewhere_;
  std::vector<char> step_bases_, block_bases_;  // behind the two windows
};

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
      : Algo::Engine(context, algo), factory_(factory), reference_(*context) {}

  void startShard() override {
    Algo::Engine::startShard();
    metrics_ = factory_.create();
    reference_.startShard();
  }
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override;
  Algo::Result* finishShard() override { return new Result(std::move(metrics_)); }

 private:
  const ReadMetricsFactory& factory_;
  std::unique_ptr<ReadMetrics> metrics_;
  FileReferenceSource reference_;
  std::vector<Read*> reads_;  // scratch
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
    reference_.setStep(from, to, reads_.front()->start);
    for (Read* read : reads_) metrics_->update(*read, reference_);
  }
  span_start = to;
}

void ReadMetricsAlgo::Engine::processNoCoor() {
  reads_.clear();
  context->reads->fetchAll(0, reads_);
  ReferenceSource none;
  for (Read* read : reads_) metrics_->update(*read, none);
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
