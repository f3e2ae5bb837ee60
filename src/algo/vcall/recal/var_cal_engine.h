// var_cal_engine.h - what VarCal does on each thread: the variants of a shard, and what the resources say of them.
#pragma once

#include <memory>
#include <vector>

#include "algo/vcall/recal/var_cal.h"

class VarCal::Result final : public Algo::Result {
 public:
  VariantBlock block;
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

  struct Candidate {
    const VCFLine* line;
    bool is_aggregate;
  };

  // Records of a resource, of which those over a stretch are counted.
  class Spans {
   public:
    void clear();
    void add(const VCFLine& record);  // in order of position
    void settle();                    // behind the last one
    size_t countOver(int64_t start, int64_t end) const;

   private:
    std::vector<int32_t> starts_, ends_;
  };

  // Appends the records of `reader` that begin in the shard's part [from, to) to the candidates.
  void collect(VCFCache& reader, uint32_t from, uint32_t to, bool aggregate);
  // Makes a datum of the record unless its type or a filter keeps it out.
  void take(const Candidate& candidate);
  void readAnnotations(const VCFLine& line);
  // Takes in what the resource says of the data from `first` on, which are sorted by position.
  void consult(Source& source, uint32_t from, size_t first);

  const VarCalParam& param_;
  std::unique_ptr<VCFCache> input_;
  std::vector<std::unique_ptr<VCFCache>> aggregates_;
  std::vector<Source> sources_;
  int32_t contig_ = -1;
  // Of the step.
  std::vector<Candidate> candidates_;
  std::vector<bool> is_indel_;  // by datum
  Spans snps_, indels_;
  std::unique_ptr<Result> result_;
};
