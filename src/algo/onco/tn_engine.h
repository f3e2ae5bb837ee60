// tn_engine.h - what is TNhaplotyper's own on each thread: activity of the tumor, the log odds of each site, its filters and
// its record.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "algo/onco/locus_reads.h"
#include "algo/onco/tn_activity.h"
#include "algo/onco/tn_haplotyper.h"
#include "algo/vcall/assembly_call_engine.h"

class TNhaplotyper::Engine final : public AssemblyCallAlgo::Engine {
 public:
  Engine(DriverContext* context, TNhaplotyper* algo, const Param& param);

  void startShard() override;

 protected:
  void buildProfile(const std::vector<Read*>& reads, const ReferenceWindow& window, uint32_t start,
                    uint32_t end) override;
  void clearProfile(uint32_t start, uint32_t end) override;
  void findActive(uint32_t start, uint32_t end, std::vector<ActivePosition>& active) override;
  void fetchDb(uint32_t start, uint32_t end) override;
  void calcSite(const AssemblyTask& task, EventSite event) override;
  void finishRegion(const AssemblyTask& task) override;

 private:
  using Caches = std::vector<std::unique_ptr<VCFCache>>;

  const TNhaplotyper& tn() const { return *static_cast<const TNhaplotyper*>(algo); }

  void takeReads(const AssemblyTask& task, const EventSite& event);
  bool isCandidate(const TumorNormalLod& lod) const;
  void placeSite(const EventSite& event, size_t alternate, VariantContext& record);
  void lookUp(const VariantContext& record, TNCall& call) const;
  size_t countInPanel(const VariantContext& record) const;
  void describe(const EventSite& event, size_t alternate, const TNCall& call, VariantContext& record) const;
  void addColumn(int32_t sample, int32_t allele, VariantContext& record) const;

  const Param& param_;
  const bool has_normal_;
  TNActivity activity_;
  std::vector<uint32_t> active_positions_;
  Caches cosmic_, panel_;

  // Of the site being called.
  AlleleRows allele_rows_;
  LocusReads locus_;
  Site site_;
  std::vector<bool> alt_in_normal_;  // by record of the region
};
