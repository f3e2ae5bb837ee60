// mark_duplicates.h - which reads of a window are copies of a better one. Knows no files.
//
//   pair      two reads, or one and what a score file tells of its mate; of pairs of one library with the same two
//             5-prime positions and strands all but the best are duplicates
//   fragment  a read that is judged alone; one without a mapped mate is a duplicate where an end of a pair, or a
//             better fragment, has the same 5-prime position and strand
//
// Coords   zero-based half open.
// Threads  one object per thread. Its memory is used again from window to window: no allocation once warm.
// Cost     near-linear in the reads of the window. Only members of a group are scored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "algo/name_table.h"
#include "algo/preprocess/dedup_metrics.h"
#include "algo/preprocess/mate_fix.h"
#include "algo/preprocess/mate_info.h"
#include "algo/preprocess/optical_duplicates.h"
#include "readdata/bam/read.h"

struct DedupParams {
  // Reads of one contig whose starts are this far apart look their mate up in the score files.
  int32_t pair_start_dist_thr = 600;
  int32_t readbehind = 1200, readahead = 600;  // bases in view on either side of a step
  int32_t clip = 1;                            // 0: clipped ends stay clipped when positions are compared
};

// What the engines of a run share; constant.
struct MarkRules {
  DedupParams params;
  bool fixmate = false;
  int optical_dup_pix_dist = -1;  // below 1: optical duplicates are not counted
  std::vector<int32_t> library_of_read_group;
  size_t library_count = 0;
};

// The part of a window whose reads are judged; the others are there as mates and rivals.
struct MarkStep {
  uint32_t from = 0, to = 0;
  uint32_t low = 0;  // reads that start in [low, from) belong to the step when they reach beyond `from`

  // A read whose alignment covers no base stands at its start.
  bool owns(const Read& read) const {
    return read.start >= low && read.start < to && (read.start >= from || read.end > from);
  }
};

bool isUnpaired(const Read& read);  // or has no mapped mate
bool isChimeric(const Read& read);  // the mate is on another contig

class DuplicateMarker {
 public:
  struct WindowRead {
    Read* read;
    uint32_t start;
    int32_t library;
    uint32_t five_prime;
    uint32_t name_hash;
    int32_t score;     // -1: not yet known
    int32_t ordinal;   // place in the window, from the first read at or behind the start of the step
    int32_t mate_fix;  // index, -1 without one
    bool own;          // belongs to the step
    bool judged;       // not secondary, nor supplementary, nor (but under `fixmate`) unmapped
    bool paired;       // with another read of the window
    bool duplicate;
  };

  explicit DuplicateMarker(const MarkRules& rules);

  // To be called before windows that do not go on from the last one: what was seen of its reads is forgotten.
  void startShard() { reads_.clear(); }

  // Judges the reads of a window, which are in order of start; `mates` knows the mates of far pairs.
  void markDup(std::span<Read* const> window, const MarkStep& step, const MateInfoBase& mates);
  // Only finds what mates tell otherwise than they are.
  void fixMates(std::span<Read* const> window, const MarkStep& step, const MateInfoBase& mates);

  // Of the last window, in its order.
  const std::vector<WindowRead>& reads() const { return reads_; }
  // Null unless flags or insert size differ from those of an own read.
  const MateFix* fixOf(const WindowRead& read) const {
    return read.mate_fix < 0 ? nullptr : &fixes_[size_t(read.mate_fix)];
  }

  // Of all windows until they are cleared, by library.
  std::vector<DedupCounts>& counts() { return counts_; }
  std::vector<LocusStat::Histogram>& opticalHistograms() { return optical_histograms_; }

 private:
  // One per pair in the window, or end of a pair that leads out of it.
  struct PairRecord {
    int32_t library;
    uint32_t pos1, pos2;  // 5-prime positions of the first and the second end
    int32_t ordinal;      // of the first end
    int32_t mate_contig;
    int32_t mate_score;         // of an end that is not in the window
    WindowRead *read1, *read2;  // null when not in the window, not both
    int64_t score;              // of both ends; known in groups only
    PairRecord* next;           // in the group
    uint8_t orientation;        // bit 0: reverse strand of the first end, bit 1 of the second
    bool duplicate;
    bool partial;  // nothing is known of the mate, so that it has no group
  };
  // A read without a mapped mate that is judged alone.
  struct FragmentRecord {
    int32_t library;
    uint32_t pos;
    int32_t ordinal;
    bool reverse;
    WindowRead* read;
  };

  void takeWindow(std::span<Read* const> window, const MarkStep& step, uint16_t skipped_flags);
  WindowRead lookAt(Read& read, bool judged) const;
  void countOwn();
  void findPairEnds(bool (*wanted)(const Read& read, bool fixmate));
  void addPair(WindowRead& a, WindowRead& b);
  void judgeAlone(WindowRead& read, const MateInfoBase& mates);
  void addFarPair(WindowRead& read, const MateSummary* mate);
  void addFragment(WindowRead& read);
  void setMateFix(WindowRead& read, const PairSide& mate);
  bool hasFarMate(const Read& read) const;
  uint32_t fivePrimeOf(const Read& read) const;
  int32_t scoreOf(WindowRead& read);

  void groupPairs();
  void judgeGroup(PairRecord* first);
  int64_t opticalDuplicates();
  void judgeFragments();
  void beatFragments(const WindowRead& read);

  const MarkRules& rules_;
  std::vector<WindowRead> reads_, previous_;  // of this window and the last one
  NameTable names_;
  std::vector<std::pair<WindowRead*, WindowRead*>> pair_ends_;
  std::vector<WindowRead*> left_;  // found no mate in the window
  std::vector<PairRecord> pairs_;
  std::vector<PairRecord*> groups_, crowded_, members_;  // hash table; heads of groups of several; one group
  std::vector<FragmentRecord> fragments_;
  std::vector<WindowRead*> rivals_;        // fragments with a mapped mate: never duplicates
  std::vector<uint64_t> fragment_places_;  // a bit per hash of a fragment's place
  std::vector<MateFix> fixes_;
  OpticalDuplicates optical_;
  std::vector<DedupCounts> counts_;
  std::vector<LocusStat::Histogram> optical_histograms_;
};
