// assembly_call_engine.h - what callers by assembly do on each thread, whatever their model is: activity along the shard,
// the regions cut from it, their assembly on the pool, and their calling in order.
//
// A region begins and ends where the activity says; its reads and what is assembled reach beyond. Of one that lies over
// the border of a shard each of the two shards writes what is its own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "algo/vcall/activity_tracker.h"
#include "algo/vcall/assembly_call_algo.h"
#include "algo/vcall/phasing.h"
#include "algo/vcall/read_evaluator.h"
#include "algo/vcall/reference_window.h"
#include "algo/vcall/region_events.h"
#include "algo/vcall/region_pipeline.h"

class AssemblyCallAlgo::Engine : public VariantCallAlgo::Engine {
 public:
  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;

 protected:
  struct ActivePosition {
    uint32_t position;
    double activity;
    int softClip;  // bases
  };

  // `windowLimit`: positions whose profile the caller keeps at a time.
  Engine(DriverContext* context, AssemblyCallAlgo* algo, uint32_t windowLimit);

  // What the caller's model has to say. Windows [start, end) follow one another along the shard.
  virtual void buildProfile(const std::vector<Read*>& reads, const ReferenceWindow& window, uint32_t start,
                            uint32_t end) = 0;
  virtual void clearProfile(uint32_t start, uint32_t end) = 0;  // a part of the window that is no target
  // Appends the active positions of the window, in order.
  virtual void findActive(uint32_t start, uint32_t end, std::vector<ActivePosition>& active) = 0;
  // Before the task is assembled; false: there is nothing to call.
  virtual bool prepareTask(AssemblyTask&) { return true; }
  // Appends the records of one position to held_. clips_, aligned_ and rows_ are the region's.
  virtual void calcSite(const AssemblyTask& task, EventSite event) = 0;
  // When all records of the region are in held_.
  virtual void finishRegion(const AssemblyTask&) {}
  // Positions of the shard without a record, and the end of what is needed no more.
  virtual void callGap(uint32_t, uint32_t) {}
  virtual void dropBefore(uint32_t) {}

  const AssemblyCallAlgo& caller() const { return *static_cast<const AssemblyCallAlgo*>(algo); }
  const ReferenceWindow& window() const { return window_; }

  // Of the region being called.
  std::vector<double> rows_;     // reads by haplotypes, log10
  std::vector<Read*> aligned_;   // by read, as its best haplotype aligns it; borrowed
  std::vector<ReadClip> clips_;  // what of these was evaluated
  std::vector<RegionRecord> held_;

 private:
  struct Span {
    uint32_t start, end;
  };

  // Activity.
  void takeTargets();
  void feed(uint32_t start, uint32_t end);
  void fetchReference(uint32_t start, uint32_t end);
  void fetchReads(uint32_t start, uint32_t end, std::vector<Read*>& reads);
  void clearOutsideTargets(uint32_t start, uint32_t end);

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
  void writeHeld(const AssemblyTask& task);
  ActiveRegion ownPart(ActiveRegion region) const;  // what of it lies in the shard

  const uint32_t window_limit_;
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

  MovingReference window_;
  std::vector<Read*> reads_;
  std::vector<ActivePosition> active_;                     // of the window
  std::vector<std::unique_ptr<RealignedRead>> realigned_;  // what is new in aligned_
};
