// interval_list.h - a list of regions from interval strings or from a file of them (plain, BED, Picard-
// style).
// Threads  built on one thread, read-only afterwards.
// Errors   messages go to standard error and the call returns false; targets() throws std::runtime_error.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "readdata/interval/interval.h"

struct IntervalEntry : Interval {
  bool negative_strand = false;
  std::string name;
};

class IntervalList {
 public:
  enum Kind { kPlain = 0, kPicard = 1, kBed = 2 };

  IntervalList() = default;
  IntervalList(const IntervalList&) = delete;  // entries point to names that this list owns
  IntervalList& operator=(const IntervalList&) = delete;

  // In place of what the list held. The file is read twice, so a pipe or a device is refused.
  bool load(const char* path);
  bool add_strings(const char* text);  // "contig:start-end,contig,...", added to what the list holds
  void pad(int64_t amount);            // bases on both sides; negative shrinks
  void merge();
  // Compares the contigs of a Picard-style header: strictly against the reference's, or, when `relaxed`,
  // against those of the reads, which may be fewer. Lists without header pass.
  bool check_contigs(const std::vector<Contig>& contigs, bool relaxed) const;
  void append_to(IntervalMap& map) const;  // the added intervals point to the names that the map's keys own
  // By contig index; only a Picard-style list carries the names and strands that targets need.
  const std::vector<std::vector<IntervalEntry>>& targets() const;
  const std::vector<std::vector<IntervalEntry>>& per_contig() const { return per_contig_; }
  Kind kind() const { return kind_; }
  uint64_t total() const { return total_; }  // entries

 private:
  struct Loader;

  uint32_t registerContig(const char* name);
  void addEntry(
      IntervalEntry entry);  // of a registered contig; `contig` becomes the name that this list owns
  void addInterval(const Interval& interval);
  void countEntries();
  bool checkReferenceContigs(const std::vector<Contig>& contigs) const;
  bool checkReadContigs(const std::vector<Contig>& contigs) const;

  Kind kind_ = kPlain;
  std::vector<Contig> header_contigs_;
  std::map<std::string, uint32_t> contig_index_;  // owns the names
  std::vector<std::vector<IntervalEntry>> per_contig_;
  uint64_t total_ = 0;
};
