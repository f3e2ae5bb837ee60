// dedup.h - Dedup marks the reads that are copies of a better one, or leaves them out, while it copies the reads of
// a run to one sorted file; it counts per library, for a metrics file.
// Needs    the score files of LocusCollector on the same reads, for pairs whose ends are never in one window.
// More in docs/algorithms/dedup.md.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "algo/preprocess/dedup_metrics.h"
#include "algo/preprocess/mark_duplicates.h"
#include "algo/read_writer.h"
#include "readdata/vcf/vcf_cache.h"

class Dedup : public ReadWriter {
 public:
  class Engine;
  class Result;

  Dedup(DriverContext* context, int count, const char* const args[]);
  ~Dedup() override;  // prints the counters and writes the metrics of a run that came to its end

  std::vector<OutputFile> outputs() const override;
  std::vector<std::string> inputs() const override { return input_files_; }
  void init() override;
  void merge(const Shard& shard, Algo::Result* result) override;
  Algo::Engine* newEngine(DriverContext* context, int index) override;
  void finish() override { finished_ = true; }
  virtual void mergeFiles(size_t count, const char* const names[]);

  enum Function { kDedup, kFixMate };

 private:
  void addOptions(OptionParser& parser);
  void settleOptions();
  void takePartialFiles(const std::vector<const char*>& positional);
  void openScoreFiles();
  void listLibraries();
  std::string usage() const;
  void printSummary() const;
  void writeMetrics() const;

  MarkRules rules_;  // shared with the engines
  std::string function_name_ = "dedup";
  Function function_ = kDedup;
  bool rmdup_ = false;
  bool fixmate_ = false;
  bool fixisize_ = false;
  bool optical_dup_histogram_ = false;
  bool merge_ = false;
  bool finished_ = false;
  std::string metrics_path_;
  std::vector<std::string> score_files_;
  std::vector<std::string> input_files_;                 // score files, or the partial files of a merge
  std::vector<std::unique_ptr<VCFCache>> score_caches_;  // each engine has copies
  DedupMetrics metrics_;
};

class Dedup::Result : public ReadWriter::Result {
 public:
  uint64_t memorySize() const override;

  std::vector<LibraryMetrics> libraries;
};
