// locus_collector_engine.h - the work of LocusCollector on the reads of a shard, and what it leaves for the merge.
#pragma once

#include <string>
#include <vector>

#include "algo/algo.h"
#include "algo/preprocess/locus_collector.h"

struct LocusCollectorParams {
  uint32_t readahead = 0, readbehind = 0;  // bases
  int32_t pair_start_dist_thr = 0;         // bases
  bool reduce = false;   // leave out reads that nothing in their window could be a duplicate of
  bool fixmate = false;  // of unmapped reads and mates too, and without reduction
};

class LocusCollector::Result final : public Algo::Result {
 public:
  std::string path;  // of the shard's lines
  uint64_t memorySize() const override { return sizeof *this + path.capacity(); }
};

// Reads are decided on `readahead` bases behind the loading, in windows that reach `readbehind` bases back.
class LocusCollector::Engine final : public Algo::Engine {
 public:
  Engine(DriverContext* context, Algo* algo, const LocusCollectorParams& params, const std::string& output)
      : Algo::Engine(context, algo), params_(params), output_(output) {}

  void startShard() override;
  void advance(uint32_t from, uint32_t to) override;
  void processNoCoor() override {}
  Algo::Result* finishShard() override;

 private:
  // What two reads have in common that may be duplicates of each other, whatever their mates are.
  struct End {
    uint64_t five_prime;  // with the strands of both mates in the lowest two bits
    int32_t mate_contig;
    uint32_t index;  // in reads_
    bool sameKey(const End& other) const {
      return five_prime == other.five_prime && mate_contig == other.mate_contig;
    }
  };

  void calc(uint32_t from, uint32_t to);
  bool isFar(const Read& read, uint32_t from, uint32_t to) const;
  End endOf(uint32_t index) const;
  void addLine(uint32_t index);
  void writeLines();

  const LocusCollectorParams params_;
  const std::string output_;
  std::string path_;  // of the shard's file
  FileOwner stream_;
  std::vector<Read*> reads_;  // of the window
  std::vector<End> ends_;     // scratch
  std::string lines_;         // not yet written
};
