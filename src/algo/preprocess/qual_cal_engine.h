// qual_cal_engine.h - what QualCal does on each thread.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "algo/preprocess/covariates.h"
#include "algo/preprocess/qual_cal.h"
#include "algo/preprocess/read_errors.h"

class QualCal::Engine final : public Algo::Engine {
 public:
  // `empty` has the groups and arguments of the run's table; `platforms` lives as long as the algorithm.
  Engine(DriverContext* context, QualCal* algo, const RecalTable& empty, const std::vector<int>& platforms,
         const std::vector<std::unique_ptr<VCFCache>>& known_sites);

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override {}
  Algo::Result* finishShard() override;

 private:
  using Bounds = std::pair<uint32_t, uint32_t>;
  // The cells of a row of the shard's table, null before it has one.
  struct Cells {
    RecalCounts* contexts = nullptr;
    RecalCounts* cycles = nullptr;
  };
  struct GroupCells {
    std::array<std::array<Cells, kRecalQualities>, kRecalEvents> rows{};
    // Observations of both kinds of indels at the quality that reads without BI and BD have.
    std::vector<uint64_t> contexts, cycles;
    int indel_quality = -1;  // none yet
  };

  void startTable();
  void fetchReads(uint32_t from, uint32_t to);
  void fetchReference();
  void maskKnownSites();
  void update(Read& read);
  void countEvent(Read& read, RecalEvent event, const uint8_t* quals, int offset);
  void countPlainIndels(Read& read, int quality);
  void addErrors(Read& read, RecalEvent event, const uint8_t* quals, int offset);
  Cells cells(int group, RecalEvent event, int quality);
  size_t cycleIndex(int32_t cycle) const {
    const int32_t limit = arguments_.maximum_cycle_value;
    return cycle == Covariates::kNoCycle ? 2 * size_t(limit) + 1 : size_t(cycle + limit);
  }

  const std::vector<int>& platforms_;
  std::vector<VCFCache> known_sites_;
  const RecalArguments arguments_;
  std::vector<std::string> group_names_;
  Covariates covariates_;
  ReadErrors errors_;

  RecalTable table_;  // of the shard
  std::vector<GroupCells> cells_;

  std::vector<Read*> reads_;  // of the step
  std::vector<char> bases_;
  std::vector<uint8_t> masked_;
  MaskedReference reference_{};
};
