// apply_var_cal_engine.h - what ApplyVarCal does on each thread: the records of a shard, with their lines of the recal
// file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "algo/vcall/recal/apply_var_cal.h"

// The part that reaches merge(): a file of lines for the shard.
class ApplyVarCal::Result final : public Algo::Result, public VCFWriter::Result {
 public:
  std::string path;  // empty when there is none
  uint64_t taken = 0, recalibrated = 0;
  uint64_t memorySize() const override { return sizeof *this + path.capacity(); }
};

class ApplyVarCal::Engine final : public Algo::Engine {
 public:
  Engine(DriverContext* context, ApplyVarCal* algo);

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override {}
  Algo::Result* finishShard() override;

 private:
  struct InfoItem {
    std::string_view key, text;  // text: the whole item
  };

  // Of the recal file. `given` counts, in the first one of an end, the records that have had theirs.
  struct RecalLine {
    const VCFLine* line;
    size_t given = 0;
  };
  static constexpr int32_t kNowhere = -2;

  void applyAll(uint32_t from, uint32_t to);
  void apply(const VCFLine& line);
  void gatherRecal(int32_t position);
  // The line of the recal file for a record, null without one.
  const VCFLine* findRecal(const VCFLine& line);
  void recalibrate(const VCFLine& line, const VCFLine& recal);
  void write(const VCFLine& line, const char* filter, const char* info);
  [[noreturn]] void fail(const char* what, const VCFLine& recal) const;
  double lodOf(const VCFLine& recal) const;
  const ApplyVarCal& owner() const { return *static_cast<const ApplyVarCal*>(algo); }

  std::unique_ptr<VCFCache> input_, recal_;
  std::unique_ptr<VCFWriter> writer_;
  uint32_t contig_end_ = 0;
  size_t cursor_ = 0;  // in the recal records: those before lie in front of the last record
  int32_t position_ = kNowhere;
  std::vector<RecalLine> here_;  // what stands at position_, by end
  uint64_t taken_ = 0, recalibrated_ = 0;
  // Scratch.
  std::vector<InfoItem> items_;
  std::vector<std::string> filters_;
  std::string info_, filter_, text_;
};
