// var_cal_engine.h - what VarCal does on each thread: the variants of a shard, and what the resources say of them.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "algo/vcall/recal/var_cal.h"

class VarCal::Result final : public Algo::Result {
 public:
  std::vector<VariantDatum> data;
  uint64_t memorySize() const override;
};

class VarCal::Engine final : public Algo::Engine {
 public:
  Engine(DriverContext* context, VarCal* algo);

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override {}
  Algo::Result* finishShard() override;

 private:
  struct Source {
    const Resource* resource;
    std::unique_ptr<VCFCache> reader;
  };

  // Appends the variants of `reader` that begin in the shard's part [from, to).
  void collect(VCFCache& reader, uint32_t from, uint32_t to, bool aggregate);
  // Appends the record unless its type or a filter keeps it out.
  void take(const VCFLine& line, bool aggregate);
  void readAnnotations(const VCFLine& line, VariantDatum& datum) const;
  // Takes in what the resource says of the data from `first` on, which are sorted by position in each input file.
  void consult(Source& source, uint32_t from, size_t first);

  const VarCalParam& param_;
  std::unique_ptr<VCFCache> input_;
  std::vector<std::unique_ptr<VCFCache>> aggregates_;
  std::vector<Source> sources_;
  int32_t contig_ = -1;
  std::vector<bool> is_indel_;  // by datum of the step
  std::unique_ptr<Result> result_;
};
