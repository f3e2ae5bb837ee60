// count_reads.cpp - CountReads, an algorithm that only fetches every read and counts it: what is left of a run when no
// algorithm costs anything. Linked into bench_driver alone.
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "algo/algo.h"

namespace {

class CountReads final : public Algo {
 public:
  CountReads(DriverContext* context, int count, const char* const args[]) : Algo(context, count, args) {
    if (!context->reads) throw std::invalid_argument(name + ": missing bam input");
  }
  void merge(const Shard&, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int) override;
  bool skipNoCoor() override { return false; }
  void finish() override { printf("%lu\n", total_); }

 private:
  uint64_t total_ = 0;
};

struct Count : Algo::Result {
  uint64_t reads = 0;
};

class CountEngine final : public Algo::Engine {
 public:
  using Algo::Engine::Engine;
  void startShard() override {
    Algo::Engine::startShard();
    result_ = std::make_unique<Count>();
  }
  void advance(uint32_t from, uint32_t to) override {
    reads_.clear();
    context->reads->fetch(from, to, 0, reads_);
    const uint32_t first = context->shard.firstOwnStart(from);
    for (const Read* read : reads_) result_->reads += read->start >= first;
    span_start = to;
  }
  void processNoCoor() override {
    reads_.clear();
    result_->reads += context->reads->fetchAll(0, reads_);
  }
  Algo::Result* finishShard() override { return result_.release(); }

 private:
  std::vector<Read*> reads_;
  std::unique_ptr<Count> result_;
};

void CountReads::merge(const Shard&, Algo::Result* result) {
  std::unique_ptr<Algo::Result> owned(result);
  if (result) total_ += static_cast<Count*>(result)->reads;
}

Algo::Engine* CountReads::newEngine(DriverContext* context, int) {
  return new CountEngine(context, this);
}

const TemplateAlgoBuilder<CountReads> builder("CountReads");

}  // namespace
