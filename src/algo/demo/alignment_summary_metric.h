// alignment_summary_metric.h - how well reads align: counts of reads and bases, mismatches, indels, pairing,
// adapters. The definitions are those that users know from the alignment summary of common metric tools.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "algo/demo/read_metrics.h"

struct AlignmentSummarySettings {
  std::vector<std::string> adapters;  // upper case; an N matches every base
  int32_t max_insert_size = 100000;   // bases; a pair farther apart is a chimera
  bool has_reference = true;
  bool bisulfite = false;  // C read as T (forward) and G read as A (reverse) are no mismatches

  static std::vector<std::string> defaultAdapters();
};

class AlignmentSummaryMetric final : public ReadMetrics {
 public:
  explicit AlignmentSummaryMetric(const AlignmentSummarySettings& settings) : settings_(&settings) {}

  void update(Read& read, ReferenceSource& reference) override;
  void merge(const ReadMetrics& other) override;
  void reset() override { *this = AlignmentSummaryMetric(*settings_); }
  void compute() override;
  bool empty() const override { return count_.total_reads == 0; }
  uint64_t memorySize() const override;
  void titles(std::vector<std::string>& list) const override;
  void lines(std::vector<std::string>& list) const override;

 private:
  struct Counters {
    int64_t total_reads = 0, pf_reads = 0, pf_noise_reads = 0, pf_reads_aligned = 0, pf_aligned_bases = 0;
    int64_t pf_hq_aligned_reads = 0, pf_hq_aligned_bases = 0, pf_hq_aligned_q20_bases = 0;
    int64_t reads_aligned_in_pairs = 0;
    int64_t adapter_reads = 0, positive_strand_reads = 0, pair_reads = 0, chimeras = 0, total_bases = 0;
    int64_t indels = 0, mismatches = 0, aligned_bases = 0, hq_aligned_bases = 0;
    void add(const Counters& other);
  };
  // What is printed beside the counters; 0 where it was not computed.
  struct Derived {
    double pct_pf_reads = 0, pct_pf_reads_aligned = 0, pf_hq_median_mismatches = 0, pf_mismatch_rate = 0;
    double pf_hq_error_rate = 0, pf_indel_rate = 0, mean_read_length = 0, pct_reads_aligned_in_pairs = 0;
    double strand_balance = 0, pct_chimeras = 0, pct_adapter = 0;
    int64_t bad_cycles = 0;
  };

  bool isAdapter(Read& read) const;
  void countPairing(const Read& read);
  void compareBases(Read& read, ReferenceSource& reference);
  // The `length` bases at `offset` of the read against the reference from `reference` on; the read's
  // high-quality mismatches.
  int64_t compareBlock(const Read& read, const char* bases, int32_t offset, const char* reference,
                       int32_t length, bool high_quality);
  void growBadCycles(int64_t cycle);  // makes room up to that one
  double medianMismatches() const;

  const AlignmentSummarySettings* settings_;
  Counters count_;
  std::vector<int64_t> bad_cycles_;           // mismatches and no-calls, by zero-based cycle
  std::map<int64_t, int64_t> hq_mismatches_;  // mismatches in a read -> high-quality reads
  Derived derived_;
};

class MultiCategroyAlignmentSummaryMetricBuilder final : public ReadMetricsFactory {
 public:
  explicit MultiCategroyAlignmentSummaryMetricBuilder(AlignmentSummarySettings settings)
      : settings_(std::move(settings)) {}
  std::unique_ptr<ReadMetrics> create() const override {
    return std::make_unique<MultiCategroyReadMetric<AlignmentSummaryMetric>>(settings_);
  }

 private:
  AlignmentSummarySettings settings_;
};
