// dedup_engine.h - the reads of a thread's shards on their way through Dedup: a window slides along the shard, and the
// reads that have been seen with all their mates and rivals are judged and written.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "algo/preprocess/dedup.h"

class Dedup::Engine final : public ReadWriter::Engine {
 public:
  struct Settings {
    const MarkRules& rules;
    Function function;
    bool rmdup, fixisize;
  };

  Engine(DriverContext* context, Dedup* algo, const Settings& settings,
         const std::vector<std::unique_ptr<VCFCache>>& score_caches);

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override;
  Algo::Result* finishShard() override;

 private:
  void loadMates(uint32_t start, uint32_t end);
  void calc(uint32_t from, uint32_t to);
  void writeOwn();
  const bam_record& changed(Read& read, const MateFix* fix, bool duplicate, DedupCounts& counts);

  const Settings settings_;
  DuplicateMarker marker_;
  MateInfoByVcf mates_;
  std::vector<std::unique_ptr<VCFCache>> score_caches_;
  std::vector<std::pair<uint32_t, uint32_t>> stretches_;  // scratch: [from, to) of lines
  bool judged_ = false;  // a step of the shard has been through the judgement
};
