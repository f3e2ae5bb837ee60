// gvcftyper_engine.h - what GVCFtyper does on each thread: the records of all inputs in a window, and position by
// position what they say together.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "algo/vcall/joint/attribute_merge.h"
#include "algo/vcall/joint/genotype_merge.h"
#include "algo/vcall/joint/gvcftyper.h"
#include "algo/vcall/joint/joint_site.h"
#include "algo/vcall/reference_window.h"

class GVCFtyper::Engine final : public VariantCallAlgo::Engine {
 public:
  Engine(DriverContext* context, GVCFtyper* algo);
  ~Engine() override;

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;

 protected:
  void startRecord(const Site& site, VariantContext& record) override;

 private:
  struct Input {
    std::unique_ptr<VCFCache> cache;
    RecordCursor cursor;
  };

  void fetchRecords(uint32_t from, uint32_t to);
  void findPositions(uint32_t from, uint32_t to);
  bool gatherEvents(uint32_t position, int32_t& longest);
  const char* reference(uint32_t position, uint32_t length);
  void checkReference(const Event& event, const char* ref) const;
  void call(uint32_t position);
  void uniteAlleles(uint32_t position, int32_t length);
  void mergeSamples();
  bool isVariant() const;
  bool dropUninformative();
  void emit(double qual);
  template <typename Work>
  void forEvents(Work work);

  const GVCFInputs& gvcfs_;
  size_t max_alternates_;
  std::vector<Input> inputs_;
  std::vector<uint32_t> positions_;  // that are called in the window, ascending
  MovingReference window_;
  uint32_t contig_end_ = 0;

  std::vector<Event> events_;  // by input
  AlleleUnion union_;
  std::vector<double> scores_;
  GenotypeMerge merge_;
  JointSamples samples_;
  AttributeMerge attributes_;
  int64_t depth_ = -1;  // of all samples with data; -1: unknown
  Site site_;
};
