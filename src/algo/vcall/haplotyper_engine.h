// haplotyper_engine.h - what is Haplotyper's own on each thread: activity by the likelihoods of genotypes, the genotypes of
// each site, and in mode gvcf the reference blocks between the records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "algo/vcall/activity_profile.h"
#include "algo/vcall/assembly_call_engine.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/haplotyper.h"

class Haplotyper::Engine final : public AssemblyCallAlgo::Engine {
 public:
  Engine(DriverContext* context, Haplotyper* algo, const Param& param);

  void startShard() override;

 protected:
  void buildProfile(const std::vector<Read*>& reads, const ReferenceWindow& window, uint32_t start,
                    uint32_t end) override;
  void clearProfile(uint32_t start, uint32_t end) override;
  void findActive(uint32_t start, uint32_t end, std::vector<ActivePosition>& active) override;
  bool prepareTask(AssemblyTask& task) override;
  void calcSite(const AssemblyTask& task, EventSite event) override;
  void finishRegion(const AssemblyTask& task) override;
  void callGap(uint32_t start, uint32_t end) override;
  void dropBefore(uint32_t before) override;

 private:
  const Haplotyper& haplotyper() const { return *static_cast<const Haplotyper*>(algo); }

  void loadGiven(uint32_t start, uint32_t end);
  void takeGiven(ActiveRegion region, GivenAlleles& taken);
  double activityAt(uint32_t position);
  void keepConfidence(uint32_t start, uint32_t end);
  void prepareSite(const AssemblyTask& task, EventSite& event);
  void describeSite(const EventSite& event);

  const Param& param_;
  const bool gvcf_;
  ActivityProfile profile_;
  GivenAlleles given_;  // from the last region on
  Site activity_site_;

  // Mode gvcf: what the profile said of the positions that no task has taken yet.
  struct Confidence {
    uint32_t start = 0;
    std::string bases;
    std::vector<double> likelihoods;
    std::vector<int32_t> depth;
  } confidence_;

  // Of the site being called.
  std::vector<Read*> over_;
  AlleleRows allele_rows_;
  ReadLikelihoodRows site_rows_;
  Site site_;
};
