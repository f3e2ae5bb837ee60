// haplotyper_engine.h - what Haplotyper does on each thread: activity along the shard, the regions cut from it, their
// calling in order, and in mode gvcf the reference blocks between the records.
//
// Regions do not end at a shard's borders: one that lies over a border is done by both shards, and each writes what
// begins in it. So calls do not depend on how the genome was cut.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "algo/vcall/activity_profile.h"
#include "algo/vcall/activity_tracker.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/haplotyper.h"
#include "algo/vcall/phasing.h"
#include "algo/vcall/read_evaluator.h"
#include "algo/vcall/reference_window.h"
#include "algo/vcall/region_events.h"
#include "algo/vcall/region_pipeline.h"

class Haplotyper::Engine final : public VariantCallAlgo::Engine {
 public:
  // The assembler and the model outlive the engine.
  Engine(DriverContext* context, Haplotyper* algo, const Param& param, const RegionAssembler& assembler,
         const PairHMM& hmm);

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;

 private:
  struct Span {
    uint32_t start, end;
  };

  const Haplotyper& haplotyper() const { return *static_cast<const Haplotyper*>(algo); }

  // Activity.
  void takeTargets();
  void feed(uint32_t start, uint32_t end);
  void fetchReference(uint32_t start, uint32_t end);
  void fetchReads(uint32_t start, uint32_t end, std::vector<Read*>& reads);
  void clearOutsideTargets(uint32_t start, uint32_t end);
  void loadGiven(uint32_t start, uint32_t end);
  void takeGiven(ActiveRegion region, GivenAlleles& taken);
  void track(uint32_t start, uint32_t end);
  double activityAt(uint32_t position);
  void keepConfidence(uint32_t start, uint32_t end);

  // Regions.
  void cutRegions(bool last);
  void addGap(uint32_t end);
  void addRegion(ActiveRegion region);
  std::unique_ptr<AssemblyTask> newTask(ActiveRegion active) const;

  // Calling.
  void call(AssemblyTask& task);
  static void tellCall(const AssemblyTask& task);
  void calcRegion(AssemblyTask& task);
  void realignReads(AssemblyTask& task);
  void calcSite(const AssemblyTask& task, EventSite event);
  void prepareSite(const AssemblyTask& task, EventSite& event);
  void describeSite(const EventSite& event);
  void writeHeld(const AssemblyTask& task);
  void calcInactive(uint32_t start, uint32_t end);
  ActiveRegion ownPart(ActiveRegion region) const;  // what of it lies in the shard
  void dropConfidence(uint32_t before);

  const Param& param_;
  const bool gvcf_;
  const uint32_t window_limit_;  // bases: bounds the memory of the profile
  ActivityProfile profile_;
  ActivityTracker tracker_;
  ReadEvaluator evaluator_;
  RegionPipeline pipeline_;

  std::string targets_contig_;
  std::vector<Span> targets_;  // of the contig, sorted and disjoint; all of it without --interval
  uint32_t contig_end_ = 0;
  uint32_t fed_ = 0, feed_end_ = 0;  // the activity of the shard: how far it is known, and is to be known
  uint32_t covered_ = 0;             // positions of the shard before it belong to a task
  uint32_t run_start_ = 0;           // a region that begins here may be part of a longer run
  uint32_t certain_from_ = 0;        // regions from here on are those of the shard before, too

  std::string window_contig_;
  ReferenceWindow window_;
  std::vector<Read*> reads_;
  GivenAlleles given_;  // from the last region on
  Site activity_site_;
  struct ActivePosition {
    uint32_t position;
    double activity;
    int softClip;  // bases
  };
  std::vector<ActivePosition> active_;  // of the window

  // Mode gvcf: what the profile said of the positions that no task has taken yet.
  struct Confidence {
    uint32_t start = 0;
    std::string bases;
    std::vector<double> likelihoods;
    std::vector<int32_t> depth;
  } confidence_;

  // Of the region being called.
  std::vector<double> rows_;
  std::vector<std::unique_ptr<RealignedRead>> realigned_;
  std::vector<Read*> aligned_, over_;
  std::vector<ReadClip> clips_;
  AlleleRows allele_rows_;
  ReadLikelihoodRows site_rows_;
  Site site_;
  std::vector<RegionRecord> held_;
};
